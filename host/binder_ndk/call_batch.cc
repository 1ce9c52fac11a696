#include <host/call_batch.h>

#include <memory>

#include "connection/connection.h"
#include "object.h"
#include "parcel.h"
#include "transaction.h"

namespace bthal::host {

struct CallBatch::Kept {
  std::mutex mutex;                                // guards connection: others may abandon what is sent
  std::shared_ptr<binder::Connection> connection;  // null while nothing is kept
  binder::CallRun run;
  std::vector<::ndk::ScopedAStatus> outcomes;
};

namespace {

// What a Keeping of this thread has set.
thread_local CallBatch::Kept* t_keeping = nullptr;
thread_local AIBinder* t_target = nullptr;

::ndk::ScopedAStatus OutcomeOf(const std::optional<binder::Incoming>& reply, bool abandoned) {
  if (!reply.has_value()) {
    return ::ndk::ScopedAStatus::fromStatus(abandoned ? STATUS_INVALID_OPERATION : STATUS_DEAD_OBJECT);
  }
  ::ndk::ScopedAStatus outcome;
  binder_status_t status = reply->header.code;
  if (status == STATUS_OK) status = AParcel_readStatusHeader(reply->parcel.get(), outcome.getR());
  return status == STATUS_OK ? std::move(outcome) : ::ndk::ScopedAStatus::fromStatus(status);
}

}  // namespace

CallBatch::CallBatch() : kept_(std::make_unique<Kept>()) {}
CallBatch::~CallBatch() = default;

CallBatch::Keeping::Keeping(CallBatch& batch, AIBinder* target) : batch_(batch), before_(batch.size()) {
  t_keeping = batch.kept_.get();
  t_target = target;
}

CallBatch::Keeping::~Keeping() { t_target = nullptr; }

size_t CallBatch::size() const { return kept_->run.starts.size(); }

const std::vector<::ndk::ScopedAStatus>& CallBatch::Send() {
  kept_->outcomes.clear();
  if (size() == 0) return kept_->outcomes;
  kept_->connection->Call(&kept_->run);
  bool abandoned = false;
  std::shared_ptr<binder::Connection> done;  // let go of without the lock
  {
    const std::lock_guard lock(kept_->mutex);
    abandoned = std::exchange(kept_->run.abandoned, false);
    kept_->run.last_call = 0;
    kept_->connection.swap(done);
  }
  for (const auto& reply : kept_->run.replies) kept_->outcomes.push_back(OutcomeOf(reply, abandoned));
  kept_->run.messages.clear();
  kept_->run.starts.clear();
  kept_->run.replies.clear();
  return kept_->outcomes;
}

void CallBatch::Abandon() {
  const std::lock_guard lock(kept_->mutex);
  if (kept_->connection != nullptr) kept_->connection->Abandon(&kept_->run);
}

}  // namespace bthal::host

namespace bthal::binder {

bool KeepInBatch(AIBinder* binder, int32_t code, const AParcel& in) {
  if (binder != host::t_target) return false;
  host::CallBatch::Kept* const keeping = host::t_keeping;
  RemoteObject* const remote = binder->AsRemote();
  if (remote == nullptr || ServedCallOf(remote->connection().get()) != 0) return false;
  const bool first = keeping->run.starts.empty();
  if (!first && keeping->connection != remote->connection()) return false;
  if (!Connection::Add(remote->id(), code, in, &keeping->run)) return false;
  if (first) {
    const std::lock_guard lock(keeping->mutex);
    keeping->connection = remote->connection();
  }
  return true;
}

}  // namespace bthal::binder
