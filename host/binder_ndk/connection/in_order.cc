// Calls that are made together, and served one after the other.
#include <string.h>

#include <cstddef>

#include "connection/connection.h"
#include "transaction.h"

namespace bthal::binder {
namespace {

// Answers are sent together up to here.
constexpr size_t kMaxHeldBytes = size_t{16} * 1024;

void Append(const Header& header, const AParcel& body, std::vector<uint8_t>* messages) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
  messages->insert(messages->end(), bytes, bytes + sizeof(header));
  messages->insert(messages->end(), body.data.begin(), body.data.end());
}

}  // namespace

bool Connection::Add(uint64_t target, int32_t code, const AParcel& in, CallRun* run) {
  if (!in.objects.empty() || in.data.size() > kMaxBodyBytes) return false;
  Header header{};
  header.type = MessageType::kCall;
  header.size = static_cast<uint32_t>(in.data.size());
  header.target = target;
  header.code = code;
  header.flags = kInOrder;
  run->starts.push_back(run->messages.size());
  Append(header, in, &run->messages);
  return true;
}

void Connection::Call(CallRun* run) {
  run->replies.clear();
  run->replies.resize(run->starts.size());
  Waiter waiter(run->replies);
  if (!Enter(&waiter, 0, run)) return;
  uint64_t number = waiter.call;
  for (const size_t start : run->starts) {
    memcpy(run->messages.data() + start + offsetof(Header, call), &number, sizeof(number));
    ++number;
  }
  iovec all{run->messages.data(), run->messages.size()};
  const bool written = Write(waiter.way, &all, 1, -1, true) == STATUS_OK;
  std::vector<ndk::SpAIBinder> released;  // destroyed without the lock
  Lock lock(mutex_);
  if (written) Await(lock, &waiter);
  Leave(&waiter, &released);
}

void Connection::Abandon(CallRun* run) {
  Header header{};
  header.type = MessageType::kSkip;
  {
    const Lock lock(mutex_);
    run->abandoned = true;
    header.call = run->last_call;
  }
  if (header.call != 0) Send(Way::kAnswers, header, nullptr, -1);
}

void Connection::ServeInOrder() {
  // A thread serves one connection's at a time, and calls nothing from within that comes here.
  thread_local std::vector<Incoming> calls;
  thread_local std::vector<uint8_t> answers;
  while (TakeInOrder(&calls)) {
    for (const Incoming& call : calls) {
      bool skipped = false;
      if (!MayBegin(call, &skipped)) break;
      const ParcelPtr answer = NewParcel();
      Header header{};
      header.type = MessageType::kReply;
      header.call = call.header.call;
      header.code = skipped ? STATUS_INVALID_OPERATION : Run(call, answer.get());
      // No answer in order gives objects.
      if (!answer->objects.empty() || answer->data.size() > kMaxBodyBytes) header.code = STATUS_FAILED_TRANSACTION;
      if (header.code != STATUS_OK) answer->data.clear();
      header.size = static_cast<uint32_t>(answer->data.size());
      Append(header, *answer, &answers);
      if (answers.size() > kMaxHeldBytes) SendAnswers(&answers);
    }
    calls.clear();
    SendAnswers(&answers);
  }
}

// All that have come; false when there are none, and this thread's work is done.
bool Connection::TakeInOrder(std::vector<Incoming>* calls) {
  const Lock lock(mutex_);
  calls->swap(in_order_);
  queued_ -= calls->size();
  for (const Incoming& call : *calls) queued_bytes_ -= call.parcel->data.size();
  if (calls->empty()) serving_in_order_ = false;
  return !calls->empty();
}

// False when the peer is gone: the answer would reach nobody.
bool Connection::MayBegin(const Incoming& call, bool* skipped) {
  const Lock lock(mutex_);
  *skipped = call.header.call <= skipped_to_;
  return !buried_;
}

void Connection::SendAnswers(std::vector<uint8_t>* answers) {
  iovec all{answers->data(), answers->size()};
  if (!answers->empty()) Write(Way::kAnswers, &all, 1, -1, false);
  answers->clear();
}

}  // namespace bthal::binder
