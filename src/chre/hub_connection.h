// The connection to the sensor hub, kept by a thread of its own: made, read, and made again after a loss.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>

#include "chre/hub_link.h"
#include "chre/hub_message.h"
#include "chre/hub_recovery.h"
#include "os/thread.h"

namespace android::hardware::bluetooth::hci::hub {

class HubConnection {
 public:
  // All run on the connection's thread, and wait for nobody who waits for a reply.
  struct Listener {
    std::function<void(const FromHub&)> on_message;  // but for connection events that are in order
    std::function<void()> on_lost;
    // The connection is the same as before, or (`renewed`) another one, to a hub that knows of nothing.
    std::function<void(bool renewed)> on_back;
    std::function<void()> on_dead;
    std::function<void()> on_tick;  // see Tick
  };

  explicit HubConnection(Listener listener) : listener_(std::move(listener)) {}

  // Waits until there is a connection: at most MaxUsfRecoveryTimeInSeconds. A hub that was lost in this boot and does
  // not come back is dead.
  bool Establish();
  // One try, on the connection's own thread. Who cannot connect stays down.
  void EstablishInBackground();
  // Ends the connection and its thread. Not from a listener.
  void GiveUp();

  bool IsUp() const;
  // While the connection is lost, waits for its return. False when it is not up, or soon after `give_up` was set.
  bool AwaitUp(const std::atomic<bool>& give_up);
  // As HubLink::Send.
  bool Send(std::span<const uint8_t> message, std::chrono::milliseconds patience, const std::atomic<bool>& give_up);
  // From here on on_tick is called twice a second, until it asks for no more.
  void Tick();
  void NoMoreTicks() { ticking_ = false; }

  // What came from the hub and was no message of its.
  uint64_t Nonsense() const { return nonsense_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool StartLocked(bool insist);
  void Run(bool insist);
  bool Connect(bool insist);
  // False where one more try is of no use.
  bool WaitForNextTry(Clock::time_point until);
  void OnConnected();
  // Reads until the connection ends; false when there is to be no other.
  bool Read();
  void OnMessage(std::span<const uint8_t> message);
  bool OnConnectionEvent(const FromHub& event);
  // Up to lost; false if that was one too many.
  bool Lose();
  void Die();
  void TellOfDeath();
  HubRecovery::State state() const;

  const Listener listener_;
  const std::unique_ptr<HubLink> link_ = HubLink::Make();
  std::atomic<bool> ticking_{false};
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> nonsense_{0};

  mutable std::mutex mutex_;  // a leaf, but for the thread's start; guards what follows
  std::condition_variable changed_;
  HubRecovery recovery_;
  bool telling_ = false;  // dead, and on_dead has not returned
  bool running_ = false;  // the thread connects, reads or recovers
  os::Thread thread_;
  Clock::time_point lost_until_;  // the connection's thread only
};

}  // namespace android::hardware::bluetooth::hci::hub
