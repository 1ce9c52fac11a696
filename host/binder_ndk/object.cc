#include "object.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "connection/connection.h"
#include "parcel.h"
#include "transaction.h"

struct AIBinder_Weak {
  AIBinder* binder;
};

bool AIBinder::TryAddStrong() {
  int32_t count = strong_.load(std::memory_order_relaxed);
  while (count != 0) {
    if (strong_.compare_exchange_weak(count, count + 1, std::memory_order_acquire)) return true;
  }
  return false;
}

void AIBinder::ReleaseStrong() {
  if (strong_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  OnUnused();
  ReleaseWeak();
}

void AIBinder::ReleaseWeak() {
  if (weak_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

const AIBinder_Class* AIBinder::Associate(const AIBinder_Class* clazz) {
  const AIBinder_Class* current = nullptr;
  return clazz_.compare_exchange_strong(current, clazz, std::memory_order_acq_rel) ? clazz : current;
}

namespace bthal::binder {

RemoteObject::RemoteObject(std::shared_ptr<Connection> connection, uint64_t id, std::string descriptor)
    : AIBinder(nullptr), connection_(std::move(connection)), id_(id), descriptor_(std::move(descriptor)) {}

RemoteObject::~RemoteObject() = default;

void RemoteObject::OnUnused() {
  connection_->Forget(this);
  for (const auto& link : TakeLinks()) link->Unlink();
}

binder_status_t RemoteObject::Link(const std::shared_ptr<DeathLink>& link) {
  const std::lock_guard lock(links_mutex_);
  // The connection is marked dead before its links are taken under this lock: a link added here is either taken, or
  // refused.
  if (!connection_->alive()) return STATUS_DEAD_OBJECT;
  std::erase_if(links_, [](const auto& old) { return old->ended(); });
  links_.push_back(link);
  return STATUS_OK;
}

binder_status_t RemoteObject::Unlink(const DeathRecipientState* recipient, void* cookie) {
  std::shared_ptr<DeathLink> link;
  {
    const std::lock_guard lock(links_mutex_);
    const auto found = std::find_if(links_.begin(), links_.end(), [&](const auto& candidate) {
      return candidate->Is(recipient, cookie) && !candidate->ended();
    });
    if (found != links_.end()) {
      link = *found;
      links_.erase(found);
    }
  }
  // The recipient's own code runs without the lock.
  if (link != nullptr && link->Unlink()) return STATUS_OK;
  return connection_->alive() ? STATUS_NAME_NOT_FOUND : STATUS_DEAD_OBJECT;
}

std::vector<std::shared_ptr<DeathLink>> RemoteObject::TakeLinks() {
  const std::lock_guard lock(links_mutex_);
  return std::move(links_);
}

}  // namespace bthal::binder

using bthal::binder::LocalObject;

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor, AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy, AIBinder_Class_onTransact onTransact) {
  if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr || onTransact == nullptr) {
    return nullptr;
  }
  return new AIBinder_Class{interfaceDescriptor, onCreate, onDestroy, onTransact};
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) { clazz->on_dump = onDump; }
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) { return clazz->descriptor.c_str(); }

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
  return clazz == nullptr ? nullptr : new LocalObject(clazz, args);
}

void AIBinder_incStrong(AIBinder* binder) {
  if (binder != nullptr) binder->AddStrong();
}
void AIBinder_decStrong(AIBinder* binder) {
  if (binder != nullptr) binder->ReleaseStrong();
}
int32_t AIBinder_debugGetRefCount(AIBinder* binder) { return binder == nullptr ? -1 : binder->strong_count(); }

bool AIBinder_isRemote(const AIBinder* binder) {
  return binder != nullptr && const_cast<AIBinder*>(binder)->AsRemote() != nullptr;
}

bool AIBinder_isAlive(const AIBinder* binder) {
  if (binder == nullptr) return false;
  const auto* remote = const_cast<AIBinder*>(binder)->AsRemote();
  return remote == nullptr || remote->connection()->HasPeer();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
  if (binder == nullptr || clazz == nullptr) return false;
  if (binder->Descriptor() != clazz->descriptor) return false;
  return binder->Associate(clazz) == clazz;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) { return binder == nullptr ? nullptr : binder->clazz(); }

void* AIBinder_getUserData(AIBinder* binder) {
  LocalObject* local = binder == nullptr ? nullptr : binder->AsLocal();
  return local == nullptr ? nullptr : local->user_data();
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
  if (binder == nullptr) return nullptr;
  binder->AddWeak();
  return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
  if (weakBinder == nullptr) return;
  weakBinder->binder->ReleaseWeak();
  delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
  return weakBinder != nullptr && weakBinder->binder->TryAddStrong() ? weakBinder->binder : nullptr;
}
