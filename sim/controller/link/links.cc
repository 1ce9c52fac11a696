#include "sim/controller/link/links.h"

#include <algorithm>
#include <utility>

namespace bthal::sim {

// Handles begin again where the numbers end that a packet has room for.
uint16_t Links::After(uint16_t handle) {
  constexpr uint16_t kLastHandle = 0x0EFF;
  return handle == kLastHandle ? kFirstHandle : static_cast<uint16_t>(handle + 1);
}

Link& Links::Add(LinkKind kind, const Bytes& peer) {
  while (links_.count(next_handle_) != 0) next_handle_ = After(next_handle_);
  const uint16_t handle = std::exchange(next_handle_, After(next_handle_));
  return links_.emplace(handle, Link{handle, kind, peer}).first->second;
}

void Links::Reset() {
  ++generation_;
  links_.clear();
  next_handle_ = kFirstHandle;
}

Link* Links::Find(uint16_t handle) {
  const auto found = links_.find(handle);
  return found == links_.end() ? nullptr : &found->second;
}

Link* Links::FindPeer(LinkKind kind, const Bytes& peer) {
  const auto found = std::find_if(links_.begin(), links_.end(), [&](const auto& entry) {
    return entry.second.kind == kind && entry.second.peer == peer;
  });
  return found == links_.end() ? nullptr : &found->second;
}

Answer Links::ForLink(const Bytes& parameters, Then then) {
  const uint16_t handle = GetLe16(parameters.data());
  if (Find(handle) == nullptr) return Answer::Status(kUnknownConnection);
  return Answer::Status(kSuccess, [this, handle, parameters, then = std::move(then)] {
    if (Link* link = Find(handle)) then(*link, parameters);
  });
}

Answer Links::OfLink(const Bytes& parameters, const Bytes& more) {
  const bool known = Find(GetLe16(parameters.data())) != nullptr;
  Bytes answer{known ? kSuccess : kUnknownConnection, parameters[0], parameters[1]};
  PutAll(answer, known ? more : Bytes(more.size(), 0));
  return Answer::Complete(answer);
}

}  // namespace bthal::sim
