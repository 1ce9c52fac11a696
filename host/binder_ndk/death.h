// Telling who wants to know that a peer has died.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace bthal::binder {

struct DeathRecipientState;

// One link between a proxy and a recipient. It ends once: told, unlinked, or with one of its ends.
class DeathLink {
 public:
  DeathLink(std::shared_ptr<DeathRecipientState> recipient, void* cookie);

  bool Is(const DeathRecipientState* recipient, void* cookie) const;
  bool ended() const { return ended_.load(); }
  // Ends the link and tells its recipient that it has. False when it had ended before.
  bool Unlink();
  // Tells the death, unless the link has ended.
  void Tell();

 private:
  const std::shared_ptr<DeathRecipientState> recipient_;
  void* const cookie_;
  std::atomic<bool> ended_{false};
};

struct DeathRecipientState {
  AIBinder_DeathRecipient_onBinderDied on_died;
  std::atomic<AIBinder_DeathRecipient_onBinderUnlinked> on_unlinked{nullptr};
  std::mutex mutex;
  std::vector<std::weak_ptr<DeathLink>> links;  // weak: a link owns its recipient's state
};

// What a dead peer leaves behind.
struct Estate {
  std::vector<std::shared_ptr<DeathLink>> links;
  std::vector<ndk::SpAIBinder> held;  // proxies that keep the links, and local objects that the peer referred to
};

// Settles estates on a thread of its own, so that a recipient may block or call out as it likes.
class Undertaker {
 public:
  // `on_idle` is called on that thread whenever nothing is left to be told.
  explicit Undertaker(void (*on_idle)()) : on_idle_(on_idle) {}

  void Settle(Estate estate);
  bool Idle();

 private:
  void Run();

  void (*const on_idle_)();
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Estate> estates_;
  bool busy_ = false;
  bool started_ = false;
};

}  // namespace bthal::binder
