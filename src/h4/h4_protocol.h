// Frames HCI packets onto the UART and parses the controller's byte stream back into packets.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "debug_central/debug_central.h"
#include "h4/h4_packetizer.h"
#include "h4/write_watchdog.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// What the protocol asks of those who opened the transport, and tells them.
struct H4Owner {
  // Whether the transport is in service: a failed read then ends the process.
  std::function<bool()> is_initialized;
  // Whether the controller is up and nobody but the receive thread would notice that the line is gone. A bring-up
  // notices by itself, and may open the port anew.
  std::function<bool()> is_ready;
  // The transport failed beyond repair. Called on the receive thread, which stands on the protocol until it returns, on
  // the timer's thread that watches the writes, or on the bring-up's.
  std::function<void(BqrErrorCode code, const std::string& info)> catch_exception;
};

// Send and the receiving side touch disjoint state and may run at the same time; callers serialise Send among
// themselves, and OnDataReady runs on the descriptor-watcher thread only.
class H4Protocol {
 public:
  // `uart_fd` stays the caller's: it is never closed here and must outlive the object. An owner's empty function counts
  // as false, or does nothing.
  H4Protocol(int uart_fd, Consumers consumers, H4Owner owner);
  H4Protocol(const H4Protocol&) = delete;
  H4Protocol& operator=(const H4Protocol&) = delete;

  // Writes the type byte and `length` bytes of `data` with one writev, repeated for what a short write left over.
  // Returns the bytes written, type byte included: length + 1, or fewer after a write error (logged and recorded). A
  // write that makes no progress for five seconds is reported to the owner, as kind 0x84, while it goes on.
  size_t Send(uint8_t type, const uint8_t* data, size_t length);

  // The line is being taken away: the write in progress is interrupted, and what is left of it given up. To be repeated
  // until no Send is left inside. Any thread.
  void GiveUpWriting();

  // Reads once from `fd` and dispatches what arrived. A read error on an initialised transport ends the process. End of
  // file on a port that has hung up under a controller in service is reported to the owner, as kind 0x84. Any other end
  // of file and errors during set-up are logged and waited out for five seconds, or until the watcher is stopped.
  void OnDataReady(int fd);

  // Whether the port has hung up under a controller in service, which is then reported to the owner.
  bool ReportHangUp(int fd) const;

  // Dispatches received bytes: the part of OnDataReady behind the read. `data` need only live during the call, and
  // HciPacketizer::kReadAhead bytes behind it must be readable.
  void OnBytes(const uint8_t* data, size_t length);

  // Received bytes that were swallowed, the stream being out of step. Any thread.
  uint64_t DroppedBytes() const { return hci_packetizer_.DroppedBytes(); }

  // Hands the packetizer's packet to the callback of its type.
  void OnPacketReady();

 private:
  void Walk(const uint8_t* data, size_t length);
  void TellMoreToCome(bool more) const;
  // Hands on the packets that lie whole at `data`, where they lie. Returns the start of the first that does not, or
  // that is none.
  const uint8_t* DeliverWhole(const uint8_t* data, const uint8_t* end);
  void ReportUnimplementedType(const uint8_t* data, size_t length);

  int uart_fd_;
  Consumers consumers_;
  H4Owner owner_;
  std::atomic<bool> giving_up_{false};
  WriteWatchdog watchdog_;
  HciPacketType hci_packet_type_ = HciPacketType::kUnknown;
  HciPacketizer hci_packetizer_;
};

}  // namespace android::hardware::bluetooth::hci
