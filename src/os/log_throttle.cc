#include "os/log_throttle.h"

#include "os/log_as.h"

namespace android::hardware::bluetooth::os {
namespace {

constexpr std::chrono::seconds kPause(1);

}  // namespace

std::optional<uint64_t> LogThrottle::Notice(Clock::time_point now) {
  Clock::rep next = next_;
  // Of several threads that meet here one moves the time on, and logs; the others find that they came too late.
  if (now.time_since_epoch().count() < next ||
      !next_.compare_exchange_strong(next, (now + kPause).time_since_epoch().count())) {
    ++left_out_;
    return std::nullopt;
  }
  return left_out_.exchange(0);
}

void LogThrottle::Reset() { next_ = kAtOnce; }

void LogThrottle::LogNow(const char* tag, ::android::base::LogSeverity severity, const std::string& text,
                         uint64_t left_out) {
  if (left_out != 0) LogAs(tag, severity, "left out " + std::to_string(left_out) + " times: " + text);
  LogAs(tag, severity, text);
}

}  // namespace android::hardware::bluetooth::os
