// What is seen of a process that dies, by those who were connected to it.
#include <poll.h>

#include <future>

#include "host/binder_objects.h"
#include "host/raw_peer.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using ::ndk::ScopedAIBinder_DeathRecipient;
using ::ndk::SpAIBinder;

#if defined(__has_feature)
constexpr bool kUnderThreadSanitizer = __has_feature(thread_sanitizer);
#elif defined(__SANITIZE_THREAD__)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

using BinderDeathTest = BinderTest;

// Counts what is told with it as cookie.
struct Witness {
  std::atomic<int> deaths{0};
  std::atomic<int> ends{0};
  std::atomic<bool> was_alive{false};
  std::atomic<bool> on_own_thread{false};
  const std::thread::id maker = std::this_thread::get_id();
  SpAIBinder watched;

  static void OnDied(void* cookie) {
    auto* self = static_cast<Witness*>(cookie);
    self->was_alive = AIBinder_isAlive(self->watched.get());
    self->on_own_thread = std::this_thread::get_id() != self->maker;
    ++self->deaths;
  }
  static void OnUnlinked(void* cookie) { ++static_cast<Witness*>(cookie)->ends; }
};

ScopedAIBinder_DeathRecipient MakeRecipient() {
  ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(Witness::OnDied));
  AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), Witness::OnUnlinked);
  return recipient;
}

TEST_F(BinderDeathTest, AServicesDeathIsToldOnceToThoseWhoStillWantToKnow) {
  ServiceChild service;
  const auto hci = FindHci();
  AIBinder* binder = hci->asBinder().get();
  Witness told;
  Witness unlinked;
  Witness forgotten;
  told.watched = unlinked.watched = forgotten.watched = hci->asBinder();
  const auto recipient = MakeRecipient();
  auto deleted = MakeRecipient();
  ASSERT_EQ(AIBinder_linkToDeath(binder, recipient.get(), &told), STATUS_OK);
  ASSERT_EQ(AIBinder_linkToDeath(binder, recipient.get(), &unlinked), STATUS_OK);
  ASSERT_EQ(AIBinder_linkToDeath(binder, deleted.get(), &forgotten), STATUS_OK);
  EXPECT_EQ(AIBinder_unlinkToDeath(binder, deleted.get(), &told), STATUS_NAME_NOT_FOUND);
  EXPECT_EQ(AIBinder_unlinkToDeath(binder, recipient.get(), nullptr), STATUS_NAME_NOT_FOUND);
  EXPECT_EQ(AIBinder_unlinkToDeath(binder, recipient.get(), &unlinked), STATUS_OK);
  EXPECT_EQ(AIBinder_unlinkToDeath(binder, recipient.get(), &unlinked), STATUS_NAME_NOT_FOUND);
  deleted.set(nullptr);
  EXPECT_EQ(forgotten.ends, 1);
  EXPECT_TRUE(AIBinder_isAlive(binder));

  service.Kill();
  EXPECT_TRUE(WaitFor([&] { return told.ends == 1; }));
  EXPECT_EQ(told.deaths, 1);
  EXPECT_FALSE(told.was_alive);
  EXPECT_TRUE(told.on_own_thread);
  EXPECT_EQ(unlinked.deaths, 0);
  EXPECT_EQ(unlinked.ends, 1);
  EXPECT_EQ(forgotten.deaths, 0);
  EXPECT_FALSE(AIBinder_isAlive(binder));
  EXPECT_EQ(AIBinder_unlinkToDeath(binder, recipient.get(), &told), STATUS_DEAD_OBJECT);
  EXPECT_EQ(AIBinder_linkToDeath(binder, recipient.get(), &told), STATUS_DEAD_OBJECT);
  EXPECT_EQ(AIBinder_ping(binder), STATUS_DEAD_OBJECT);
  EXPECT_EQ(hci->close().getStatus(), STATUS_DEAD_OBJECT);
}

TEST_F(BinderDeathTest, ACallUnderWayEndsWithTheService) {
  const ChildProcess service([] {
    const auto hci = SharedRefBase::make<FakeHci>();
    hci->on_command = [](const Bytes&) {
      kill(getpid(), SIGKILL);
      return ScopedAStatus::ok();
    };
    return ServeHci(hci);
  });
  const auto hci = FindHci();
  std::vector<std::thread> others;
  std::atomic<int> dead{0};
  for (int i = 0; i < 3; ++i) {
    others.emplace_back([&] { dead += hci->sendHciCommand({1}).getStatus() == STATUS_DEAD_OBJECT ? 1 : 0; });
  }
  for (auto& other : others) other.join();
  EXPECT_EQ(dead, 3);
}

