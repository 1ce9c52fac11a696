// Whether a lost connection to the sensor hub is worth another one.
//
//                        back in time
//            .--------------------------------.
//            v                                |
//   down -> up --lost, the first for long--> lost --not back in time--> dead
//            |                                                           ^
//            '----------------lost again too soon------------------------'
//
//   down  no connection yet, or given up by ourselves. Not a loss.
//   up    requests are answered.
//   lost  the hub has hung up, or said that its own connection is lost. Whoever waits goes on waiting.
//   dead  until the next boot the controller is reached without the hub: what waits fails, the process ends, and the
//         next one, which finds the transport dead, takes the direct UART.
//
// "In time" is MaxUsfRecoveryTimeInSeconds from the loss on, "too soon" nearer to the loss before than
// MinUsfDisconnectionIntervalInSeconds. The last loss and a death are remembered in properties that end with the boot,
// because the process mostly ends with the connection: bytes that were under way are lost with it, and the controller
// has to be brought up anew.
#pragma once

#include <chrono>
#include <optional>

namespace android::hardware::bluetooth::hci::hub {

// Since the boot, as far as losses go.
using BootTime = std::chrono::seconds;

class HubRecovery {
 public:
  enum class State { kDown, kUp, kLost, kDead };

  State state() const { return state_; }
  // Of this process or an earlier one of this boot.
  static bool IsDead();
  // Whether a connection has been lost since the boot: then one that does not come is a lost one.
  static bool WasLost();

  void Connected();
  // Up to lost, or to dead.
  void Lost(BootTime now);
  // Lost to dead.
  void TooLate();
  // Up or lost to down.
  void GivenUp();

 private:
  void Die();

  State state_ = State::kDown;
};

BootTime Now();

}  // namespace android::hardware::bluetooth::hci::hub
