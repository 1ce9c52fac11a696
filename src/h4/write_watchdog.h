// Notices a write that the controller does not take.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace android::hardware::bluetooth::hci {

// Looks on from a timer's thread while packets are written, and only then: a line that writes nothing is not woken for.
// A write that blocks is interrupted now and then, so that it shows how far it has come; whoever writes goes on with
// the rest. One thread writes at a time.
class WriteWatchdog {
 public:
  // A controller that has taken nothing of a packet for so long is dead.
  static constexpr std::chrono::milliseconds kLimit{5000};

  // `on_stall` is called at most once, on the timer's thread, when a write has made no progress for `limit`; its
  // argument names the packet and how much of it went out. It may run while the watchdog is being destroyed.
  explicit WriteWatchdog(std::function<void(const std::string& what)> on_stall,
                         std::chrono::milliseconds limit = kLimit);
  WriteWatchdog(const WriteWatchdog&) = delete;
  WriteWatchdog& operator=(const WriteWatchdog&) = delete;
  ~WriteWatchdog();

  // The writing of one packet of H4 type `type` and `length` bytes, from construction to destruction.
  class Write {
   public:
    Write(WriteWatchdog& watchdog, uint8_t type, const uint8_t* data, size_t length);
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;
    ~Write();

    // `written` bytes, type byte included, have gone out.
    void Progress(size_t written);

   private:
    WriteWatchdog& watchdog_;
  };

  // Has the write that is in progress, if one is, return from its system call. Any thread.
  void InterruptWrite();

 private:
  struct State;

  const std::shared_ptr<State> state_;  // shared with the timer's callback, which may outlive the watchdog
};

}  // namespace android::hardware::bluetooth::hci