TEST_F(BinderDeathTest, AClientsDeathIsToldAlthoughAllThreadsAreBusy) {
  ChildProcess client([] {
    ABinderProcess_startThreadPool();
    FindHci()->initialize(SharedRefBase::make<FakeCallbacks>());
    return 0;
  });
  Witness witness;
  const auto recipient = MakeRecipient();
  const auto hci = SharedRefBase::make<FakeHci>();
  std::atomic<bool> initializing{false};
  hci->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    witness.watched = callbacks->asBinder();
    EXPECT_EQ(AIBinder_linkToDeath(callbacks->asBinder().get(), recipient.get(), &witness), STATUS_OK);
    initializing = true;
    // The only thread of the pool stays here until the client's death has been told.
    EXPECT_TRUE(WaitFor([&] { return witness.deaths == 1; }));
    EXPECT_EQ(callbacks->hciEventReceived({1}).getStatus(), STATUS_DEAD_OBJECT);
    initializing = false;
    return ScopedAStatus::ok();
  };
  ABinderProcess_setThreadPoolMaxThreadCount(1);
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(hci), EX_NONE);
  ASSERT_TRUE(WaitFor([&] { return initializing.load(); }));
  client.Kill();
  EXPECT_TRUE(WaitFor([&] { return witness.ends == 1 && !initializing; }));
  EXPECT_FALSE(witness.was_alive);
}

TEST_F(BinderDeathTest, AForkedChildDoesNotHideItsParentsDeath) {
  const Gate stay;
  const Gate checked;
  ChildProcess client([&] {
    const auto hci = FindHci();
    if (!hci->initialize(SharedRefBase::make<FakeCallbacks>()).isOk()) return 1;
    if (fork() == 0) {
      checked.Open(hci->close().getStatus() == STATUS_DEAD_OBJECT ? 'd' : '?');
      stay.Pass();
      _exit(0);
    }
    kill(getpid(), SIGKILL);
    return 1;
  });
  Witness witness;
  const auto recipient = MakeRecipient();
  hci_->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    witness.watched = callbacks->asBinder();
    AIBinder_linkToDeath(callbacks->asBinder().get(), recipient.get(), &witness);
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve());
  EXPECT_EQ(client.Wait(), -SIGKILL);
  EXPECT_TRUE(WaitFor([&] { return witness.deaths == 1; }));
  EXPECT_EQ(checked.Pass(), 'd');  // nothing of the parent's is of use to the child
  stay.Open();
}

// All who would see it have other things to do: the thread that watches a line of log that takes its time, the pool's
// only one a call.
TEST_F(BinderDeathTest, WhoHasDiedIsNotAliveHoweverLateTheNoticeComes) {
  static Gate late;
  static Gate done;
  const Gate begun;
  const Gate held;
  ChildProcess client([] {
    FindHci()->initialize(SharedRefBase::make<FakeCallbacks>());
    return pause();
  });
  std::promise<std::shared_ptr<Callbacks>> given;
  hci_->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    given.set_value(callbacks);
    return ScopedAStatus::ok();
  };
  hci_->on_command = [&](const Bytes&) {
    begun.Open();
    held.Pass();
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve(1));
  const auto callbacks = given.get_future().get();
  AIBinder* const binder = callbacks->asBinder().get();
  EXPECT_TRUE(AIBinder_isAlive(binder));
  Witness told;
  const auto recipient = MakeRecipient();
  ASSERT_EQ(AIBinder_linkToDeath(binder, recipient.get(), &told), STATUS_OK);
  const RawPeer caller = FoundBy(root_.path(), HciInstance());
  Call(caller, 5, Hci::descriptor, FIRST_CALL_TRANSACTION + 3);
  begun.Pass();
  android::base::SetLogger([](auto, auto, const char*, const char*, unsigned int, const char*) {
    late.Open();
    done.Pass();
  });
  pollfd is_late{late.reader(), POLLIN, 0};
  std::vector<std::unique_ptr<RawPeer>> crowd;  // until one is turned away, which is said
  while (poll(&is_late, 1, 1) == 0 && crowd.size() < 100) crowd.push_back(std::make_unique<RawPeer>(root_.path()));
  ASSERT_NE(poll(&is_late, 1, -1), 0);
  client.Kill();
  EXPECT_FALSE(AIBinder_isAlive(binder));
  EXPECT_EQ(told.deaths, 0);
  // Nor does anybody else wait for the log.
  held.Open();
  EXPECT_EQ(caller.Receive().call, 5u);
  EXPECT_TRUE(crowd.front()->Answers());
  done.Open();
  android::base::SetLogger(android::base::StderrLogger);
  EXPECT_TRUE(WaitFor([&] { return told.ends == 1; }));
}

TEST_F(BinderDeathTest, AForkedChildMayBeginAnew) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "it ends a forked child of a process with threads that starts one itself";
  const ServiceChild service;
  ASSERT_TRUE(FindHci()->close().isOk());
  ChildProcess child([] { return FindHci()->close().isOk() ? 0 : 1; });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_TRUE(FindHci()->close().isOk());
}

