// Calls that travel together to another process.
#include <host/call_batch.h>
#include <signal.h>

#include "host/binder_objects.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

// The service is this process, which has the callbacks of a client in another one.
class CallBatchTest : public BinderTest {
 protected:
  using Hears = std::function<ScopedAStatus(const Bytes&, const std::shared_ptr<Hci>&)>;

  // The client: what it does with an event, in its process. To be made before this process serves.
  ChildProcess Client(Hears hears) const {
    return ChildProcess([this, hears = std::move(hears)] {
      go_.Pass();
      const auto hci = FindHci();
      const auto callbacks = SharedRefBase::make<FakeCallbacks>();
      callbacks->on_event = [&](const Bytes& event) { return hears(event, hci); };
      ABinderProcess_startThreadPool();
      if (!hci->initialize(callbacks).isOk()) return 1;
      pause();
      return 0;
    });
  }

  void ServeClient() {
    hci_->on_initialize = [this](const auto& callbacks) {
      given_.set_value(callbacks);
      return ScopedAStatus::ok();
    };
    hci_->on_command = [this](const Bytes& command) {
      heard_.push_back(command);
      hearers_.insert(std::this_thread::get_id());
      return ScopedAStatus::ok();
    };
    ASSERT_NO_FATAL_FAILURE(Serve());
    go_.Open();
    client_ = given_.get_future().get();
  }

  // Keeps events that begin with a number, from `first` to `last`; whether all were kept.
  bool Keep(uint8_t first, uint8_t last, size_t size = 1) {
    bool kept = true;
    for (int i = first; i <= last; ++i) {
      Bytes event(size);
      event[0] = static_cast<uint8_t>(i);
      const auto call = [&] { return client_->hciEventReceived(event); };
      kept = !batch_.Keep(client_->asBinder().get(), call).has_value() && kept;
    }
    return kept;
  }

  const Gate go_;
  std::promise<std::shared_ptr<Callbacks>> given_;
  std::shared_ptr<Callbacks> client_;
  host::CallBatch batch_;
  // What the client tells of, on the thread that waits for it.
  std::vector<Bytes> heard_;
  std::set<std::thread::id> hearers_;
};

ScopedAStatus Tell(const Bytes& event, const std::shared_ptr<Hci>& hci) { return hci->sendHciCommand(event); }

TEST_F(CallBatchTest, TheyAreServedInTheirOrderAndEachIsAnswered) {
  const ChildProcess client = Client([](const Bytes& event, const auto& hci) {
    if (!Tell({event[0]}, hci).isOk()) return ScopedAStatus::fromServiceSpecificError(-1);
    return event[0] % 3 == 0 ? ScopedAStatus::fromServiceSpecificError(event[0]) : ScopedAStatus::ok();
  });
  ASSERT_NO_FATAL_FAILURE(ServeClient());
  EXPECT_TRUE(batch_.Send().empty());
  for (int round = 0; round < 50; ++round) {
    heard_.clear();
    // Every other time more than a socket takes at once: the rest comes while the first ones are served.
    ASSERT_TRUE(Keep(1, 200, round % 2 == 0 ? 1 : 2000));
    EXPECT_TRUE(heard_.empty());
    const auto& outcomes = batch_.Send();
    ASSERT_EQ(outcomes.size(), 200u);
    ASSERT_EQ(heard_.size(), 200u);
    for (uint8_t i = 1; i <= 200; ++i) {
      EXPECT_EQ(outcomes[i - 1].getServiceSpecificError(), i % 3 == 0 ? i : 0);
      EXPECT_EQ(heard_[i - 1], Bytes{i});
    }
  }
  EXPECT_THAT(hearers_, ElementsAre(std::this_thread::get_id()));
}

