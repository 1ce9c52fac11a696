#include "bthal/show/snoop/btsnoop_reader.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "bthal/hci/words.h"
#include "bthal/show/snoop/capture_format.h"
#include "bthal/show/time_column.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;

// File: "btsnoop" 00 | version (4, big-endian) = 1 | datalink (4) = 1002, HCI UART
constexpr size_t kFileHeaderSize = 16;
constexpr std::array<uint8_t, kFileHeaderSize> kFileHeader = {'b', 't', 's', 'n', 'o', 'o', 'p',  0,
                                                              0,   0,   0,   1,   0,   0,   0x03, 0xEA};
// Record: original length (4) | included length (4) | flags (4) | drops (4) | time (8) | type (1) | packet
constexpr size_t kRecordHeaderSize = 24;
constexpr size_t kIncludedLengthAt = 4;
constexpr size_t kFlagsAt = 8;
constexpr size_t kTimeAt = 16;
constexpr uint32_t kFlagFromController = 1;
// The largest packet that HCI can carry is far below this; a length beyond it means that this is no record.
constexpr uint32_t kLargestRecord = 1 << 17;

uint32_t Be32(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]};
}

uint64_t Be64(const uint8_t* bytes) { return uint64_t{Be32(bytes)} << 32 | Be32(bytes + 4); }

}  // namespace

void BtsnoopReader::Feed(std::span<const uint8_t> bytes) {
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(at_));
  at_ = 0;
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

bool BtsnoopReader::ReadFileHeader() {
  if (header_read_) return true;
  if (pending() < kFileHeaderSize) return false;
  if (!std::equal(kFileHeader.begin(), kFileHeader.end(), buffer_.begin() + static_cast<ptrdiff_t>(at_))) {
    error_ = "not a btsnoop log of version 1 with H4 packets";
    return false;
  }
  at_ += kFileHeaderSize;
  offset_ += kFileHeaderSize;
  header_read_ = true;
  return true;
}

std::optional<SnoopRecord> BtsnoopReader::Next() {
  if (!error_.empty() || !ReadFileHeader() || pending() < kRecordHeaderSize) return std::nullopt;
  const uint8_t* header = buffer_.data() + at_;
  const uint32_t included = Be32(header + kIncludedLengthAt);
  if (included == 0 || included > kLargestRecord || Be32(header) < included) {
    error_ = StringPrintf("no record at offset %llu: lengths %u and %u", static_cast<unsigned long long>(offset_),
                          Be32(header), included);
    return std::nullopt;
  }
  if (pending() < kRecordHeaderSize + included) return std::nullopt;
  SnoopRecord record;
  record.original_length = Be32(header);
  record.from_controller = (Be32(header + kFlagsAt) & kFlagFromController) != 0;
  record.unix_us = static_cast<int64_t>(Be64(header + kTimeAt) - kBtsnoopEpochUs);
  record.kind = header[kRecordHeaderSize];
  record.packet.assign(header + kRecordHeaderSize + 1, header + kRecordHeaderSize + included);
  at_ += kRecordHeaderSize + included;
  offset_ += kRecordHeaderSize + included;
  return record;
}

std::string CountWords(std::span<const SnoopRecord> records) {
  std::string text;
  for (const uint8_t kind : {kCommand, kEvent, kAclData, kScoData, kIsoData}) {
    const auto count = std::ranges::count(records, kind, &SnoopRecord::kind);
    if (count == 0) continue;
    if (!text.empty()) text += ", ";
    const bool data = kind != kCommand && kind != kEvent;
    text += StringPrintf("%zd %s%s%s", static_cast<ssize_t>(count), KindWord(kind).c_str(), data ? " packet" : "",
                         count == 1 ? "" : "s");
  }
  return text.empty() ? "nothing" : text;
}

std::vector<std::string> FoldedSnoopLines(std::span<const SnoopRecord> records) {
  constexpr size_t kLongestRun = 3;
  const auto opcode_of = [](const SnoopRecord& record) {
    return record.kind == kCommand && record.packet.size() >= 2 ? Le16(record.packet, 0) : -1;
  };
  std::vector<std::string> lines;
  for (size_t at = 0; at < records.size();) {
    size_t end = at + 1;
    while (end < records.size() && opcode_of(records[at]) >= 0 && opcode_of(records[end]) == opcode_of(records[at])) {
      ++end;
    }
    lines.push_back(SnoopText({}, WallTime(records[at].unix_us) + "  ", records[at]));
    if (end - at > kLongestRun) {
      lines.push_back(StringPrintf("%15s    ... and %zu more of them\n", "", end - at - 1));
      at = end;
    } else {
      ++at;
    }
  }
  return lines;
}

std::string SnoopText(const PacketView& view, const std::string& time, const SnoopRecord& record) {
  return PacketText(view, time, record.from_controller ? Direction::kFromController : Direction::kToController,
                    record.kind, record.packet);
}

}  // namespace bthal::tool
