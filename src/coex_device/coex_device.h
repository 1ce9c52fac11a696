// The link to the combined wireless chip's coexistence driver, /dev/wbrc.
#pragma once

#include <android-base/unique_fd.h>
#include <pthread.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "os/thread.h"

namespace android::hardware::bluetooth::os {
class ThreadTimer;
}

namespace android::hardware::bluetooth::coex_device {

// Codes of BtSend; the driver gets four bytes for each.
inline constexpr int kCoexBigHammerAck = 2;
inline constexpr int kCoexPowerGoingOff = 3;
inline constexpr int kCoexPowerIsOff = 4;
inline constexpr int kCoexPowerComingOn = 5;
inline constexpr int kCoexPowerIsOn = 6;

// A process-wide singleton, never destroyed. One poll thread per open device. DeviceOpen and DeviceClose are serialised
// by the service (DeviceClose also runs on the poll thread after a big hammer); BtSend may come from any thread. No
// lock is held while the handler runs, while a read or write is under way, or while a thread is waited for: a
// descriptor is kept open by whoever is using it, and closed by the last of them.
class CoexDevice {
 public:
  static CoexDevice& Get();

  // Opens the device and starts its poll thread. `handler` runs on that thread when the driver resets the whole chip
  // (big hammer); `pause_ms` is waited after it. On an open device with a live thread both are replaced. Returns the
  // descriptor (0 or more; it stays this object's) or -1.
  int DeviceOpen(std::function<void()> handler, int pause_ms);

  // Ends the poll thread (by force after one second) and closes the device.
  void DeviceClose();

  // Sends one message; false (logged) when the device is closed, the write fails, or the driver does not take it within
  // half a second.
  static bool BtSend(CoexDevice* device, int code);

  // Reads and acts on one event; 0 or a negative errno (-EIO at end of file, -EMSGSIZE for part of an event). Poll
  // thread.
  static int ReadEvent(CoexDevice* device);

 private:
  using Descriptor = std::shared_ptr<const base::unique_fd>;
  struct PollSession;

  CoexDevice() = default;

  int OpenNode();
  bool CreateSocketPair();
  void CreateThread();
  void PollEventThread(PollSession& session);
  void AnnouncePollThread(const PollSession& session) const;
  static bool MakeForcible(PollSession& session);
  void PollEvents(PollSession& session);
  void LeavePollThread(PollSession& session);
  void OnBigHammer(uint8_t event);
  bool WriteEvent(const uint8_t* message, size_t size);

  void ClosePollThread();
  void CloseSockets();
  static std::unique_ptr<os::ThreadTimer> coex_close_timer_setup(const std::shared_ptr<PollSession>& session,
                                                                 pthread_t thread);
  static void coex_close_timeout(PollSession& session, pthread_t thread);
  static void sigusr1_handler(int signal);

  Descriptor device() const;
  Descriptor DeviceOf(const PollSession& session) const;

  mutable std::mutex mutex_;  // guards everything below
  std::function<void()> handler_;
  int pause_ms_ = 0;
  Descriptor device_;
  std::shared_ptr<PollSession> session_;
  os::Thread thread_;  // whoever takes it out joins it, or detaches it on the thread itself
  base::unique_fd wake_sender_;
};

}  // namespace android::hardware::bluetooth::coex_device
