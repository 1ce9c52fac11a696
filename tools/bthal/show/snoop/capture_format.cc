#include "bthal/show/snoop/capture_format.h"

#include "bthal/hci/codes.h"

namespace bthal::tool {
namespace {

constexpr uint64_t kUsPerSecond = 1000000;
constexpr uint32_t kBtsnoopVersion = 1;
constexpr uint32_t kBtsnoopH4 = 1002;
constexpr uint32_t kFromController = 1;
constexpr uint32_t kCommandOrEvent = 2;

constexpr uint32_t kPcapMagic = 0xA1B2C3D4;  // times in microseconds
constexpr uint32_t kPcapVersion = 0x00020004;
constexpr uint32_t kPcapSnapLength = 262144;
constexpr uint32_t kPcapH4WithDirection = 201;
constexpr size_t kPcapDirectionSize = 4;

// Most significant byte first: both formats are read so.
void Put32(std::string& out, uint64_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(value >> shift & 0xFF);
}

}  // namespace

// btsnoop: "btsnoop" 00 | version (4) | datalink (4)
// pcap:    magic (4) | version (2 + 2) | zone (4) | accuracy (4) | longest packet (4) | datalink (4)
std::string CaptureHeader(CaptureFormat format) {
  std::string out;
  if (format == CaptureFormat::kBtsnoop) {
    out.assign("btsnoop\0", 8);
    for (const uint32_t word : {kBtsnoopVersion, kBtsnoopH4}) Put32(out, word);
  } else {
    for (const uint32_t word : {kPcapMagic, kPcapVersion, 0U, 0U, kPcapSnapLength, kPcapH4WithDirection}) {
      Put32(out, word);
    }
  }
  return out;
}

// btsnoop: original length (4) | included length (4) | flags (4) | drops (4) | time (8) | type (1) | packet
// pcap:    seconds (4) | microseconds (4) | included length (4) | original length (4) | direction (4) | type (1) |
// packet
std::string CaptureRecord(CaptureFormat format, const SnoopRecord& record) {
  const size_t included = record.packet.size() + 1;
  std::string out;
  if (format == CaptureFormat::kBtsnoop) {
    const bool is_message = record.kind == kCommand || record.kind == kEvent;
    const uint64_t time = static_cast<uint64_t>(record.unix_us) + kBtsnoopEpochUs;
    Put32(out, record.original_length);
    Put32(out, included);
    Put32(out, (record.from_controller ? kFromController : 0) | (is_message ? kCommandOrEvent : 0));
    Put32(out, 0);
    Put32(out, time >> 32);
    Put32(out, time);
  } else {
    const auto time = static_cast<uint64_t>(record.unix_us);
    Put32(out, time / kUsPerSecond);
    Put32(out, time % kUsPerSecond);
    Put32(out, included + kPcapDirectionSize);
    Put32(out, record.original_length + kPcapDirectionSize);
    Put32(out, record.from_controller ? kFromController : 0);
  }
  out += static_cast<char>(record.kind);
  out.append(record.packet.begin(), record.packet.end());
  return out;
}

}  // namespace bthal::tool
