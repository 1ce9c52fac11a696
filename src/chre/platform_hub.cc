// The hub through the platform's client library, behind five functions that a vendor's build provides. Where they are
// not linked every connection is refused.
#include "chre/hub_link.h"
#include "chre/hub_message.h"

#include <sys/types.h>

#include <cerrno>
#include <mutex>

#include "os/error_text.h"

// What the library's glue provides. A handle is one connection; each function but `close` may be called from several
// threads at once.
extern "C" {
// Connects to the Bluetooth endpoint of the hub. Null, with errno set, where it cannot.
__attribute__((weak)) void* bthal_usf_connect();
// Sends one message. 0, or -1 with errno set (ETIMEDOUT after `timeout_ms`, EPIPE when the connection has ended).
__attribute__((weak)) int bthal_usf_send(void* handle, const uint8_t* message, size_t size, int timeout_ms);
// Receives one message of at most `room` bytes. Its size, which is larger than `room` where it has been cut; 0 at the
// connection's end; -1 with errno ETIMEDOUT after `timeout_ms` (negative: none), or EINTR after bthal_usf_interrupt.
__attribute__((weak)) ssize_t bthal_usf_receive(void* handle, uint8_t* message, size_t room, int timeout_ms);
// Lets the present or next bthal_usf_receive return with EINTR.
__attribute__((weak)) void bthal_usf_interrupt(void* handle);
__attribute__((weak)) void bthal_usf_close(void* handle);
}

namespace android::hardware::bluetooth::hci::hub {
namespace {

// Closes when the last of those who send or wait has let go of it.
using Connection = std::shared_ptr<void>;

class PlatformLink : public HubLink {
 public:
  Connected Connect(std::string* why) override {
    if (bthal_usf_connect == nullptr) {
      *why = "this build is not linked with the sensor hub's client library";
      return Connected::kNever;
    }
    void* const handle = bthal_usf_connect();
    if (handle == nullptr) {
      *why = "the sensor hub's client library does not connect: " + os::ErrorText();
      return Connected::kNotYet;
    }
    Set(Connection(handle, bthal_usf_close));
    return Connected::kYes;
  }

  Event Wait(std::vector<uint8_t>* message, std::optional<std::chrono::milliseconds> timeout) override {
    const Connection connection = Current();
    if (connection == nullptr) return Event::kHungUp;
    message->resize(kMaxMessage);
    const ssize_t size = bthal_usf_receive(connection.get(), message->data(), message->size(),
                                           timeout ? static_cast<int>(timeout->count()) : -1);
    if (size > 0 && static_cast<size_t>(size) > kMaxMessage) return Event::kTooLarge;
    if (size > 0) {
      message->resize(static_cast<size_t>(size));
      return Event::kMessage;
    }
    if (size < 0 && errno == ETIMEDOUT) return Event::kTimeout;
    return size < 0 && errno == EINTR ? Event::kInterrupted : Event::kHungUp;
  }

  bool Send(std::span<const uint8_t> message, std::chrono::milliseconds patience,
            const std::atomic<bool>& give_up) override {
    const Connection connection = Current();
    errno = ENOTCONN;
    if (connection == nullptr) return false;
    constexpr int kSliceMs = kGiveUpInterval.count();
    for (auto left = patience; left.count() > 0; left -= kGiveUpInterval) {
      if (bthal_usf_send(connection.get(), message.data(), message.size(), kSliceMs) == 0) return true;
      if (errno != ETIMEDOUT) return false;
      if (give_up) {
        errno = ECANCELED;
        return false;
      }
    }
    return false;
  }

  void Interrupt() override {
    if (const Connection connection = Current()) bthal_usf_interrupt(connection.get());
  }

  void Disconnect() override { Set(nullptr); }

 private:
  Connection Current() {
    const std::lock_guard lock(mutex_);
    return connection_;
  }

  void Set(Connection connection) {
    const std::lock_guard lock(mutex_);
    connection_.swap(connection);
  }

  std::mutex mutex_;
  Connection connection_;
};

}  // namespace

std::unique_ptr<HubLink> MakePlatformLink() { return std::make_unique<PlatformLink>(); }

}  // namespace android::hardware::bluetooth::hci::hub
