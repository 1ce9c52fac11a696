// Waiting on a condition, never for a time.
#pragma once

#include <chrono>
#include <thread>

namespace bthal::test {

// Returns as soon as `done()` holds; false when it still does not after `limit`, which is only there to end a test that
// has failed, not to judge speed.
template <typename Condition>
bool WaitFor(Condition done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace bthal::test
