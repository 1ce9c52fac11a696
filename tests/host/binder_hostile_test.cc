// Peers that do not keep to the rules: it costs them their connection, and nobody else anything.
#include "host/binder_objects.h"
#include "host/raw_peer.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

class BinderHostileTest : public ::testing::Test {
 protected:
  BinderHostileTest() {
    ABinderProcess_startThreadPool();
    EXPECT_EQ(Publish(hci_), EX_NONE);
  }

  RawPeer Client() const { return FoundBy(root_.path(), HciInstance()); }

  const LogCapture log_;
  const TempRoot root_;
  const std::shared_ptr<FakeHci> hci_ = SharedRefBase::make<FakeHci>();
};

TEST_F(BinderHostileTest, MalformedMessagesCostTheConnection) {
  const RawPeer bystander = Client();
  const struct {
    const char* what;
    Header header;
    std::vector<uint32_t> body = {};
  } cases[] = {
      {"no such type", {.type = 9}},
      {"too large", {.size = (1 << 20) + 1}},
      {"huge", {.size = UINT32_MAX}},
      {"more objects than the body can hold", {.size = 4, .objects = 2}, {0}},
      {"too many objects", {.size = 65 * 4, .objects = 65}, std::vector<uint32_t>(65)},
      {"unknown flag", {.flags = 4}},
      {"a nested call in order", {.nested = 1, .flags = kInOrder}},
      {"an answer in order", {.type = kReply, .code = 0, .flags = kInOrder}},
      {"calls skipped among the calls", {.type = kSkip, .call = 1}},
      {"a descriptor announced for what is no dump", {.flags = kWithDescriptor}},
      {"a dump without a descriptor", {.code = kDump}},
      {"a descriptor announced that does not come", {.code = kDump, .flags = kWithDescriptor}},
      {"an object that was never given", {.target = 4711}},
      {"an answer among the calls", {.type = kReply, .code = 0}},
      {"a call on behalf of nothing", {.nested = 1}},
      {"a further socket, without one", {.type = kConnect}},
      {"the express socket read, among the calls", {.type = kExpress}},
      {"a reference given back that was never taken", {.type = kRelease, .call = 1, .target = 1}},
      {"nothing given back", {.type = kRelease, .call = 0, .target = 1}},
      {"a body where none belongs", {.size = 4, .type = kRelease, .call = 1, .target = 1}, {0}},
      {"an object beyond the data", {.size = 4, .objects = 1}, {4096}},
      {"an object that is cut off", {.size = 8, .objects = 1}, {1, 0}},
      {"an object at an odd place", {.size = 36, .objects = 1}, {0, 1, 0, 0, 0, 0, 0, 0, 2}},
      {"an object of no kind", {.size = 24, .objects = 1}, {7, 0, 0, 0, 0, 0}},
      {"an object whose name is cut off", {.size = 24, .objects = 1}, {1, 5, 0, 999, 0, 0}},
      {"an own object that is not known", {.size = 24, .objects = 1}, {2, 99, 0, 0, 0, 0}},
      {"objects on one another", {.size = 36, .objects = 2}, {1, 5, 0, 0, 0, 0, 0, 0, 4}},
  };
  for (const auto& [what, header, body] : cases) {
    const RawPeer peer(root_.path());
    ASSERT_TRUE(peer.Answers()) << what;
    peer.Send(header, body);
    EXPECT_TRUE(peer.IsEnded()) << what;
  }
  // Whoever does not say where the answers go gets none, and neither does who sends what is no such socket.
  {
    const RawPeer peer(root_.path(), false);
    peer.Send(Header{});
    EXPECT_TRUE(peer.IsEnded(Way::kCalls));
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const Header connect{.type = kConnect, .flags = kWithDescriptor};
    const RawPeer with_a_pipe(root_.path(), false);
    with_a_pipe.SendWithDescriptors(connect, {ends[1]});
    EXPECT_TRUE(with_a_pipe.IsEnded(Way::kCalls));
    android::base::unique_fd ours;
    android::base::unique_fd theirs;
    ASSERT_TRUE(android::base::Socketpair(SOCK_STREAM, &ours, &theirs));
    const RawPeer with_one(root_.path(), false);
    with_one.SendWithDescriptors(connect, {theirs.get()});
    with_one.Send(Header{});
    EXPECT_TRUE(with_one.IsEnded(Way::kCalls));
    const RawPeer with_four(root_.path());
    with_four.SendWithDescriptors(connect, {theirs.get()});
    EXPECT_TRUE(with_four.IsEnded());
    close(ends[0]);
    close(ends[1]);
  }
  // The rest of a message that never comes costs nothing before the peer hangs up.
  {
    const RawPeer peer(root_.path());
    peer.Send(Header{.size = 1 << 20}, {1, 2, 3});
  }
  EXPECT_TRUE(bystander.Answers());
}

