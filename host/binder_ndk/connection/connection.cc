#define LOG_TAG "binder.connection"

#include "connection/connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include <android-base/logging.h>

#include "object.h"
#include "process.h"
#include "socket.h"

namespace bthal::binder {
namespace {

// A peer has no more calls under way than it has threads, unless it means ill.
constexpr size_t kMaxQueuedCalls = 256;
constexpr size_t kMaxQueuedBytes = 4 * kMaxBodyBytes;

// Ten times a second at most: whoever misbehaves may come again at once.
void SayClosing(const char* why) {
  constexpr unsigned kMostOfASecond = 10;
  static std::mutex mutex;
  static std::chrono::steady_clock::time_point second;
  static unsigned said = 0;
  static unsigned left_out = 0;
  const std::lock_guard lock(mutex);
  const auto now = std::chrono::steady_clock::now();
  if (now >= second + std::chrono::seconds(1)) {
    second = now;
    said = 0;
  }
  if (said == kMostOfASecond) {
    ++left_out;
    return;
  }
  ++said;
  const std::string others = left_out == 0 ? "" : "; " + std::to_string(left_out) + " others since this was last said";
  left_out = 0;
  LOG(WARNING) << "closing the connection to a process: " << why << others;
}

}  // namespace

Connection::Connection(uint64_t id, Sockets sockets) : id_(id) {
  for (size_t i = 0; i < lanes_.size(); ++i) lanes_[i].Set(std::move(sockets[i]));
}

bool Connection::HasPeer() const {
  pollfd hang_up{fd(), POLLRDHUP, 0};
  return alive() && poll(&hang_up, 1, 0) == 0;
}

void Connection::OnReadable(std::vector<Job>* jobs) {
  Harvest harvest{jobs};
  Lock lock(mutex_);
  Lane& lane = LaneOf(Way::kCalls);
  if (lane.reading) {
    lane.more_came = true;
    return;
  }
  if (ended_) return;
  while (Read(lock, Way::kCalls, false, &harvest)) continue;
}

// Receives once and gives everybody what is theirs. Returns whether there may be more to receive at once.
bool Connection::Read(Lock& lock, Way way, bool wait, Harvest* harvest) {
  Lane& lane = LaneOf(way);
  lane.reading = true;
  lane.more_came = false;
  lock.unlock();
  const MessageReader::Outcome outcome = lane.reader.Receive(fd(way), wait, &lane.messages);
  lock.lock();
  lane.reading = false;
  bool good = true;
  for (Message& message : lane.messages) {
    good = good && !ended_ && Deliver(way, std::move(message), harvest);
  }
  lane.messages.clear();
  if (ended_) return false;
  if (!good) Close("a message that makes no sense");
  if (outcome == MessageReader::Outcome::kMalformed) Close("a malformed message");
  if (!good || outcome == MessageReader::Outcome::kMalformed || outcome == MessageReader::Outcome::kEnd) {
    End();
    return false;
  }
  return outcome == MessageReader::Outcome::kMore || lane.more_came;
}

bool Connection::Deliver(Way way, Message message, Harvest* harvest) {
  const Header& header = message.header;
  if (header.type == MessageType::kConnect) return TakeSocket(std::move(message.descriptor));
  // Nothing else comes before all sockets are there.
  if (fd(kAllWays[std::size(kAllWays) - 1]) < 0) return false;
  if (header.type == MessageType::kExpress) return way == Way::kAnswers && !std::exchange(peer_stays_, true);
  if (header.type == MessageType::kRelease) return way == Way::kCalls && DeliverRelease(header, harvest);
  if (header.type == MessageType::kSkip) {
    skipped_to_ = std::max(skipped_to_, header.call);
    return way == Way::kAnswers;
  }
  Incoming incoming;
  bool good = FindObjects(&message, &incoming);
  if (good && incoming.header.type == MessageType::kReply) {
    good = way == Way::kAnswers && DeliverReply(&incoming);
  } else if (good) {
    good = DeliverCall(way, &incoming, harvest);
  }
  if (incoming.parcel != nullptr) harvest->dropped.push_back(std::move(incoming));
  return good;
}

// They come in the order of their ways.
bool Connection::TakeSocket(android::base::unique_fd socket) {
  const auto* const missing =
      std::find_if(std::begin(kAllWays), std::end(kAllWays), [&](Way way) { return fd(way) < 0; });
  if (missing == std::end(kAllWays) || !IsStreamSocket(socket.get())) return false;
  LaneOf(*missing).Set(std::move(socket));
  // A close that came in between has shut down the others only.
  if (!alive()) ShutDown();
  return buried_ || Process::Get().WatchHangUp(*this, *missing);
}

bool Connection::DeliverReply(Incoming* reply) {
  Waiter* waiter = FindWaiter(reply->header.call);
  if (waiter == nullptr) return false;
  std::optional<Incoming>& place = waiter->replies[reply->header.call - waiter->call];
  if (place.has_value()) return false;
  place = std::move(*reply);
  if (--waiter->missing == 0) waiter->wake.notify_one();
  return true;
}

bool Connection::DeliverCall(Way way, Incoming* call, Harvest* harvest) {
  if ((call->header.nested != 0) != (way == Way::kAnswers)) return false;
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
  if ((call->header.flags & kInOrder) != 0) return DeliverInOrder(call, harvest);
  const uint64_t nested = call->header.nested;
  Waiter* waiter = nested == 0 ? nullptr : FindWaiter(nested);
  if (waiter != nullptr && !waiter->replies[nested - waiter->call].has_value()) {
    waiter->calls.push_back(std::move(*call));
    waiter->wake.notify_one();
  } else {
    harvest->jobs->push_back({shared_from_this(), std::move(*call)});
  }
  return true;
}

bool Connection::DeliverInOrder(Incoming* call, Harvest* harvest) {
  in_order_.push_back(std::move(*call));
  if (!std::exchange(serving_in_order_, true)) harvest->jobs->push_back({shared_from_this(), std::nullopt});
  return true;
}

bool Connection::DeliverRelease(const Header& header, Harvest* harvest) {
  if (buried_) return true;
  const auto found = exports_.find(header.target);
  if (found == exports_.end() || header.call == 0 || header.call > found->second.references) return false;
  found->second.references -= header.call;
  if (found->second.references != 0) return true;
  export_ids_.erase(found->second.object.get());
  found->second.given_back_before = next_call_;
  ++given_back_;
  DropGivenBack(&harvest->released);
  return true;
}

Connection::Waiter* Connection::FindWaiter(uint64_t call) {
  const auto found = std::find_if(waiters_.begin(), waiters_.end(),
                                  [&](const Waiter* waiter) { return call - waiter->call < waiter->replies.size(); });
  return found == waiters_.end() ? nullptr : *found;
}

// Nothing more will be read: whoever waits, waits in vain.
void Connection::End() {
  alive_ = false;
  ended_ = true;
  ShutDown();
  for (Waiter* waiter : waiters_) waiter->wake.notify_one();
}

// Whoever reads is woken, and the watching thread learns of the end, whichever socket it began with.
void Connection::ShutDown() {
  for (const Way way : kAllWays) {
    if (fd(way) >= 0) shutdown(fd(way), SHUT_RDWR);
  }
}

void Connection::Close(const char* why) {
  if (!alive_.exchange(false)) return;
  SayClosing(why);
  ShutDown();
}

}  // namespace bthal::binder
