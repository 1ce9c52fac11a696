#include "sim/controller/link/frames.h"

namespace bthal::sim {
namespace {

constexpr size_t kAclHeader = 4;
constexpr size_t kFrameHeader = 4;
constexpr unsigned kFirst = 0x2000;
constexpr unsigned kFragmentMask = 0x3000;
constexpr unsigned kContinues = 0x1000;

}  // namespace

std::optional<Frame> FrameAssembler::Feed(const Bytes& acl) {
  if ((GetLe16(acl.data()) & kFragmentMask) != kContinues) frame_.clear();
  PutAll(frame_, Part(acl, kAclHeader));
  if (frame_.size() < kFrameHeader || frame_.size() < kFrameHeader + GetLe16(frame_.data())) return std::nullopt;
  Frame whole{GetLe16(&frame_[2]), Part(frame_, kFrameHeader)};
  const bool fits = whole.payload.size() == GetLe16(frame_.data());
  frame_.clear();
  return fits ? std::optional(whole) : std::nullopt;
}

Bytes AclWithFrame(uint16_t handle, uint16_t channel, const Bytes& payload) {
  Bytes acl;
  Put16(acl, handle | kFirst);
  Put16(acl, static_cast<unsigned>(kFrameHeader + payload.size()));
  Put16(acl, static_cast<unsigned>(payload.size()));
  Put16(acl, channel);
  PutAll(acl, payload);
  return acl;
}

}  // namespace bthal::sim