// Not nonsense: a reference that is given back overtakes the answer that brings the object home.
TEST_F(BinderHostileTest, AnObjectThatIsGivenBackMayStillComeHome) {
  hci_->on_initialize = [](const auto& callbacks) { return callbacks->hciEventReceived({1}); };
  const RawPeer peer = Client();
  CallInitialize(peer, Hci::descriptor, Callbacks::descriptor);
  const Header callback = peer.Receive();
  EXPECT_EQ(callback.type, kCall);
  EXPECT_EQ(callback.nested, 9u);
  peer.Send({.type = kRelease, .call = 1, .target = 1, .code = 0});
  ASSERT_TRUE(peer.Answers()) << "and so the object was given back";
  peer.Send({.size = 20, .type = kReply, .objects = 1, .call = callback.call, .code = 0}, {0, kYourObject, 1, 0, 4},
            Way::kAnswers);
  const Header answer = peer.Receive();
  EXPECT_EQ(answer.type, kReply);
  EXPECT_EQ(answer.call, 9u);
  EXPECT_EQ(answer.code, STATUS_OK);
  // From now on it is not known.
  peer.Send({.target = 1});
  EXPECT_TRUE(peer.IsEnded());
}

TEST_F(BinderHostileTest, NonsenseForTheObjectIsAnswered) {
  const RawPeer peer = Client();
  const auto answer = [&](int32_t code, const std::vector<uint32_t>& body) {
    peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .target = 1, .code = code}, body);
    return peer.Receive().code;
  };
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION, {}), STATUS_BAD_TYPE);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION, {3, 'a' | 'b' << 8 | 'c' << 16}), STATUS_BAD_TYPE);
  EXPECT_EQ(answer(0, {}), STATUS_UNKNOWN_TRANSACTION);
  EXPECT_EQ(answer(-5, {}), STATUS_UNKNOWN_TRANSACTION);
  std::vector<uint32_t> body = Words(Hci::descriptor);
  EXPECT_EQ(answer(99, body), STATUS_UNKNOWN_TRANSACTION);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION + 3, body), STATUS_NOT_ENOUGH_DATA);
  body.push_back(1000000);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION + 3, body), STATUS_NOT_ENOUGH_DATA);
  body.back() = UINT32_MAX;
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION + 3, body), STATUS_UNEXPECTED_NULL);
  EXPECT_EQ(answer(FIRST_CALL_TRANSACTION, body), STATUS_OK);
}

