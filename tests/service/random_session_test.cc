// Sessions of random steps: clients that come, go, block and die, a controller that stalls, babbles, refuses, hangs up
// and restarts, signals, in orders that nobody thought of. Whatever happens, the service lives or dies as it should,
// nobody who called it waits for ever, and the next client is served. RANDOM_SESSION=N plays another session than the
// tests do.
#include <iostream>
#include <list>
#include <random>

#include "support/board_session.h"
#include "support/test.h"
#include "support/thread_client.h"

namespace bthal::test {
namespace {

constexpr int kSteps = 60;
constexpr size_t kMaxCalls = 6;
constexpr std::chrono::seconds kCallLimit(60);
const Bytes kReset = {0x03, 0x0C, 0};
const Bytes kResetDone = {0x0E, 4, 1, 0x03, 0x0C, 0};
const Bytes kVendorEvents[] = {{0xFF, 2, 0x58, 0x13}, {0xFF, 0}, {0xFF, 4, 0x58, 0x05, 0x00, 0x01}};
// At any command, so that they strike in bring-up, traffic and teardown alike.
const char* const kFaults[] = {"no-answer",
                               "no-answer,opcode=reset",
                               "late-answer,ms=700",
                               "late-answer,opcode=reset,ms=2500",
                               "wrong-status",
                               "zero-credits",
                               "zero-credits,ms=300",
                               "split,packets=20",
                               "merge,packets=5",
                               "hardware-error",
                               "debug-info,fragments=5",
                               "debug-info,reversed=1",
                               "soc-dump,fragments=9",
                               "chre-dump,short=1",
                               "root-inflammation",
                               "stray-byte",
                               "lost-byte,index=2",
                               "unknown-type",
                               "hang-up",
                               "coex-hang-up",
                               "big-hammer",
                               "big-hammer,value=0x43"};

// By abort: a report, and what no client may do.
const char* const kMeantDeaths[] = {"root inflamed event with error_code", "called before any initialize() succeeded",
                                    "Unable to link to death recipient", "Unable to unlink to death recipient"};

class RandomSessionTest : public BoardSessionTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  RandomSessionTest() : seed_(Seed()), random_(seed_) {}

  ~RandomSessionTest() override { Unstall(); }

  static unsigned Seed() {
    const char* wanted = getenv("RANDOM_SESSION");
    return wanted == nullptr ? GetParam() : static_cast<unsigned>(strtoul(wanted, nullptr, 10));
  }

  size_t Up(size_t end) { return std::uniform_int_distribution<size_t>(0, end - 1)(random_); }

  Bytes RandomBytes(size_t size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(Up(256));
    return bytes;
  }

  // --- the service and those who call it ---

