// Calling the peer, waiting for its answer, and answering its own calls.
#include <algorithm>
#include <utility>

#include "connection.h"
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

binder_status_t Connection::Call(uint64_t target, int32_t code, AParcel* in, int descriptor,
                                 std::unique_ptr<AParcel>* out) {
  Waiter waiter;
  {
    const Lock lock(mutex_);
    if (ended_ || buried_) return STATUS_DEAD_OBJECT;
    waiter.call = next_call_++;
    waiters_.push_back(&waiter);
    Enter(&waiter);
  }
  Header header{};
  header.type = MessageType::kCall;
  header.call = waiter.call;
  header.target = target;
  header.nested = ServedCallOf(this);
  header.code = code;
  binder_status_t status = Send(header, in, descriptor);
  Incoming reply{};
  if (status == STATUS_OK && !Await(&waiter, &reply)) status = STATUS_DEAD_OBJECT;
  {
    const Lock lock(mutex_);
    Leave(&waiter);
    std::erase(waiters_, &waiter);
  }
  if (status == STATUS_OK) status = reply.header.code;
  if (status == STATUS_OK) *out = std::move(reply.parcel);
  return status;
}

// From now on the waiter, not the pool, reads.
void Connection::Enter(Waiter* waiter) {
  waiter->entered = true;
  if (entered_++ == 0) Process::Get().pool().Pause(*this);
}

void Connection::Leave(Waiter* waiter) {
  if (!std::exchange(waiter->entered, false)) return;
  if (--entered_ == 0) Process::Get().pool().Resume(*this);
  WakeNextReader();
}

void Connection::WakeNextReader() {
  if (reading_ || ended_) return;
  const auto asleep =
      std::find_if(waiters_.begin(), waiters_.end(), [](const Waiter* waiter) { return waiter->asleep; });
  if (asleep != waiters_.end()) (*asleep)->wake.notify_one();
}

// Returns false when the connection has ended without an answer.
bool Connection::Await(Waiter* waiter, Incoming* reply) {
  Lock lock(mutex_);
  for (;;) {
    if (!waiter->inbox.empty()) {
      Incoming incoming = std::move(waiter->inbox.front());
      waiter->inbox.pop_front();
      if (incoming.header.type == MessageType::kReply) {
        *reply = std::move(incoming);
        return true;
      }
      Leave(waiter);
      lock.unlock();
      Serve(std::move(incoming));
      lock.lock();
      Enter(waiter);
    } else if (ended_) {
      return false;
    } else if (reading_) {
      waiter->asleep = true;
      waiter->wake.wait(lock);
      waiter->asleep = false;
    } else {
      Harvest harvest;
      Read(lock, true, &harvest);
      lock.unlock();
      Process::Get().pool().Add(std::move(harvest.jobs));
      harvest = {};
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
  AParcel answer;
  ServedByThisThread().push_back({this, call.header.call});
  Header header{};
  header.type = MessageType::kReply;
  header.call = call.header.call;
  header.code = Execute(call.target.get(), call.header.code, *call.parcel, call.descriptor.get(), &answer);
  ServedByThisThread().pop_back();
  const bool good = header.code == STATUS_OK;
  const binder_status_t sent = Send(header, good ? &answer : nullptr, -1);
  if (sent == STATUS_OK || sent == STATUS_DEAD_OBJECT) return;
  // The answer cannot be sent, but that it cannot can.
  header.code = sent;
  Send(header, nullptr, -1);
}

}  // namespace bthal::binder