TEST_F(BinderHostileTest, DescriptorsThatNobodyAskedForAreClosed) {
  const RawPeer peer = Client();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const size_t before = CountEntries("/proc/self/fd");
  for (int i = 0; i < 10; ++i) {
    peer.SendWithDescriptors(Header{.call = 5}, {ends[1], ends[1], ends[1]});
    EXPECT_EQ(peer.Receive().call, 5u);
    EXPECT_EQ(CountEntries("/proc/self/fd"), before);
  }
  // Of a dump's, one is used.
  peer.SendWithDescriptors(Header{.size = 4, .target = 1, .code = kDump, .flags = kWithDescriptor}, {ends[1], ends[1]},
                           {0});
  EXPECT_EQ(peer.Receive().code, STATUS_OK);
  // And one whose message is never completed goes with the connection.
  {
    const RawPeer other(root_.path());
    other.SendWithDescriptors(Header{.size = 400, .target = 0, .code = kDump, .flags = kWithDescriptor}, {ends[1]});
  }
  EXPECT_TRUE(WaitFor([&] { return CountEntries("/proc/self/fd") == before; }))
      << CountEntries("/proc/self/fd") - before;
  close(ends[1]);
  char text[64] = {};
  EXPECT_EQ(read(ends[0], text, sizeof(text)), 6);
  EXPECT_STREQ(text, "dumped");
  EXPECT_EQ(read(ends[0], text, sizeof(text)), 0);
  close(ends[0]);
}

TEST(BinderFloodTest, AFloodOfCallsCostsTheConnection) {
  const TempRoot root;
  ASSERT_EQ(Publish(SharedRefBase::make<FakeHci>()), EX_NONE);
  // More calls than any process has threads, all there before the first is looked at. Half of them are in order.
  const RawPeer peer(root.path());
  std::vector<Header> calls(300);
  for (size_t i = 0; i < calls.size() / 2; ++i) calls[i].flags = kInOrder;
  peer.Send(calls.data(), calls.size() * sizeof(Header));
  ABinderProcess_startThreadPool();
  EXPECT_TRUE(peer.IsEnded());
  EXPECT_TRUE(RawPeer(root.path()).Answers());
}

// Two processes ask and do not read. One thread serves everybody.
TEST(BinderDeafPeersTest, TheirAnswersWaitForThemAndNobodyElseDoes) {
  constexpr int kDeaf = 2;
  constexpr int kAsked = 8;      // answers of 100 KB: more than a socket takes, less than is kept for a peer
  constexpr int kTooMany = 100;  // more than is kept
  constexpr int32_t kSendHciCommand = FIRST_CALL_TRANSACTION + 3;
  const TempRoot root;
  const Gate ask;
  const Gate read;
  const auto deaf = [&] {
    ask.Pass();
    const RawPeer peer = FoundBy(root.path(), HciInstance());
    for (uint64_t call = 1; call <= kAsked; ++call) Call(peer, call, Hci::descriptor, kSendHciCommand);
    read.Pass();
    // Two calls that were sent without waiting may be served side by side.
    std::set<uint64_t> answered;
    for (uint64_t call = 1; call <= kAsked; ++call) answered.insert(peer.Receive().call);
    if (answered.size() != kAsked || *answered.begin() != 1 || *answered.rbegin() != kAsked) return 1;
    for (uint64_t call = 1; call <= kTooMany; ++call) Call(peer, call, Hci::descriptor, kSendHciCommand);
    ask.Pass();
    // What had been sent before the end can still be read.
    for (uint64_t call = 1; call <= kTooMany; ++call) {
      if (peer.IsEnded()) return 0;
    }
    return 2;
  };
  const Gate work;
  const Gate worked;
  ChildProcess first(deaf);
  ChildProcess second(deaf);
  ChildProcess client([&] {
    const auto hci = FindHci();
    for (;;) {
      if (work.Pass() == 'q') return 0;
      for (int i = 0; i < 100; ++i) {
        if (std::string(hci->sendHciCommand({1, 2, 3}).getMessage()) != "3") return 1;
      }
      worked.Open();
    }
  });
  const LogCapture log;
  std::atomic<int> served{0};
  const auto hci = SharedRefBase::make<FakeHci>();
  hci->on_command = [&](const Bytes& command) {
    const std::string text = command.empty() ? std::string(100'000, 'x') : std::to_string(command.size());
    if (command.empty()) ++served;
    return ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, text.c_str());
  };
  ABinderProcess_setThreadPoolMaxThreadCount(1);
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(hci), EX_NONE);
  for (int i = 0; i < kDeaf; ++i) ask.Open();
  EXPECT_TRUE(WaitFor([&] { return served == kDeaf * kAsked; })) << served;
  work.Open();
  worked.Pass();
  EXPECT_FALSE(log.Has("closing the connection"));
  // They read what waited for them, all of it, and go on to ask for more than is kept.
  for (int i = 0; i < kDeaf; ++i) read.Open();
  EXPECT_TRUE(
      WaitFor([&] { return log.Count("closing the connection to a process: it does not read its answers") == kDeaf; }));
  std::string said;
  for (const LogLine& line : log.Lines()) said += line.text + "\n";
  SCOPED_TRACE(said);
  work.Open();
  worked.Pass();
  for (int i = 0; i < kDeaf; ++i) ask.Open();
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  work.Open('q');
  EXPECT_EQ(client.Wait(), 0);
}

