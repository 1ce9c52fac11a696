// Writing messages to the peer.
#include <vector>

#include "connection/connection.h"
#include "object.h"
#include "process.h"

namespace bthal::binder {
namespace {

// A peer that leaves so much unread does not want it. (One message more may have been begun before.)
constexpr size_t kMaxUnreadBytes = kMaxBodyBytes;

}  // namespace

// Does not wait for the peer. STATUS_DEAD_OBJECT: it is gone. STATUS_FAILED_TRANSACTION: too large; nothing was sent
// then.
binder_status_t Connection::Send(Way way, Header header, AParcel* parcel, int descriptor) {
  std::vector<uint32_t> offsets;
  if (parcel != nullptr) {
    const size_t table_bytes = parcel->objects.size() * sizeof(uint32_t);
    if (parcel->objects.size() > kMaxObjects || parcel->data.size() + table_bytes > kMaxBodyBytes) {
      return STATUS_FAILED_TRANSACTION;
    }
    if (!parcel->objects.empty()) {
      const binder_status_t marked = MarkObjects(parcel);
      if (marked != STATUS_OK) return marked;
      offsets.reserve(parcel->objects.size());
      for (const AParcel::Object& object : parcel->objects) offsets.push_back(object.offset);
    }
    header.objects = static_cast<uint16_t>(offsets.size());
    header.size = static_cast<uint32_t>(parcel->data.size() + table_bytes);
  }
  if (descriptor >= 0) header.flags = kHasDescriptor;
  iovec parts[] = {{&header, sizeof(header)},
                   {parcel == nullptr ? nullptr : parcel->data.data(), parcel == nullptr ? 0 : parcel->data.size()},
                   {offsets.data(), offsets.size() * sizeof(uint32_t)}};
  return Write(way, parts, std::size(parts), descriptor, header.type == MessageType::kCall);
}

binder_status_t Connection::Write(Way way, iovec* parts, size_t count, int descriptor, bool awaited) {
  Lane& lane = LaneOf(way);
  const std::lock_guard lock(lane.write_mutex);
  if (!alive()) return STATUS_DEAD_OBJECT;
  if (!awaited && lane.outbox.unawaited_bytes() >= kMaxUnreadBytes) {
    Close("it does not read its answers");
    return STATUS_DEAD_OBJECT;
  }
  const bool all_sent_before = lane.outbox.empty();
  if (!lane.outbox.Send(fd(way), parts, count, descriptor, awaited)) {
    Close("it does not take what is written to it");
    return STATUS_DEAD_OBJECT;
  }
  if (all_sent_before && !lane.outbox.empty()) Process::Get().AwaitRoom(*this, way, true);
  return STATUS_OK;
}

void Connection::OnRoom(Way way) {
  Lane& lane = LaneOf(way);
  const std::lock_guard lock(lane.write_mutex);
  if (!lane.outbox.Flush(fd(way))) Close("it does not take what is written to it");
  if (lane.outbox.empty() || !alive()) Process::Get().AwaitRoom(*this, way, false);
}

void Connection::Introduce(const Sockets& peers_ends) {
  Header header{};
  header.type = MessageType::kConnect;
  for (const auto& end : peers_ends) {
    if (end.get() >= 0) Send(Way::kCalls, header, nullptr, end.get());
  }
}

}  // namespace bthal::binder
