#include "support/log_capture.h"

#include <algorithm>
#include <mutex>

#include "support/test.h"

namespace bthal::test {
namespace {

std::mutex g_mutex;
std::vector<LogLine>& Captured() {
  static auto& lines = *new std::vector<LogLine>;
  return lines;
}

void Capture(android::base::LogId, android::base::LogSeverity severity, const char* tag, const char*, unsigned int,
             const char* message) {
  constexpr char kLetters[] = {'V', 'D', 'I', 'W', 'E', 'F', 'F'};
  const std::lock_guard lock(g_mutex);
  Captured().push_back({kLetters[severity], tag == nullptr ? "" : tag, message});
}

}  // namespace

LogCapture::LogCapture() {
  Clear();
  android::base::SetLogger(Capture);
  android::base::SetMinimumLogSeverity(android::base::VERBOSE);
  // The logging library initialises itself at the first line, which had better not come from two threads at once.
  LOG(VERBOSE) << "log capture starts";
  Clear();
}

LogCapture::~LogCapture() {
  android::base::SetLogger(android::base::StderrLogger);
  android::base::SetMinimumLogSeverity(android::base::INFO);
}

std::vector<LogLine> LogCapture::Lines() const {
  const std::lock_guard lock(g_mutex);
  return Captured();
}

std::string LogCapture::Text(const std::set<std::string>& tags) const {
  std::string text = "\n";
  for (const LogLine& line : Lines()) {
    if (tags.empty() || tags.contains(line.tag)) text.append({line.severity, ' '}).append(line.text) += '\n';
  }
  return text;
}

size_t LogCapture::Count(const std::string& text) const {
  const std::lock_guard lock(g_mutex);
  return static_cast<size_t>(std::count_if(Captured().begin(), Captured().end(), [&](const LogLine& line) {
    return line.text.find(text) != std::string::npos;
  }));
}

bool LogCapture::HasThrottled(const std::string& text) const {
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - cleared_).count();
  const auto lines = Lines();
  const auto said = std::ranges::count_if(lines, [&](const LogLine& line) {
    return line.text.find(text) != std::string::npos && !line.text.starts_with("left out ");
  });
  return said >= 1 && said <= seconds;
}

bool LogCapture::WaitFor(const std::string& text) const {
  return test::WaitFor([&] { return Has(text); });
}

void LogCapture::Clear() {
  const std::lock_guard lock(g_mutex);
  Captured().clear();
  cleared_ = std::chrono::steady_clock::now();
}

}  // namespace bthal::test
