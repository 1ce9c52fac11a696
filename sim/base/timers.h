// What is to happen later on the board's thread.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace bthal::sim {

using Clock = std::chrono::steady_clock;

class Timers {
 public:
  void After(Clock::duration delay, std::function<void()> action) {
    actions_.emplace(Clock::now() + delay, std::move(action));
  }
  void Clear() { actions_.clear(); }

  // When RunDue is next wanted.
  std::optional<Clock::time_point> Next() const {
    return actions_.empty() ? std::nullopt : std::optional(actions_.begin()->first);
  }
  // An action may add others and may clear all.
  void RunDue(Clock::time_point now) {
    while (!actions_.empty() && actions_.begin()->first <= now) {
      auto node = actions_.extract(actions_.begin());
      node.mapped()();
    }
  }

 private:
  std::multimap<Clock::time_point, std::function<void()>> actions_;
};

}  // namespace bthal::sim