TEST_F(BinderDeathTest, AClientThatComesBackFindsItsOldSelfGone) {
  constexpr int kRounds = 40;
  // One process after the other; each calls and dies, and the next begins at once.
  static const Gate coming;
  ChildProcess clients([] {
    for (int i = 0; i < kRounds; ++i) {
      ChildProcess client([i] {
        if (i != 0) coming.Open();
        if (!FindHci()->initialize(SharedRefBase::make<FakeCallbacks>()).isOk()) return 1;
        kill(getpid(), SIGKILL);
        return 1;
      });
      if (client.Wait() != -SIGKILL) return 1;
    }
    return 0;
  });
  static std::atomic<int> present{0};
  static std::atomic<int> deaths{0};
  const ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new([](void*) {
    // It takes its time: a newcomer that was let in meanwhile would show.
    if (deaths != kRounds - 1) coming.Pass();
    for (int i = 0; i < 10; ++i) std::this_thread::yield();
    --present;
    ++deaths;
  }));
  std::atomic<int> met_another{0};
  std::mutex mutex;
  std::vector<std::shared_ptr<Callbacks>> kept;
  hci_->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    met_another += present++ == 0 ? 0 : 1;
    if (AIBinder_linkToDeath(callbacks->asBinder().get(), recipient.get(), nullptr) != STATUS_OK) ++met_another;
    const std::lock_guard lock(mutex);
    kept.push_back(callbacks);
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve(3));
  EXPECT_EQ(clients.Wait(), 0);
  EXPECT_TRUE(WaitFor([&] { return deaths == kRounds; }));
  EXPECT_EQ(met_another, 0);
}

TEST_F(BinderDeathTest, ARecipientThatDoesNotReturnKeepsNobodyOut) {
  const Gate go;
  ChildProcess first([] {
    FindHci()->initialize(SharedRefBase::make<FakeCallbacks>());
    kill(getpid(), SIGKILL);
    return 1;
  });
  ChildProcess second([&] {
    go.Pass();
    return FindHci()->close().isOk() ? 0 : 1;
  });
  static const Gate release;
  static std::atomic<bool> blocked{false};
  const ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new([](void*) {
    blocked = true;
    release.Pass();
    blocked = false;
  }));
  std::shared_ptr<Callbacks> client;
  hci_->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    client = callbacks;
    AIBinder_linkToDeath(callbacks->asBinder().get(), recipient.get(), nullptr);
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve());
  ASSERT_TRUE(WaitFor([] { return blocked.load(); }));
  go.Open();
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_TRUE(blocked);
  release.Open();
  EXPECT_TRUE(WaitFor([] { return !blocked; }));
}

TEST_F(BinderDeathTest, ReferencesKeepAClientsObjectAndLetItGo) {
  const Gate destroyed;
  const Gate stay;
  ChildProcess client([&] {
    ABinderProcess_startThreadPool();
    const auto hci = FindHci();
    {
      const auto callbacks = SharedRefBase::make<FakeCallbacks>();
      callbacks->on_destroyed = [&] { destroyed.Open('d'); };
      // Sent twice, it is one object to the service.
      if (!hci->initialize(callbacks).isOk() || !hci->initialize(callbacks).isOk()) return 1;
    }
    destroyed.Open('g');  // the client's own reference is gone
    hci->close();
    stay.Pass();  // until it is killed
    return 0;
  });
  std::shared_ptr<Callbacks> held;
  std::atomic<bool> same{false};
  std::atomic<bool> closing{false};
  const auto hci = SharedRefBase::make<FakeHci>();
  hci->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    same = held != nullptr && held->asBinder() == callbacks->asBinder();
    held = callbacks;
    return ScopedAStatus::ok();
  };
  hci->on_close = [&] {
    closing = true;
    return ScopedAStatus::ok();
  };
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(hci), EX_NONE);
  EXPECT_EQ(destroyed.Pass(), 'g');
  ASSERT_TRUE(WaitFor([&] { return closing.load(); }));
  EXPECT_TRUE(same);
  EXPECT_TRUE(held->hciEventReceived({1}).isOk());
  held = nullptr;
  EXPECT_EQ(destroyed.Pass(), 'd');
}

TEST_F(BinderDeathTest, DeadClientsLeaveNothingOpen) {
  ChildProcess clients([] {
    for (int i = 0; i < 100; ++i) {
      ChildProcess client([] {
        if (FindHci()->initialize(SharedRefBase::make<FakeCallbacks>()).isOk()) kill(getpid(), SIGKILL);
        return 1;
      });
      if (client.Wait() != -SIGKILL) return 1;
    }
    return 0;
  });
  ABinderProcess_startThreadPool();
  const size_t before = CountEntries("/proc/self/fd");
  ASSERT_NO_FATAL_FAILURE(Serve());
  EXPECT_EQ(clients.Wait(), 0);
  // One more: the socket that takes connections. References: the list of services, and the one being asked.
  EXPECT_TRUE(WaitFor([&] { return CountEntries("/proc/self/fd") == before + 1; }))
      << CountEntries("/proc/self/fd") - before;
  EXPECT_TRUE(WaitFor([&] { return AIBinder_debugGetRefCount(hci_->asBinder().get()) == 2; }));
}

}  // namespace
}  // namespace bthal::test
