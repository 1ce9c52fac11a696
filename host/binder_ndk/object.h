// Binder objects: local ones, and proxies of those in other processes.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "death.h"

namespace bthal::binder {
class Connection;
class LocalObject;
class RemoteObject;
}  // namespace bthal::binder

struct AIBinder_Class {
  std::string descriptor;
  AIBinder_Class_onCreate on_create;
  AIBinder_Class_onDestroy on_destroy;
  AIBinder_Class_onTransact on_transact;
  AIBinder_onDump on_dump = nullptr;
};

// Counted by strong references, which keep it in use, and weak ones, which keep its memory. All strong references
// together hold one weak one.
struct AIBinder {
 public:
  explicit AIBinder(const AIBinder_Class* clazz) : clazz_(clazz) {}
  AIBinder(const AIBinder&) = delete;
  AIBinder& operator=(const AIBinder&) = delete;
  virtual ~AIBinder() = default;

  virtual bthal::binder::LocalObject* AsLocal() { return nullptr; }
  virtual bthal::binder::RemoteObject* AsRemote() { return nullptr; }
  virtual std::string Descriptor() const = 0;

  void AddStrong() { strong_.fetch_add(1, std::memory_order_relaxed); }
  bool TryAddStrong();  // false when there is none left
  void ReleaseStrong();
  void AddWeak() { weak_.fetch_add(1, std::memory_order_relaxed); }
  void ReleaseWeak();
  int32_t strong_count() const { return strong_.load(std::memory_order_relaxed); }

  // Null for a proxy that was not associated with a class.
  const AIBinder_Class* clazz() const { return clazz_.load(std::memory_order_acquire); }
  // The class is `clazz` from now on, unless there is one already. Returns the one it has.
  const AIBinder_Class* Associate(const AIBinder_Class* clazz);

 protected:
  // The last strong reference is gone.
  virtual void OnUnused() = 0;

 private:
  std::atomic<int32_t> strong_{1};
  std::atomic<int32_t> weak_{1};
  std::atomic<const AIBinder_Class*> clazz_;
};

namespace bthal::binder {

class LocalObject final : public AIBinder {
 public:
  LocalObject(const AIBinder_Class* clazz, void* args) : AIBinder(clazz), user_data_(clazz->on_create(args)) {}
  LocalObject* AsLocal() override { return this; }
  std::string Descriptor() const override { return clazz()->descriptor; }
  void* user_data() const { return user_data_; }

 private:
  void OnUnused() override { clazz()->on_destroy(user_data_); }

  void* const user_data_;
};

class RemoteObject final : public AIBinder {
 public:
  RemoteObject(std::shared_ptr<Connection> connection, uint64_t id, std::string descriptor);
  ~RemoteObject() override;
  RemoteObject* AsRemote() override { return this; }
  std::string Descriptor() const override { return descriptor_; }

  const std::shared_ptr<Connection>& connection() const { return connection_; }
  uint64_t id() const { return id_; }

  binder_status_t Link(const std::shared_ptr<DeathLink>& link);
  binder_status_t Unlink(const DeathRecipientState* recipient, void* cookie);
  // The links to be told, once the connection is known to be dead; none can be added then.
  std::vector<std::shared_ptr<DeathLink>> TakeLinks();

  // How many references the other process counts for this proxy. Under the connection's lock.
  uint32_t received = 0;

 private:
  void OnUnused() override;

  const std::shared_ptr<Connection> connection_;
  const uint64_t id_;
  const std::string descriptor_;
  std::mutex links_mutex_;
  std::vector<std::shared_ptr<DeathLink>> links_;
};

}  // namespace bthal::binder
