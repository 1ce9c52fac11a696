// The short way for a peer that calls again and again.
#include <android-base/unique_fd.h>

#include <future>
#include <thread>

#include "host/binder_objects.h"
#include "host/raw_peer.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

constexpr int32_t kSendHciCommand = FIRST_CALL_TRANSACTION + 3;
// As often as a thread of the service calls for it to stay, if none stays with another client, and more.
constexpr int kOften = 200;

bool CallOften(Hci& hci) {
  for (int i = 0; i < kOften; ++i) {
    if (!hci.sendHciCommand({1}).isOk()) return false;
  }
  return true;
}

// Calls `count` times. Whether it was told that the express socket is read.
bool IsToldIn(int count, const RawPeer& peer) {
  bool told = false;
  for (int i = 0; i < count && !told; ++i) {
    peer.Send(Header{});
    for (Header header; header = peer.Receive(), header.type == kExpress;) told = true;
  }
  return told;
}

// Calls until it is.
bool IsTold(const RawPeer& peer) { return IsToldIn(10'000, peer); }

class ExpressTest : public BinderTest {
 protected:
  ExpressTest() {
    hci_->on_command = [this](const Bytes& command) {
      if (!command.empty()) return ScopedAStatus::ok();
      held_up_ = true;
      begun_.Open();
      held_.Pass();
      held_up_ = false;
      return ScopedAStatus::ok();
    };
  }
  ~ExpressTest() override {
    WaitFor([&] { return !held_up_; });
  }

  RawPeer Client() const { return FoundBy(root_.path(), HciInstance()); }
  // Makes call number 5, which lasts until held_ opens.
  void CallAndBeHeldUp(const RawPeer& peer) const {
    Call(peer, 5, Hci::descriptor, kSendHciCommand, Way::kExpress);
    begun_.Pass();
  }

  const Gate begun_;
  const Gate held_;

 private:
  std::atomic<bool> held_up_{false};
};

TEST_F(ExpressTest, ACallThatIsHeldUpHoldsUpNoOther) {
  const Gate go;
  ChildProcess other([&] {
    go.Pass();
    return CallOften(*FindHci()) ? 0 : 1;
  });
  ASSERT_NO_FATAL_FAILURE(Serve(1));
  const RawPeer peer = Client();
  ASSERT_TRUE(IsTold(peer));
  CallAndBeHeldUp(peer);
  for (int i = 0; i < kOften; ++i) ASSERT_TRUE(peer.Answers()) << i;
  go.Open();
  EXPECT_EQ(other.Wait(), 0);
  held_.Open();
  EXPECT_EQ(peer.Receive().call, 5u);
}

TEST_F(ExpressTest, OneClientAtATimeHasItAndTheNextWhenThatIsGone) {
  ASSERT_NO_FATAL_FAILURE(Serve(1));
  const RawPeer next = Client();
  {
    const RawPeer peer = Client();
    for (int i = 0; i < kOften; ++i) ASSERT_FALSE(IsToldIn(1, peer) || IsToldIn(1, next)) << "they take turns";
    ASSERT_TRUE(IsTold(peer));
    EXPECT_FALSE(IsToldIn(kOften, next));
    CallAndBeHeldUp(peer);
  }
  // It is dead, and its call still being served.
  EXPECT_FALSE(IsToldIn(kOften, next));
  held_.Open();
  EXPECT_TRUE(IsTold(next));
}

// Who calls: one call at a time, none on behalf of another.
TEST_F(ExpressTest, TheCallerSendsOneAtATime) {
  std::promise<std::shared_ptr<Callbacks>> given;
  hci_->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    given.set_value(callbacks);
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve());
  const RawPeer peer = Client();
  CallInitialize(peer, Hci::descriptor, Callbacks::descriptor);
  ASSERT_EQ(peer.Receive().call, 9u);
  const auto callbacks = given.get_future().get();
  const auto call = [&] { return std::thread([&] { EXPECT_TRUE(callbacks->hciEventReceived({1}).isOk()); }); };
  const auto answer = [&](const Header& header) {
    EXPECT_EQ(header.type, kCall);
    peer.Send({.size = 4, .type = kReply, .call = header.call, .code = STATUS_OK}, {0}, Way::kAnswers);
  };
  std::thread first = call();
  const Header before = peer.Receive(Way::kCalls);
  peer.Send({.type = kExpress}, {}, Way::kAnswers);
  answer(before);
  first.join();
  std::thread express = call();
  const Header by_express = peer.Receive(Way::kExpressBack);
  for (int i = 0; i < 2; ++i) {
    std::thread beside = call();
    answer(peer.Receive(Way::kCalls));
    beside.join();
  }
  // On behalf of a call of the peer's.
  hci_->on_command = [&](const Bytes&) { return callbacks->hciEventReceived({1}); };
  answer(by_express);
  express.join();
  Call(peer, 6, Hci::descriptor, kSendHciCommand);
  const Header nested = peer.Receive();
  EXPECT_EQ(nested.nested, 6u);
  answer(nested);
  EXPECT_EQ(peer.Receive().call, 6u);
  std::thread again = call();
  answer(peer.Receive(Way::kExpressBack));
  again.join();
}

TEST_F(ExpressTest, ACallUnderWayEndsWithTheService) {
  const Gate begun;
  ChildProcess service([&] {
    const auto hci = SharedRefBase::make<FakeHci>();
    hci->on_command = [&](const Bytes& command) {
      if (command.empty()) begun.Open(), held_.Pass();
      return ScopedAStatus::ok();
    };
    return ServeHci(hci);
  });
  const auto hci = FindHci();
  ASSERT_TRUE(CallOften(*hci));
  std::thread killer([&] {
    begun.Pass();
    service.Kill();
  });
  EXPECT_EQ(hci->sendHciCommand({}).getStatus(), STATUS_DEAD_OBJECT);
  EXPECT_EQ(hci->sendHciCommand({1}).getStatus(), STATUS_DEAD_OBJECT);
  killer.join();
}

// Two processes that both call often, one of them from within the other's calls, which the caller's own thread serves.
TEST_F(ExpressTest, BothSidesCallOften) {
  const Gate called_back;
  ChildProcess client([&] {
    ABinderProcess_startThreadPool();
    const auto hci = FindHci();
    const auto callbacks = SharedRefBase::make<FakeCallbacks>();
    callbacks->on_event = [&](const Bytes& event) { return hci->sendHciCommand(event); };
    hci->initialize(callbacks);
    // A call that no socket takes at once goes as well.
    const bool good = CallOften(*hci) && hci->sendHciCommand(Bytes(900'000, 1)).isOk();
    called_back.Pass();
    return good && CallOften(*hci) ? 0 : 1;
  });
  std::promise<std::shared_ptr<Callbacks>> given;
  hci_->on_initialize = [&](const std::shared_ptr<Callbacks>& callbacks) {
    given.set_value(callbacks);
    return ScopedAStatus::ok();
  };
  std::atomic<std::thread::id> served_by;
  hci_->on_command = [&](const Bytes& command) {
    if (command[0] != 1) served_by = std::this_thread::get_id();
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve(1));
  // Calls of this thread, as those of a receive thread, are made on behalf of none.
  const auto callbacks = given.get_future().get();
  for (int i = 0; i < kOften; ++i) {
    ASSERT_TRUE(callbacks->hciEventReceived({2}).isOk()) << i;
    ASSERT_EQ(served_by.load(), std::this_thread::get_id()) << i;
    served_by = std::thread::id();
  }
  called_back.Open();
  EXPECT_EQ(client.Wait(), 0);
}

TEST_F(ExpressTest, NonsenseCostsTheConnection) {
  const LogCapture log;
  ASSERT_NO_FATAL_FAILURE(Serve(1));
  const Header nonsense[] = {
      {.type = 9},      {.nested = 1}, {.type = kReply, .code = 0}, {.type = kRelease, .call = 1, .target = 1},
      {.target = 4711},
  };
  for (const Header& header : nonsense) {
    const RawPeer peer(root_.path());
    ASSERT_TRUE(IsTold(peer));
    peer.Send(Header{.call = 5}, {}, Way::kExpress);
    EXPECT_EQ(peer.Receive().call, 5u);
    peer.Send(header, {}, Way::kExpress);
    EXPECT_TRUE(peer.IsEnded()) << header.type << " " << header.nested << " " << header.target;
  }
  // Whoever is cut off for what it says elsewhere keeps no thread, and neither does who closes its end.
  const RawPeer cut(root_.path());
  ASSERT_TRUE(IsTold(cut));
  cut.Send(Header{.type = 9});
  EXPECT_TRUE(cut.IsEnded());
  for (const Way way : {Way::kExpress, Way::kExpressBack}) {
    RawPeer closed(root_.path());
    ASSERT_TRUE(IsTold(closed));
    closed.CloseSocket(way);
    EXPECT_TRUE(closed.IsEnded());
  }
  // Told twice, and with a descriptor.
  hci_->on_initialize = [](const auto& callbacks) { return callbacks->hciEventReceived({1}); };
  const Header express{.type = kExpress};
  for (const Header& second : {express, Header{.size = 4, .type = kExpress}, Header{.type = kExpress, .flags = 1}}) {
    const RawPeer peer = Client();
    CallInitialize(peer, Hci::descriptor, Callbacks::descriptor);
    ASSERT_EQ(peer.Receive().nested, 9u);
    peer.Send(express, {}, Way::kAnswers);
    peer.Send(second, std::vector<uint32_t>(second.size / 4), Way::kAnswers);
    EXPECT_TRUE(peer.IsEnded()) << second.size << " " << second.flags;
  }
  const RawPeer last(root_.path());
  EXPECT_TRUE(IsTold(last));
}

}  // namespace
}  // namespace bthal::test
