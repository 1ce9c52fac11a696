// The UART's line: framing and reading over the open port, and who may still stand on it when it is taken away.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "h4/h4_protocol.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// The H4Protocol over the open port and its watch on the receive thread. Process-wide, never destroyed. Attach, Watch
// and Detach come from bring-up and teardown, Send from any thread at any time.
class UartLink {
 public:
  static UartLink& Get();

  // Puts a fresh H4Protocol over `fd`, in place of any other. `fd` must stay open until Detach has returned.
  void Attach(int fd, const Consumers& consumers, const H4Owner& owner);

  // Has the receive thread read for the attached H4Protocol. `receiver`, on whom its consumers call, and the H4Protocol
  // itself are kept alive while it does; nothing is read once the receiver has gone. False when nothing is attached or
  // the descriptor cannot be watched.
  bool Watch(const std::weak_ptr<const void>& receiver);

  // How long a consumer that does not return is waited for where the line is taken away.
  static constexpr std::chrono::milliseconds kConsumerPatience{1000};

  // Takes the H4Protocol away: no Send reaches it any more, and those inside it have left when this returns; what they
  // had not written yet is discarded, the controller being about to lose its power. The receive thread does not read
  // for it any more either, but may still walk through what it has read: when it is the caller itself, or a consumer
  // has not returned for `patience`. Harmless when nothing is attached.
  void Detach(std::chrono::milliseconds patience = kConsumerPatience);

  // Ends the receive thread, or marks it to end when called on it. One whose consumer does not return for `patience` is
  // left to end by itself.
  void StopReceiving(std::chrono::milliseconds patience = kConsumerPatience);

  // Waits until no Send is inside; false if one still is after `patience`.
  bool WaitForSenders(std::chrono::milliseconds patience) const;

  // Reports a port that has hung up to the line's owner, as the receive thread does when it finds the end of the file.
  void ReportHangUp() const;

  // Bytes that were received out of step and swallowed, on this line and on those before it.
  uint64_t DroppedBytes() const;

  // Returns the bytes written, 0 when nothing is attached.
  size_t Send(uint8_t type, const uint8_t* data, size_t length);

 private:
  struct Line;

  UartLink() = default;

  std::shared_ptr<Line> CurrentLine() const;

  mutable std::mutex mutex_;  // never held while writing, reading or waiting
  std::shared_ptr<Line> line_;
  std::atomic<uint64_t> dropped_before_{0};  // on lines that have gone
};

}  // namespace android::hardware::bluetooth::hci
