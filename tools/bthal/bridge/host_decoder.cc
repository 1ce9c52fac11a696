#include "bthal/bridge/host_decoder.h"

#include "bthal/hci/codes.h"
#include "bthal/hci/framing.h"

namespace bthal::tool {

bool HostSends(uint8_t kind) { return kind == kCommand || kind == kAclData || kind == kScoData || kind == kIsoData; }

bool HostDecoder::Decode(std::span<const uint8_t> bytes) {
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  std::span<const uint8_t> left = pending_;
  while (!left.empty()) {
    const uint8_t kind = left[0];
    if (!HostSends(kind)) {
      bad_type_ = kind;
      return false;
    }
    const std::span<const uint8_t> packet = left.subspan(1);
    const size_t header = HeaderSize(kind);
    if (packet.size() < header) break;
    const size_t size = header + SaidLength(kind, packet);
    if (packet.size() < size) break;
    on_packet_(kind, packet.first(size));
    left = packet.subspan(size);
  }
  pending_.erase(pending_.begin(), pending_.end() - static_cast<ptrdiff_t>(left.size()));
  return true;
}

}  // namespace bthal::tool
