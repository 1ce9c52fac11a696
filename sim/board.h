// The virtual board: the other end of every wire of the service. It shares no code with the service, not even a
// constant.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/base/event.h"
#include "sim/base/options.h"

namespace bthal::sim {

// Owns its thread and everything it opened. All methods may be called from any thread.
class Board {
 public:
  explicit Board(BoardOptions options);
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;
  ~Board();  // stops

  // Furnishes the root and starts playing. False with a line that says what to do in `error`.
  bool Start(std::string* error);
  void Stop();

  // Everything that happened so far, or from entry `from` on.
  std::vector<JournalEntry> Journal(size_t from = 0) const;
  // The command packets received whole, without type byte, in order.
  std::vector<std::vector<uint8_t>> Commands() const;
  // Waits until `done` holds of the journal or `timeout` has passed; returns whether it holds.
  bool WaitFor(const std::function<bool(const std::vector<JournalEntry>&)>& done,
               std::chrono::milliseconds timeout) const;
  // Called on the board's thread for every entry, from the next one on; empty: nobody.
  void SetObserver(std::function<void(const JournalEntry&)> observer);

  // Sends one packet, or raw bytes as they are, to the host as soon as the board's thread gets to it; nothing while the
  // power is off.
  void SendPacket(uint8_t packet_type, const std::vector<uint8_t>& packet);
  void SendRaw(const std::vector<uint8_t>& bytes);
  // Adds a scripted fault; false with the reason in `error` if it cannot be understood.
  bool AddFault(const std::string& fault, std::string* error);
  void ClearFaults();
  // The coexistence driver's event: 4 bytes as they are.
  void SendCoexEvent(const std::vector<uint8_t>& bytes);
  // Lets the Thread radio send `count` frames with payloads of `min_size` to `max_size` bytes, as fast as the host
  // takes them. ThreadPayload tells what frame `number`, counted from 0, carries: its number in 32 bits as far as that
  // fits, then bytes that count up.
  void StreamThreadFrames(uint32_t count, uint16_t min_size, uint16_t max_size);
  static std::vector<uint8_t> ThreadPayload(uint32_t number, uint16_t min_size, uint16_t max_size);
  // Bytes for the host that it has not taken yet, as of the board's last look.
  size_t WaitingForHost() const;
  // Closes the controller's side of the UART (the host reads end of file) or of the coexistence device. Whoever opens
  // the path afterwards finds a fresh one.
  void HangUpUart();
  void HangUpCoex();
  // With a sensor hub: it hangs up, forgets everything but the power, and is away for so long.
  void RestartHub(std::chrono::milliseconds away);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace bthal::sim
