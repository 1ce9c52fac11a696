// Calling the peer, waiting for its answer, and answering its own calls.
#include <algorithm>
#include <utility>

#include "connection/connection.h"
#include "object.h"
#include "process.h"
#include "transaction.h"

namespace bthal::binder {
namespace {

struct Served {
  const Connection* connection;
  uint64_t call;
};

// What the calling thread is serving, innermost last.
std::vector<Served>& ServedByThisThread() {
  thread_local std::vector<Served> served;
  return served;
}

}  // namespace

uint64_t ServedCallOf(const Connection* connection) {
  const auto& served = ServedByThisThread();
  const auto found = std::find_if(served.rbegin(), served.rend(),
                                  [&](const Served& candidate) { return candidate.connection == connection; });
  return found == served.rend() ? 0 : found->call;
}

void Job::Run() {
  if (call.has_value()) {
    connection->Serve(std::move(*call));
  } else {
    connection->ServeInOrder();
  }
}

binder_status_t Connection::Call(uint64_t target, int32_t code, AParcel* in, int descriptor, ParcelPtr* out) {
  std::optional<Incoming> reply;
  Waiter waiter({&reply, 1});
  const uint64_t nested = ServedCallOf(this);
  if (!Enter(&waiter, nested, nullptr)) return STATUS_DEAD_OBJECT;
  Header header{};
  header.type = MessageType::kCall;
  header.call = waiter.call;
  header.target = target;
  header.nested = nested;
  header.code = code;
  binder_status_t status = Send(waiter.way, header, in, descriptor);
  {
    std::vector<ndk::SpAIBinder> released;  // destroyed without the lock
    Lock lock(mutex_);
    if (status == STATUS_OK && !Await(lock, &waiter)) status = STATUS_DEAD_OBJECT;
    Leave(&waiter, &released);
  }
  if (status == STATUS_OK) status = reply->header.code;
  if (status == STATUS_OK) *out = std::move(reply->parcel);
  return status;
}

// Gives the waiter's calls, which are those of `run` unless that is null, their numbers and their way. False when none
// is to be made.
bool Connection::Enter(Waiter* waiter, uint64_t nested, CallRun* run) {
  const Lock lock(mutex_);
  if (ended_ || buried_ || (run != nullptr && run->abandoned)) return false;
  if (nested != 0) {
    // The thread that waits at the other end for the answer to the call that is served here reads answers only.
    waiter->way = Way::kAnswers;
  } else if (peer_stays_ && !std::exchange(express_busy_, true)) {
    waiter->way = Way::kExpressOut;
  }
  waiter->call = next_call_;
  next_call_ += waiter->replies.size();
  if (run != nullptr) run->last_call = next_call_ - 1;
  waiters_.push_back(waiter);
  return true;
}

void Connection::Leave(Waiter* waiter, std::vector<ndk::SpAIBinder>* released) {
  std::erase(waiters_, waiter);
  if (waiter->way == Way::kExpressOut) express_busy_ = false;
  WakeNextReader();
  DropGivenBack(released);
}

void Connection::WakeNextReader() {
  if (LaneOf(Way::kAnswers).reading || ended_) return;
  const auto asleep =
      std::find_if(waiters_.begin(), waiters_.end(), [](const Waiter* waiter) { return waiter->asleep; });
  if (asleep != waiters_.end()) (*asleep)->wake.notify_one();
}

// Returns false when the connection has ended without all answers.
bool Connection::Await(Lock& lock, Waiter* waiter) {
  std::vector<Job> jobs;
  Harvest harvest{&jobs};
  for (;;) {
    if (!waiter->calls.empty()) {
      Incoming call = std::move(waiter->calls.front());
      waiter->calls.erase(waiter->calls.begin());
      WakeNextReader();
      lock.unlock();
      Serve(std::move(call));
      lock.lock();
    } else if (waiter->missing == 0) {
      return true;
    } else if (ended_) {
      return false;
    } else if (LaneOf(Way::kAnswers).reading) {
      waiter->asleep = true;
      waiter->wake.wait(lock);
      waiter->asleep = false;
    } else {
      Read(lock, Way::kAnswers, true, &harvest);
      if (jobs.empty() && harvest.dropped.empty()) continue;
      lock.unlock();
      Process::Get().pool().Add(&jobs);
      harvest.dropped.clear();
      lock.lock();
    }
  }
}

void Connection::Serve(Incoming call) {
  {
    const Lock lock(mutex_);
    --queued_;
    queued_bytes_ -= call.parcel->data.size();
    // The answer would reach nobody, and what the call asks for may be meant for the peer's life only.
    if (buried_) return;
  }
  const ParcelPtr answer = NewParcel();
  Header header{};
  header.type = MessageType::kReply;
  header.call = call.header.call;
  header.code = Run(call, answer.get());
  const bool good = header.code == STATUS_OK;
  const binder_status_t sent = Send(Way::kAnswers, header, good ? answer.get() : nullptr, -1);
  if (sent == STATUS_OK || sent == STATUS_DEAD_OBJECT) return;
  // The answer cannot be sent, but that it cannot can.
  header.code = sent;
  Send(Way::kAnswers, header, nullptr, -1);
}

// What it calls back is made on this call's behalf.
binder_status_t Connection::Run(const Incoming& call, AParcel* answer) {
  ServedByThisThread().push_back({this, call.header.call});
  const binder_status_t status =
      Execute(call.target.get(), call.header.code, *call.parcel, call.descriptor.get(), answer);
  ServedByThisThread().pop_back();
  return status;
}

}  // namespace bthal::binder