  // What may block runs beside the steps. Without room for one more the step is left out.
  void Call(std::function<void()> call) {
    calls_.remove_if(
        [](const auto& done) { return done.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    if (calls_.size() < kMaxCalls) calls_.push_back(std::async(std::launch::async, std::move(call)));
  }

  void JudgeEnd() {
    const std::string end = service_->WaitForEndText();
    const bool meant =
        std::ranges::any_of(kMeantDeaths, [&](const char* why) { return service_->CountInLog(why) > 0; });
    const bool early = service_->CountInLog("sigaction(SIGTERM)") == 0;
    EXPECT_TRUE(end == "signal 9" || (end == "signal 6" && meant) || (end == "signal 15" && early)) << end << "\n"
                                                                                                    << service_->Log();
    open_ = false;
    service_.reset();
    unlink(root_.Below("/service.log").c_str());
  }

  void Serve() {
    if (service_ != nullptr && service_->IsAlive()) return;
    if (service_ != nullptr) JudgeEnd();
    ++services_;
    StartService("info");
    ASSERT_NO_FATAL_FAILURE(FindHal());
  }

  void Initialize() {
    Call([this, hal = hal_] {
      if (!hal->initialize(client_).isOk()) return;
      open_ = true;
      ++sessions_;
    });
  }

  void SendAnything() {
    Call([hal = hal_, kind = Up(4), packet = AnyPacket()] {
      for (int i = 0; i < 30; ++i) {
        if (kind == 0) hal->sendHciCommand(packet);
        if (kind == 1) hal->sendAclData(packet);
        if (kind == 2) hal->sendScoData(packet);
        if (kind == 3) hal->sendIsoData(packet);
      }
    });
  }

  // Well-formed, or nothing of the kind.
  Bytes AnyPacket() {
    if (Up(8) == 0) return RandomBytes(Up(5));
    if (Up(2) == 0) return kReset;
    Bytes packet = RandomBytes(4);
    const size_t size = Up(256);
    packet[2] = static_cast<uint8_t>(size);
    packet[3] = 0;
    packet.resize(4 + size);
    return packet;
  }

  void DumpIntoAPipe() {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ::android::base::unique_fd unread(ends[0]);
    Call([hal = hal_, end = ends[1], kept = std::make_shared<::android::base::unique_fd>(std::move(unread))] {
      hal->dump(end, nullptr, 0);
      close(end);
    });
  }

  void SpeakThread() {
    if (access(root_.Below("/data/vendor/bluetooth/thread_dispatcher_socket").c_str(), F_OK) != 0) return;
    Call([this, frame = RandomBytes(1 + Up(9000))] {
      const ThreadClient radio(root_.path());
      for (int i = 0; i < 20; ++i) radio.Send(frame);
    });
  }

  // --- the controller ---

  void Stall() {
    stalled_ = true;
    board_->SetObserver([this](const sim::JournalEntry&) { stalled_.wait(true); });
  }

  void Unstall() {
    stalled_ = false;
    stalled_.notify_all();
  }

  void Babble() {
    switch (Up(6)) {
      case 0:
        return board_->SendPacket(4, kVendorEvents[Up(std::size(kVendorEvents))]);
      case 1:
        return board_->SendPacket(2, AnyPacket());
      case 2:
        return board_->SendPacket(4, {0x0E, 4, 1, static_cast<uint8_t>(Up(256)), static_cast<uint8_t>(Up(256)), 0});
      case 3:
        return board_->SendPacket(4, {0x13, 5, 1, 0x40, 0, 1, 0});
      case 4:
        return board_->SendCoexEvent(RandomBytes(4));
      default:
        return board_->StreamThreadFrames(20, 1, 8192);
    }
  }

  void RestartBoard() {
    Unstall();
    board_.reset();
    StartBoard(SmallBoard());
  }

  void Open() {
    if (!open_) Initialize();
  }
  void Close() {
    if (open_.exchange(false)) Call([hal = hal_] { hal->close(); });
  }
  void InitializeAnother(ClientProcess& other) {
    if (!open_ || Up(4) == 0) Call([&other] { other.Initialize(); });
  }
  void SignalService() {
    if (Up(3) == 0) service_->Signal(Up(2) == 0 ? SIGTERM : SIGKILL);
  }

  void Step() {
    ClientProcess& other = clients_[Up(clients_.size())];
    // Each as often as its number says.
    const std::pair<size_t, std::function<void()>> kSteps[] = {
        {3, [&] { Open(); }},
        {2, [&] { Close(); }},
        {1, [&] { InitializeAnother(other); }},
        {1, [&] { other.Kill(); }},
        {4, [&] { SendAnything(); }},
        {1, [&] { DumpIntoAPipe(); }},
        {1, [&] { SpeakThread(); }},
        {1, [&] { Stall(); }},
        {2, [&] { Unstall(); }},
        {3, [&] { Babble(); }},
        {2, [&] { AddFault(kFaults[Up(std::size(kFaults))]); }},
        {1, [&] { Up(3) == 0 ? board_->SendRaw(RandomBytes(1 + Up(40))) : board_->ClearFaults(); }},
        {1, [&] { Up(3) == 0 ? RestartBoard() : board_->HangUpUart(); }},
        {1, [&] { SignalService(); }}};
    size_t at = Up(24);
    for (const auto& [often, step] : kSteps) {
      if (at < often) return step();
      at -= often;
    }
  }

  // With a controller in order again, a client is served; what went on before may still end one service, or two.
  bool NextClientIsServed() {
    for (int attempt = 0; attempt < 4; ++attempt) {
      Serve();
      if (HasFatalFailure()) return false;
      auto client = ndk::SharedRefBase::make<RecordingCallbacks>();
      if (open_.exchange(false)) hal_->close();
      if (hal_->initialize(client).isOk() && client->Statuses() == std::vector{HalStatus::SUCCESS}) {
        hal_->sendHciCommand(kReset);
        if (client->WaitForEvent(kResetDone)) return true;
      }
      if (service_->WaitForEndText() == "alive") return false;  // it lives, and serves nobody
    }
    return false;
  }

  const unsigned seed_;
  int services_ = 0;
  std::atomic<int> sessions_ = 0;
  std::mt19937 random_;
  std::atomic<bool> stalled_ = false;
  std::atomic<bool> open_ = false;        // a session of client_'s, as far as is known
  std::array<ClientProcess, 4> clients_;  // forked before there are threads
  std::list<std::future<void>> calls_;
};

TEST_P(RandomSessionTest, EndsWellAndTheNextClientIsServed) {
  SCOPED_TRACE("RANDOM_SESSION=" + std::to_string(seed_));
  ::android::base::SetProperty("persist.bluetooth.disable.accelerate.bt.on", Up(2) == 0 ? "false" : "true");
  ::android::base::SetProperty("persist.bluetooth.thread_dispatcher.enabled", "true");
  StartBoard(SmallBoard());
  for (int step = 0; step < kSteps; ++step) {
    ASSERT_NO_FATAL_FAILURE(Serve());
    Step();
    std::this_thread::sleep_for(std::chrono::milliseconds(Up(8) == 0 ? 500 : Up(20)));
  }
  RestartBoard();
  for (ClientProcess& client : clients_) client.Kill();
  EXPECT_TRUE(NextClientIsServed()) << service_->Log();
  service_->Signal(SIGTERM);
  EXPECT_EQ(service_->WaitForEndText(), "signal 9") << service_->Log();
  std::cout << services_ << " services, " << sessions_ << " sessions\n";
  for (const auto& call : calls_) EXPECT_EQ(call.wait_for(kCallLimit), std::future_status::ready);
}

INSTANTIATE_TEST_SUITE_P(Sessions, RandomSessionTest, ::testing::Values(1u, 2u, 3u));

}  // namespace
}  // namespace bthal::test