// The service is a plain user's, who has much to ask of it himself; root and a third user come too.
TEST(BinderUserTest, AUserHasAShareAndAStrangerNone) {
  constexpr uid_t kUser = 65534;
  constexpr uid_t kStranger = 65533;
  if (geteuid() != 0) GTEST_SKIP() << "needs to be root, to become others";
  const TempRoot root;
  // As the machine's administrator lays it out.
  const std::string run = root.path() + "/run/bthal";
  std::filesystem::create_directories(run);
  std::filesystem::permissions(run, std::filesystem::perms::owner_all);
  std::filesystem::permissions(root.path(), std::filesystem::perms::all);
  ASSERT_EQ(chown(run.c_str(), kUser, kUser), 0);
  const Gate come;
  ChildProcess admin([&] {
    come.Pass();
    const ::ndk::SpAIBinder found(AServiceManager_checkService(HciInstance().c_str()));
    return found.get() != nullptr && AIBinder_ping(found.get()) == STATUS_OK ? 0 : 1;
  });
  ChildProcess stranger([&] {
    if (setuid(kStranger) != 0) return 1;
    come.Pass();
    if (RawPeer(root.path()).Answers()) return 2;
    const LogCapture log;
    const ::ndk::SpAIBinder found(AServiceManager_checkService(HciInstance().c_str()));
    if (found.get() != nullptr) return 3;
    // Nor does he publish or set anything there.
    if (Publish(SharedRefBase::make<FakeHci>()) == EX_NONE || SetProperty("a", "b")) return 4;
    return log.Has("/run/bthal belongs to user 65534, not to user 65533 or root: it is not used") ? 0 : 5;
  });
  ASSERT_EQ(seteuid(kUser), 0);
  const LogCapture log;
  ABinderProcess_startThreadPool();
  ASSERT_EQ(Publish(SharedRefBase::make<FakeHci>()), EX_NONE);
  // The folder keeps strangers out already; here it does not.
  std::filesystem::permissions(run, std::filesystem::perms::all);
  for (const auto& socket : std::filesystem::directory_iterator(run + "/binder")) {
    std::filesystem::permissions(socket.path(), std::filesystem::perms::all);
  }
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 48; ++i) {
    peers.push_back(std::make_unique<RawPeer>(root.path()));
    ASSERT_TRUE(peers.back()->Answers()) << i;
  }
  EXPECT_FALSE(RawPeer(root.path()).Answers());
  EXPECT_TRUE(log.Has("process " + std::to_string(getpid()) + " of user 65534, who may have 48 of 64"));
  come.Open();
  come.Open();
  EXPECT_EQ(admin.Wait(), 0);
  EXPECT_EQ(stranger.Wait(), 0);
  EXPECT_EQ(log.Count("a connection of another user's process is turned away"), 1u);
  EXPECT_TRUE(log.Has(" of user 65533"));
  EXPECT_TRUE(peers.front()->Answers());
  peers.pop_back();
  EXPECT_TRUE(RawPeer(root.path()).Answers());
  EXPECT_EQ(seteuid(0), 0);
}

}  // namespace
}  // namespace bthal::test
