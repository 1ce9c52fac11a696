// The seam to the sensor hub: datagrams there and back, and the end of the connection. What they say is no business of
// this.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace android::hardware::bluetooth::hci::hub {

// One connection at a time. Connect, Wait and Disconnect belong to one thread; Send and Interrupt may be called from
// any, at any time.
class HubLink {
 public:
  enum class Connected {
    kYes,
    kNotYet,  // the hub is not there, or does not take anybody: worth another try
    kNever,   // this machine has no way to a hub
  };
  enum class Event {
    kMessage,
    kTooLarge,  // a message beyond hub::kMaxMessage has come and is lost
    kHungUp,
    kTimeout,
    kInterrupted,
  };

  // A Unix socket on Linux, the platform's client library on Android.
  static std::unique_ptr<HubLink> Make();
  virtual ~HubLink() = default;

  // One try; in `why` the reason where it fails.
  virtual Connected Connect(std::string* why) = 0;
  // Waits for the next message (and puts it into `message`), for the connection's end, for `timeout` (none: for ever)
  // or for Interrupt.
  virtual Event Wait(std::vector<uint8_t>* message, std::optional<std::chrono::milliseconds> timeout) = 0;
  // False, with nothing of it sent: errno is ETIMEDOUT when the hub has not taken the message after `patience`,
  // ECANCELED soon after `give_up` was set, another when there is no connection or it ends.
  virtual bool Send(std::span<const uint8_t> message, std::chrono::milliseconds patience,
                    const std::atomic<bool>& give_up) = 0;
  // Lets the present or next Wait return.
  virtual void Interrupt() = 0;
  virtual void Disconnect() = 0;
};

// How often who waits in Send looks whether it is still to.
inline constexpr std::chrono::milliseconds kGiveUpInterval{10};

// hub_socket.cc and platform_hub.cc.
std::unique_ptr<HubLink> MakeSocketLink();
std::unique_ptr<HubLink> MakePlatformLink();

}  // namespace android::hardware::bluetooth::hci::hub
