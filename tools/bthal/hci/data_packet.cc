#include "bthal/hci/data_packet.h"

#include <android-base/stringprintf.h>

#include "bthal/hci/codes.h"
#include "bthal/hci/framing.h"
#include "bthal/hci/hex.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Bytes = std::span<const uint8_t>;

const char* BoundaryWords(uint8_t kind, int flag) {
  static constexpr const char* kAcl[] = {"first, not flushable", "continuing", "first", "whole"};
  static constexpr const char* kIso[] = {"first", "continuing", "whole", "last"};
  static constexpr const char* kSco[] = {"correct", "possibly invalid", "no data", "partly lost"};
  return kind == kAclData ? kAcl[flag] : kind == kIsoData ? kIso[flag] : kSco[flag];
}

}  // namespace

std::string FieldLine(int depth, const std::string& name, const std::string& text) {
  constexpr int kNameWidth = 36;
  const std::string head(2 * static_cast<size_t>(depth), ' ');
  if (text.empty()) return head + name;
  return StringPrintf("%s%-*s  %s", head.c_str(), kNameWidth - 2 * depth, name.c_str(), text.c_str());
}

std::string DataWords(uint8_t kind, Bytes packet) {
  if (HeaderSize(kind) == 0) return StringPrintf("%zu bytes", packet.size());
  if (packet.size() < HeaderSize(kind)) return kind == kThreadData ? "cut frame" : "cut packet";
  const std::string problem = FramingProblem(kind, packet);
  const size_t length = packet.size() - HeaderSize(kind);
  std::string text = StringPrintf("handle 0x%03X, %zu bytes", Le16(packet, 0) & 0x0FFF, length);
  if (kind == kThreadData) text = StringPrintf("frame of %zu bytes", length);
  return problem.empty() ? text : text + " (" + problem + ")";
}

std::vector<std::string> DataFields(uint8_t kind, Bytes packet) {
  std::vector<std::string> lines;
  if (HeaderSize(kind) == 0 || packet.size() < HeaderSize(kind)) return {FieldLine(0, "bytes", Hex(packet))};
  if (kind != kThreadData) {
    const int flags = packet[1] >> 4;
    lines.push_back(FieldLine(0, "connection_handle", StringPrintf("0x%03X", Le16(packet, 0) & 0x0FFF)));
    lines.push_back(
        FieldLine(0, kind == kScoData ? "packet_status" : "packet_boundary", BoundaryWords(kind, flags & 3)));
    if (kind == kAclData) lines.push_back(FieldLine(0, "broadcast", std::to_string(flags >> 2)));
    if (kind == kIsoData) lines.push_back(FieldLine(0, "time_stamp", (flags & 4) != 0 ? "there" : "none"));
  }
  lines.push_back(FieldLine(0, "length", std::to_string(SaidLength(kind, packet))));
  lines.push_back(FieldLine(0, "data", Hex(packet.subspan(HeaderSize(kind)))));
  return lines;
}

}  // namespace bthal::tool