TEST_F(CallBatchTest, WhatIsAbandonedIsNotBegun) {
  const ChildProcess client =
      Client([](const Bytes& event, const auto& hci) { return event[0] == 3 ? hci->close() : Tell(event, hci); });
  ASSERT_NO_FATAL_FAILURE(ServeClient());
  hci_->on_close = [&] {
    batch_.Abandon();
    return ScopedAStatus::ok();
  };
  ASSERT_TRUE(Keep(1, 9));
  const auto& outcomes = batch_.Send();
  ASSERT_EQ(outcomes.size(), 9u);
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(outcomes[i].getStatus(), i < 3 ? STATUS_OK : STATUS_INVALID_OPERATION) << i;
  EXPECT_THAT(heard_, ElementsAre(Bytes{1}, Bytes{2}));
  // Before they are sent, too; and the next ones go again.
  ASSERT_TRUE(Keep(4, 5));
  batch_.Abandon();
  EXPECT_EQ(batch_.Send()[1].getStatus(), STATUS_INVALID_OPERATION);
  ASSERT_TRUE(Keep(6, 6));
  EXPECT_TRUE(batch_.Send()[0].isOk());
  EXPECT_THAT(heard_, ElementsAre(Bytes{1}, Bytes{2}, Bytes{6}));
}

TEST_F(CallBatchTest, OneThatDoesNotReturnHoldsUpNoOtherCall) {
  const Gate leave;
  const ChildProcess client = Client([&](const Bytes& event, const auto& hci) {
    if (event[0] == 2) {
      Tell(event, hci);
      leave.Pass();
    }
    return ScopedAStatus::ok();
  });
  ASSERT_NO_FATAL_FAILURE(ServeClient());
  std::promise<void> inside;
  hci_->on_command = [&](const Bytes&) {
    inside.set_value();
    return ScopedAStatus::ok();
  };
  auto others = std::async(std::launch::async, [&] {
    inside.get_future().wait();
    const bool good = client_->aclDataReceived({1}).isOk() && client_->hciEventReceived({1}).isOk();
    leave.Open();
    return good;
  });
  ASSERT_TRUE(Keep(1, 3));
  for (const auto& outcome : batch_.Send()) EXPECT_TRUE(outcome.isOk());
  EXPECT_TRUE(others.get());
}

TEST_F(CallBatchTest, ThePeersDeathEndsThemAll) {
  const ChildProcess client = Client([](const Bytes& event, const auto& hci) {
    if (event[0] == 2) raise(SIGKILL);
    return Tell(event, hci);
  });
  ASSERT_NO_FATAL_FAILURE(ServeClient());
  ASSERT_TRUE(Keep(1, 5));
  const auto& outcomes = batch_.Send();
  ASSERT_EQ(outcomes.size(), 5u);
  EXPECT_EQ(outcomes[4].getStatus(), STATUS_DEAD_OBJECT);
  EXPECT_THAT(heard_, ElementsAre(Bytes{1}));
  ASSERT_TRUE(Keep(1, 1));
  EXPECT_EQ(batch_.Send()[0].getStatus(), STATUS_DEAD_OBJECT);
}

TEST_F(CallBatchTest, WhatCannotBeKeptIsCalledAtOnce) {
  const ChildProcess client = Client(Tell);
  ASSERT_NO_FATAL_FAILURE(ServeClient());
  const auto local = SharedRefBase::make<FakeCallbacks>();
  // A local object, which calls another process from within.
  local->on_event = [&](const Bytes& event) { return client_->hciEventReceived(event); };
  const auto at_once = batch_.Keep(local->asBinder().get(), [&] { return local->hciEventReceived({7}); });
  ASSERT_TRUE(at_once.has_value());
  EXPECT_TRUE(at_once->isOk());
  EXPECT_THAT(heard_, ElementsAre(Bytes{7}));
  EXPECT_EQ(batch_.size(), 0u);
  // On behalf of a call of that process: its thread that waits is to serve it.
  hci_->on_close = [&] { return Keep(8, 8) ? ScopedAStatus::fromServiceSpecificError(-1) : ScopedAStatus::ok(); };
  hci_->on_command = [&](const Bytes& command) {
    if (command[0] == 9) return hci_->close();
    heard_.push_back(command);
    return ScopedAStatus::ok();
  };
  EXPECT_TRUE(client_->hciEventReceived({9}).isOk());
  EXPECT_THAT(heard_, ElementsAre(Bytes{7}, Bytes{8}));
}

}  // namespace
}  // namespace bthal::test
