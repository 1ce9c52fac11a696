#include "death.h"

#include <pthread.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "object.h"

struct AIBinder_DeathRecipient {
  std::shared_ptr<bthal::binder::DeathRecipientState> state;
};

namespace bthal::binder {

DeathLink::DeathLink(std::shared_ptr<DeathRecipientState> recipient, void* cookie)
    : recipient_(std::move(recipient)), cookie_(cookie) {}

bool DeathLink::Is(const DeathRecipientState* recipient, void* cookie) const {
  return recipient_.get() == recipient && cookie_ == cookie;
}

bool DeathLink::Unlink() {
  if (ended_.exchange(true)) return false;
  if (const auto on_unlinked = recipient_->on_unlinked.load()) on_unlinked(cookie_);
  return true;
}

void DeathLink::Tell() {
  if (ended_.exchange(true)) return;
  recipient_->on_died(cookie_);
  if (const auto on_unlinked = recipient_->on_unlinked.load()) on_unlinked(cookie_);
}

void Undertaker::Settle(Estate estate) {
  if (estate.links.empty() && estate.held.empty()) return;
  const std::lock_guard lock(mutex_);
  estates_.push_back(std::move(estate));
  if (!std::exchange(started_, true)) std::thread(&Undertaker::Run, this).detach();
  wake_.notify_one();
}

bool Undertaker::Idle() {
  const std::lock_guard lock(mutex_);
  return estates_.empty() && !busy_;
}

void Undertaker::Run() {
  pthread_setname_np(pthread_self(), "binder:deaths");
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] { return !estates_.empty(); });
    busy_ = true;
    {
      const Estate estate = std::move(estates_.front());
      estates_.pop_front();
      lock.unlock();
      for (const auto& link : estate.links) link->Tell();
    }
    lock.lock();
    busy_ = false;
    if (!estates_.empty()) continue;
    lock.unlock();
    on_idle_();
    lock.lock();
  }
}

}  // namespace bthal::binder

using bthal::binder::DeathLink;
using bthal::binder::DeathRecipientState;

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied) {
  if (onBinderDied == nullptr) return nullptr;
  auto state = std::make_shared<DeathRecipientState>();
  state->on_died = onBinderDied;
  return new AIBinder_DeathRecipient{std::move(state)};
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
  recipient->state->on_unlinked = onUnlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
  if (recipient == nullptr) return;
  std::vector<std::weak_ptr<DeathLink>> links;
  {
    const std::lock_guard lock(recipient->state->mutex);
    links.swap(recipient->state->links);
  }
  for (const auto& weak : links) {
    if (const auto link = weak.lock()) link->Unlink();
  }
  delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
  if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
  if (binder->AsRemote() == nullptr) return STATUS_INVALID_OPERATION;
  const auto link = std::make_shared<DeathLink>(recipient->state, cookie);
  const binder_status_t status = binder->AsRemote()->Link(link);
  if (status != STATUS_OK) return status;
  const std::lock_guard lock(recipient->state->mutex);
  auto& links = recipient->state->links;
  std::erase_if(links, [](const auto& old) { return old.expired(); });
  links.push_back(link);
  return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
  if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
  if (binder->AsRemote() == nullptr) return STATUS_INVALID_OPERATION;
  return binder->AsRemote()->Unlink(recipient->state.get(), cookie);
}
