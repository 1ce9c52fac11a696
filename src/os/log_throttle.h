// Log lines that would otherwise repeat with every packet.
#pragma once

#include <atomic>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>

#include <android-base/logging.h>

namespace android::hardware::bluetooth::os {

// Lets through the first occurrence of one line and then one a second; the others are counted. Give every line that can
// become a flood an object of its own, with static storage. There is no timer: what a flood has left out is told with
// its next line. Any thread; no lock, and no allocation for a line that is left out.
class LogThrottle {
 public:
  using Clock = std::chrono::steady_clock;

  constexpr LogThrottle() = default;

  // Takes notice of one occurrence: how many were left out before it when it is to be logged, nothing when it is left
  // out itself.
  std::optional<uint64_t> Notice(Clock::time_point now = Clock::now());

  // The next occurrence is logged, whenever it comes.
  void Reset();

  // Logs `text`, as it is, under `tag` (null: the default tag), behind a line that tells how many were left out; or
  // leaves it out. A callable `text` is called only for a line that is logged.
  void Log(const char* tag, ::android::base::LogSeverity severity, const char* text) {
    Log(tag, severity, [text] { return text; });
  }
  template <std::invocable Text>
  void Log(const char* tag, ::android::base::LogSeverity severity, const Text& text) {
    if (const auto left_out = Notice()) LogNow(tag, severity, text(), *left_out);
  }

 private:
  static void LogNow(const char* tag, ::android::base::LogSeverity severity, const std::string& text,
                     uint64_t left_out);

  static constexpr Clock::rep kAtOnce = Clock::time_point::min().time_since_epoch().count();

  std::atomic<Clock::rep> next_{kAtOnce};
  std::atomic<uint64_t> left_out_{0};
};

}  // namespace android::hardware::bluetooth::os
