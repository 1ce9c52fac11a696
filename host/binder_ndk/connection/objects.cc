// What the two processes refer to of one another's objects.
#include <string.h>

#include <algorithm>
#include <utility>

#include "connection/connection.h"
#include "object.h"
#include "process.h"

namespace bthal::binder {

// Writes into the parcel's data what each object is to the peer, which refers to the local ones from now on.
binder_status_t Connection::MarkObjects(AParcel* parcel) {
  const Lock lock(mutex_);
  if (buried_) return STATUS_DEAD_OBJECT;
  for (const AParcel::Object& object : parcel->objects) {
    const RemoteObject* remote = object.binder.get()->AsRemote();
    // The peer has no connection to a third process that it could call.
    if (remote != nullptr && remote->connection().get() != this) return STATUS_INVALID_OPERATION;
  }
  for (const AParcel::Object& object : parcel->objects) {
    const RemoteObject* remote = object.binder.get()->AsRemote();
    const auto kind = static_cast<uint32_t>(remote == nullptr ? ObjectKind::kSenders : ObjectKind::kReceivers);
    const uint64_t id = remote == nullptr ? ExportId(object.binder.get()) : remote->id();
    memcpy(parcel->data.data() + object.offset + kObjectKindOffset, &kind, sizeof(kind));
    memcpy(parcel->data.data() + object.offset + kObjectIdOffset, &id, sizeof(id));
  }
  return STATUS_OK;
}

uint64_t Connection::ExportId(AIBinder* object) {
  const auto known = export_ids_.find(object);
  if (known != export_ids_.end()) {
    ++exports_.at(known->second).references;
    return known->second;
  }
  const uint64_t id = next_export_++;
  object->AddStrong();
  exports_.emplace(id, Export{ndk::SpAIBinder(object), 1});
  export_ids_.emplace(object, id);
  return id;
}

// Turns a message into its parcel and objects; false when they make no sense. With the lock held: what it cannot use
// stays in `incoming` and goes without the lock.
bool Connection::FindObjects(Message* message, Incoming* incoming) {
  const size_t table_bytes = message->header.objects * sizeof(uint32_t);
  incoming->header = message->header;
  incoming->descriptor = std::move(message->descriptor);
  incoming->parcel = std::move(message->body);
  if (message->header.objects == 0) return true;
  AParcel& parcel = *incoming->parcel;
  std::vector<uint32_t> offsets(message->header.objects);
  const size_t data_bytes = parcel.data.size() - table_bytes;
  memcpy(offsets.data(), parcel.data.data() + data_bytes, table_bytes);
  parcel.data.resize(data_bytes);
  size_t next_free = 0;
  for (const uint32_t offset : offsets) {
    if (offset < next_free || offset % 4 != 0 || offset > data_bytes) return false;
    parcel.position = offset;
    ndk::SpAIBinder object = FindObject(parcel);
    if (object.get() == nullptr) return false;
    parcel.objects.push_back({offset, std::move(object)});
    next_free = offset + kObjectDescriptorOffset;
  }
  parcel.position = 0;
  return true;
}

// The object laid out where the parcel stands, or null.
ndk::SpAIBinder Connection::FindObject(const AParcel& at_object) {
  if (at_object.data.size() - at_object.position < kObjectDescriptorOffset) return {};
  uint32_t kind = 0;
  uint64_t id = 0;
  memcpy(&kind, at_object.data.data() + at_object.position + kObjectKindOffset, sizeof(kind));
  memcpy(&id, at_object.data.data() + at_object.position + kObjectIdOffset, sizeof(id));
  if (kind == static_cast<uint32_t>(ObjectKind::kReceivers)) {
    const auto found = exports_.find(id);
    return found == exports_.end() ? ndk::SpAIBinder() : found->second.object;
  }
  if (kind != static_cast<uint32_t>(ObjectKind::kSenders)) return {};
  at_object.position += kObjectDescriptorOffset;
  std::string_view descriptor;
  if (!ReadText(at_object, &descriptor)) return {};
  RemoteObject*& proxy = proxies_[id];
  // A proxy whose last reference goes in this moment is replaced; it knows that it is no longer the one listed.
  if (proxy == nullptr || !proxy->TryAddStrong()) {
    proxy = new RemoteObject(shared_from_this(), id, std::string(descriptor));
  }
  ++proxy->received;
  return ndk::SpAIBinder(proxy);
}

void Connection::Forget(RemoteObject* proxy) {
  Header header{};
  header.type = MessageType::kRelease;
  header.target = proxy->id();
  {
    const Lock lock(mutex_);
    const auto listed = proxies_.find(proxy->id());
    if (listed != proxies_.end() && listed->second == proxy) proxies_.erase(listed);
    header.call = proxy->received;
    if (ended_ || buried_) return;
  }
  Send(Way::kCalls, header, nullptr, -1);
}

// What the peer no longer refers to may still be on its way home in an answer, because the reference is given back over
// the other socket: it stays until every call has returned that was under way then.
void Connection::DropGivenBack(std::vector<ndk::SpAIBinder>* released) {
  if (given_back_ == 0) return;
  uint64_t oldest = next_call_;
  for (const Waiter* waiter : waiters_) oldest = std::min(oldest, waiter->call);
  for (auto entry = exports_.begin(); entry != exports_.end();) {
    Export& exported = entry->second;
    const bool gone = exported.references == 0 && exported.given_back_before <= oldest;
    if (gone) released->push_back(std::move(exported.object));
    if (gone) --given_back_;
    entry = gone ? exports_.erase(entry) : std::next(entry);
  }
}

Estate Connection::OnHangUp() {
  Estate estate;
  std::vector<Incoming> unbegun;  // destroyed without the lock
  alive_ = false;
  ShutDown();
  for (Lane& lane : lanes_) {
    const std::lock_guard lock(lane.write_mutex);
    lane.outbox.Clear();
  }
  const Lock lock(mutex_);
  if (std::exchange(buried_, true)) return estate;
  in_order_.swap(unbegun);
  for (auto& [id, exported] : exports_) estate.held.push_back(std::move(exported.object));
  exports_.clear();
  export_ids_.clear();
  for (const auto& [id, proxy] : proxies_) {
    if (!proxy->TryAddStrong()) continue;
    estate.held.emplace_back(proxy);
    for (auto& link : proxy->TakeLinks()) estate.links.push_back(std::move(link));
  }
  return estate;
}

}  // namespace bthal::binder
