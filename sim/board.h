// The virtual board: the other end of every wire of the service. It shares no code with the service, not even a constant.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bthal::sim {

// What happened at the board, in the order in which the board saw it.
enum class WireEvent {
  kPowerOn,
  kPowerOff,
  kHostSpeed,    // value: the terminal speed the host set, bit/s
  kSpeed,        // value: the controller's own new speed, bit/s
  kReceived,     // packet_type and bytes of a whole packet from the host
  kSent,         // packet_type and bytes of a whole packet to the host
  kLostBytes,    // value: how many bytes were lost; text: why (speed mismatch, asleep, off, deaf)
  kProtocolError,  // text: what the host did wrong (order or sum of patch records, ...)
  kWakeLine,     // value: 0 or 1
  kLpmDriver,    // value: 0 or 1
  kWakeLock,     // text: name acquired
  kWakeUnlock,   // text: name released
  kUartDebug,    // text: what was written to the UART control node
  kCoexMessage,  // bytes of one message to the coexistence driver
  kPatchRecord,  // value: records so far, total: records in the file
  kPatchLaunched,
  kBooted,       // the launched patch (or the ROM after power-on) answers from now on
  kSleepModeSet,
  kFault,        // text: the scripted fault that struck
};

const char* ToString(WireEvent event);

struct JournalEntry {
  std::chrono::steady_clock::time_point time;
  WireEvent event;
  uint8_t packet_type = 0;
  std::vector<uint8_t> bytes;
  uint64_t value = 0;
  uint64_t total = 0;
  std::string text;
};

struct BoardOptions {
  std::string root;  // the device root to furnish; created if absent
  uint8_t chip_id = 188;
  bool otp_written = false;
  std::string local_name = "QNL188 Virtual Controller";
  std::string address = "22:22:5A:01:02:03";  // until another is written
  bool provision_address = true;              // the device tree carries `provisioned_address`
  std::string provisioned_address = "AA:BB:CC:11:22:33";
  size_t patch_records = 240;
  bool pace = false;               // deliver bytes at the real bit rate
  bool only_coex = false;          // play nothing but /dev/wbrc
  bool furnish = true;             // also make configuration, battery, device tree and patch files
  std::string backend;             // "unix:PATH" of an H4 controller emulator for the standard commands; empty: our own
  std::vector<std::string> faults;  // see ParseFault in sim/faults.h for the language
};

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

  // Sends one packet, or raw bytes as they are, to the host as soon as the board's thread gets to it.
  void SendPacket(uint8_t packet_type, const std::vector<uint8_t>& packet);
  void SendRaw(const std::vector<uint8_t>& bytes);
  // Adds a scripted fault; false with the reason in `error` if it cannot be understood.
  bool AddFault(const std::string& fault, std::string* error);
  void ClearFaults();
  // The coexistence driver's event: 4 bytes as they are.
  void SendCoexEvent(const std::vector<uint8_t>& bytes);
  // Closes the controller's side of the UART (the host reads end of file) or of the coexistence device.
  void HangUpUart();
  void HangUpCoex();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace bthal::sim
