// What the service logs while one of these lives.
#pragma once

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace bthal::test {

struct LogLine {
  char severity;  // V D I W E F
  std::string tag;
  std::string text;
};

// Captures everything logged on any thread, at every severity. One at a time.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  // The lines of these tags, or of all, each as "E what it says", after an empty one, as a raw string has them.
  std::string Text(const std::set<std::string>& tags = {}) const;
  // Whether some line contains `text`; how many do.
  bool Has(const std::string& text) const { return Count(text) != 0; }
  size_t Count(const std::string& text) const;
  // Whether lines that contain `text` are logged at once, but no more often than once a second; those that count what
  // was left out aside.
  bool HasThrottled(const std::string& text) const;
  // Waits until some line contains `text`; false after ten seconds.
  bool WaitFor(const std::string& text) const;
  void Clear();

 private:
  std::chrono::steady_clock::time_point cleared_;
};

}  // namespace bthal::test
