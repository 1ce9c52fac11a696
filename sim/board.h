// The virtual board: the other end of every wire of the service. It shares no code with the service, not even a
// constant.
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
  kPowerOn,  // the power switch was written; value: 1 if that changed anything
  kPowerOff,
  kHostSpeed,      // value: the terminal speed the host set, bit/s, noticed when the next bytes pass
  kSpeed,          // value: the controller's own new speed, bit/s
  kReceived,       // packet_type and bytes of a whole packet from the host; value: its length
  kSent,           // packet_type (0: raw bytes) and bytes of a packet that has left for the host; value: its length
  kLostBytes,      // value: how many bytes were lost; text: why (speed mismatch, asleep, off, deaf)
  kProtocolError,  // text: what the host did wrong (order or sum of patch records, ...)
  kWakeLine,       // value: 0 or 1
  kLpmDriver,      // value: 0 or 1
  kWakeLock,       // text: name acquired
  kWakeUnlock,     // text: name released
  kUartDebug,      // text: what was written to the UART control node
  kCoexMessage,    // bytes of one message to the coexistence driver
  kPatchRecord,    // value: records so far, total: records in the file
  kPatchLaunched,  // text: the image's name, which is the file's
  kBooted,         // the launched patch (or the ROM after power-on) answers from now on
  kSleepModeSet,
  kFault,  // text: the scripted fault that struck
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
  bool pace = false;       // deliver bytes at the real bit rate
  bool only_coex = false;  // play nothing but /dev/wbrc
  bool furnish = true;     // also make configuration, battery, device tree and patch files
  std::string backend;     // "unix:PATH" of an H4 controller emulator for the standard commands; empty: our own
  std::vector<std::string> faults;  // see ParseFault in sim/faults.h for the language

  bool check_patch = true;  // patch records must be of the board's own make: order, sum and number are checked
  bool thread_echo = true;  // the Thread radio sends each payload back
  // From the answer to Launch RAM the patch boots for so long, and hears nothing.
  std::chrono::milliseconds patch_boots_in{100};
  // With sleep mode set, the wake line must be low for so long before the controller no longer hears.
  std::chrono::milliseconds falls_asleep_after{100};
  // The journal forgets its older half beyond so many entries, and the bytes of its oldest data packets (not their
  // lengths) beyond so many bytes of them.
  size_t journal_entries = 2'000'000;
  size_t journal_data_bytes = size_t{256} * 1024 * 1024;
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

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace bthal::sim
