#define LOG_TAG "binder.connection"

#include "connection.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include <android-base/logging.h>

#include "object.h"
#include "process.h"

namespace bthal::binder {
namespace {

// A peer has no more calls under way than it has threads, unless it means ill.
constexpr size_t kMaxQueuedCalls = 256;
constexpr size_t kMaxQueuedBytes = 4 * kMaxBodyBytes;

}  // namespace

std::vector<Job> Connection::OnReadable() {
  Harvest harvest;
  Lock lock(mutex_);
  if (reading_) {
    more_came_ = true;
    return {};
  }
  // Whoever waits for an answer reads, and the pool is told again when none does.
  if (entered_ != 0 || ended_) return {};
  while (Read(lock, false, &harvest)) continue;
  WakeNextReader();
  lock.unlock();
  return std::move(harvest.jobs);
}

// Receives once and gives everybody what is theirs. Returns whether there may be more to receive at once.
bool Connection::Read(Lock& lock, bool wait, Harvest* harvest) {
  reading_ = true;
  more_came_ = false;
  lock.unlock();
  std::vector<Message> messages;
  const MessageReader::Outcome outcome = reader_.Receive(fd(), wait, &messages);
  lock.lock();
  reading_ = false;
  if (ended_) return false;
  for (Message& message : messages) {
    if (Deliver(std::move(message), harvest)) continue;
    Close("a message that makes no sense");
    End();
    return false;
  }
  if (outcome == MessageReader::Outcome::kMalformed) Close("a malformed message");
  if (outcome == MessageReader::Outcome::kMalformed || outcome == MessageReader::Outcome::kEnd) {
    End();
    return false;
  }
  return outcome == MessageReader::Outcome::kMore || more_came_;
}

bool Connection::Deliver(Message message, Harvest* harvest) {
  if (message.header.type == MessageType::kRelease) return DeliverRelease(message.header, harvest);
  Incoming incoming;
  bool good = FindObjects(&message, &incoming);
  if (good && message.header.type == MessageType::kReply) {
    good = DeliverReply(&incoming);
  } else if (good) {
    good = DeliverCall(&incoming, harvest);
  }
  if (incoming.parcel != nullptr) harvest->dropped.push_back(std::move(incoming));
  return good;
}

bool Connection::DeliverReply(Incoming* reply) {
  Waiter* waiter = FindWaiter(reply->header.call);
  if (waiter == nullptr || waiter->answered) return false;
  waiter->answered = true;
  waiter->inbox.push_back(std::move(*reply));
  waiter->wake.notify_one();
  return true;
}

bool Connection::DeliverCall(Incoming* call, Harvest* harvest) {
  // Nobody waits for the answer to a dead peer's call.
  if (buried_) return true;
  if (call->header.target != kServiceListId) {
    const auto found = exports_.find(call->header.target);
    if (found == exports_.end()) return false;
    call->target = found->second.object;
  }
  const size_t bytes = call->parcel->data.size();
  if (queued_ >= kMaxQueuedCalls || queued_bytes_ + bytes > kMaxQueuedBytes) return false;
  ++queued_;
  queued_bytes_ += bytes;
  Waiter* waiter = call->header.nested == 0 ? nullptr : FindWaiter(call->header.nested);
  if (waiter != nullptr && !waiter->answered) {
    waiter->inbox.push_back(std::move(*call));
    waiter->wake.notify_one();
  } else {
    harvest->jobs.push_back({shared_from_this(), std::move(*call)});
  }
  return true;
}

bool Connection::DeliverRelease(const Header& header, Harvest* harvest) {
  if (buried_) return true;
  const auto found = exports_.find(header.target);
  if (found == exports_.end() || header.call == 0 || header.call > found->second.references) return false;
  found->second.references -= header.call;
  if (found->second.references != 0) return true;
  export_ids_.erase(found->second.object.get());
  harvest->released.push_back(std::move(found->second.object));
  exports_.erase(found);
  return true;
}

Connection::Waiter* Connection::FindWaiter(uint64_t call) {
  const auto found =
      std::find_if(waiters_.begin(), waiters_.end(), [&](const Waiter* waiter) { return waiter->call == call; });
  return found == waiters_.end() ? nullptr : *found;
}

// Nothing more will be read: whoever waits, waits in vain.
void Connection::End() {
  alive_ = false;
  ended_ = true;
  for (Waiter* waiter : waiters_) waiter->wake.notify_one();
}

void Connection::Close(const char* why) {
  if (!alive_.exchange(false)) return;
  LOG(WARNING) << "closing the connection to a process: " << why;
  shutdown(fd(), SHUT_RDWR);
}

}  // namespace bthal::binder
