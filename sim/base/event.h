// What can happen at the board, and how it is noted down.
#pragma once

#include <chrono>
#include <cstdint>
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
  kFault,       // text: the scripted fault that struck
  kHubRequest,  // text: what the sensor hub was asked, but for single packets; value: the message's size
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

}  // namespace bthal::sim
