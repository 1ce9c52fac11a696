// When the controller's receiver sleeps.
#pragma once

#include <algorithm>
#include <optional>

#include "sim/base/timers.h"

namespace bthal::sim {

// With sleep mode set the wake line decides: high, the controller hears; low for a while, it does not. While it speaks
// it is awake: what the host sends meanwhile may have to wait until it listens again, and is not lost.
class Sleep {
 public:
  explicit Sleep(Clock::duration falls_asleep_after) : falls_asleep_after_(falls_asleep_after) {}

  void Set(Clock::time_point now) {
    set_ = true;
    if (!wake_line_) low_since_ = now;
  }
  // Leaves sleep mode, as a loss of power or a fresh firmware does. The line keeps its level.
  void Forget() { set_ = false; }
  void WakeLine(bool high, Clock::time_point now) {
    if (!high && (wake_line_ || !low_since_)) low_since_ = now;
    wake_line_ = high;
  }
  bool set() const { return set_; }
  // `spoke` is when it last said something.
  bool Asleep(Clock::time_point now, Clock::time_point spoke) const {
    return set_ && !wake_line_ && low_since_ && now - std::max(*low_since_, spoke) >= falls_asleep_after_;
  }

 private:
  const Clock::duration falls_asleep_after_;
  bool set_ = false;
  bool wake_line_ = false;
  std::optional<Clock::time_point> low_since_;
};

}  // namespace bthal::sim
