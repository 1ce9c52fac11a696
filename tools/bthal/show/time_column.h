// The time in front of a line, alike in all commands: since the beginning, or that of the day.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bthal::tool {

enum class TimeStyle { kRelative, kWall };

// "09:34:23.812674", of this machine's time zone.
std::string WallTime(int64_t unix_us);

// The moment that a person means: "10s", "5m", "2h" or "1d" before `now_us`; "09:34" or "09:34:23", the last one there
// was; "2026-11-21 09:34:23", also without seconds. In microseconds since the Unix epoch; nothing for anything else.
std::optional<int64_t> ParseMoment(std::string_view text, int64_t now_us);

// Of lines that are printed as things happen.
class TimeColumn {
 public:
  explicit TimeColumn(TimeStyle style) : style_(style) {}

  // With the blanks behind it.
  std::string At(std::chrono::steady_clock::time_point moment = std::chrono::steady_clock::now()) const;

 private:
  const TimeStyle style_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Now, in microseconds since the Unix epoch.
int64_t UnixMicroseconds();

}  // namespace bthal::tool
