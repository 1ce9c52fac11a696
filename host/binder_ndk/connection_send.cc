// Writing messages to the peer.
#include <vector>

#include "connection.h"
#include "object.h"
#include "process.h"

namespace bthal::binder {
namespace {

// A peer that leaves so much unread does not want it. (One message more may have been begun before.)
constexpr size_t kMaxUnreadBytes = kMaxBodyBytes;

}  // namespace

// Does not wait for the peer. STATUS_DEAD_OBJECT: it is gone. STATUS_FAILED_TRANSACTION: too large; nothing was sent
// then.
binder_status_t Connection::Send(Header header, AParcel* parcel, int descriptor) {
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
  return Write(parts, std::size(parts), descriptor, header.type == MessageType::kCall);
}

binder_status_t Connection::Write(iovec* parts, size_t count, int descriptor, bool awaited) {
  const std::lock_guard lock(write_mutex_);
  if (!alive()) return STATUS_DEAD_OBJECT;
  if (!awaited && outbox_.unawaited_bytes() >= kMaxUnreadBytes) {
    Close("it does not read its answers");
    return STATUS_DEAD_OBJECT;
  }
  const bool all_sent_before = outbox_.empty();
  if (!outbox_.Send(fd(), parts, count, descriptor, awaited)) {
    Close("it does not take what is written to it");
    return STATUS_DEAD_OBJECT;
  }
  if (all_sent_before && !outbox_.empty()) Process::Get().AwaitRoom(*this, true);
  return STATUS_OK;
}

void Connection::OnRoom() {
  const std::lock_guard lock(write_mutex_);
  if (!outbox_.Flush(fd())) Close("it does not take what is written to it");
  if (outbox_.empty() || !alive()) Process::Get().AwaitRoom(*this, false);
}

}  // namespace bthal::binder
