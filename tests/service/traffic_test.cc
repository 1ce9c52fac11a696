// A great many packets of every kind, both ways at once, through the real service.
#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>

#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

// Sanitizers make every packet some twenty times as dear.
#ifdef BTHAL_SANITIZED
constexpr uint32_t kPacketsOfAKind = 4'000;
#else
constexpr uint32_t kPacketsOfAKind = 100'000;
#endif
constexpr uint32_t kCommandSenders = 4;
constexpr uint32_t kCommandsAhead = 1000;
constexpr auto kPatience = std::chrono::minutes(4);

constexpr uint8_t kCommandType = 1;
constexpr uint8_t kEventType = 4;
constexpr uint8_t kLoopbackCommand = 0x19;
constexpr uint8_t kConnectionComplete = 0x03;
const Bytes kReset = {0x03, 0x0C, 0};
const Bytes kWriteLocalLoopback = {0x02, 0x18, 1, 1};

void PutNumber(Bytes& packet, uint32_t number) {
  for (int shift = 0; shift < 32; shift += 8) packet.push_back(static_cast<uint8_t>(number >> shift));
}

uint32_t NumberAt(const Bytes& packet, size_t offset) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i) number |= static_cast<uint32_t>(packet.at(offset + i)) << 8 * i;
  return number;
}

// Numbers that must come in order, each once.
class Sequence {
 public:
  void Take(uint32_t number) {
    if (number != next_) ++faults_;
    next_ = number + 1;
  }
  uint32_t taken() const { return next_; }
  uint32_t faults() const { return faults_; }

 private:
  std::atomic<uint32_t> next_{0};
  std::atomic<uint32_t> faults_{0};
};

// Checks what comes back, and keeps nothing of it.
class CheckingCallbacks : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  ndk::ScopedAStatus initializationComplete(HalStatus status) override {
    initialized = status == HalStatus::SUCCESS;
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus hciEventReceived(const Bytes& event) override {
    if (event[0] == kConnectionComplete) {
      handles[connections++ % handles.size()] = event.at(3) | event.at(4) << 8;
    } else if (event[0] == kLoopbackCommand) {
      const uint32_t number = NumberAt(event, 5);
      commands[number / kPacketsOfAKind % kCommandSenders].Take(number % kPacketsOfAKind);
      ++commands_back;
    } else {
      ++other_events;
    }
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus aclDataReceived(const Bytes& data) override { return Take(acl, data, 4); }
  ndk::ScopedAStatus scoDataReceived(const Bytes& data) override { return Take(sco, data, 3); }
  ndk::ScopedAStatus isoDataReceived(const Bytes& data) override { return Take(iso, data, 4); }

  std::atomic<bool> initialized{false};
  std::atomic<uint32_t> connections{0};
  std::array<std::atomic<int>, 8> handles{};
  std::array<Sequence, kCommandSenders> commands;
  std::atomic<uint32_t> commands_back{0};
  std::atomic<uint32_t> other_events{0};
  Sequence acl;
  Sequence sco;
  Sequence iso;

 private:
  static ndk::ScopedAStatus Take(Sequence& sequence, const Bytes& data, size_t header) {
    sequence.Take(NumberAt(data, header));
    return ndk::ScopedAStatus::ok();
  }
};

// The resident memory of a process, in KiB.
size_t ResidentKib(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    size_t kib = 0;
    if (word == "VmRSS:" && status >> kib) return kib;
  }
  return 0;
}

// Over the UART, or over the sensor hub.
class TrafficTest : public BoardSessionTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    sim::BoardOptions options = SmallBoard();
    options.journal_data_bytes = 1024 * 1024;
    options.hub = GetParam();
    ASSERT_NO_FATAL_FAILURE(StartBoard(options));
    StartService("info");
    ASSERT_NO_FATAL_FAILURE(FindHal());
    ASSERT_TRUE(hal_->initialize(checker_).isOk());
    ASSERT_TRUE(WaitFor([&] { return checker_->initialized.load(); }));
    ASSERT_TRUE(hal_->sendHciCommand(kReset).isOk());
    ASSERT_TRUE(hal_->sendHciCommand(kWriteLocalLoopback).isOk());
    // One ACL and three SCO connections come with local loopback, then the answer.
    ASSERT_TRUE(WaitFor([&] { return checker_->connections >= 4 && checker_->other_events >= 2; }));
    journal_before_ = board_->Journal().size();
  }

  // Sends the whole of one kind; the number of each packet is its first payload.
  template <typename Send>
  std::thread Flood(uint32_t first, uint32_t count, Bytes header, Send send) {
    return std::thread([=]() mutable {
      for (uint32_t number = first; number < first + count; ++number) {
        Bytes packet = header;
        PutNumber(packet, number);
        if (!send(packet).isOk()) return;
      }
    });
  }

  // The service queues no more commands than it says; a stack knows how many of its own wait there.
  static void WaitForRoom(const Sequence& commands, uint32_t sent) {
    WaitFor([&] { return sent - commands.taken() < kCommandsAhead; }, kPatience);
  }

  void FloodAll(uint32_t packets) {
    const auto low = [&](int handle) { return static_cast<uint8_t>(checker_->handles[handle] & 0xFF); };
    const auto high = [&](int handle) { return static_cast<uint8_t>(checker_->handles[handle] >> 8); };
    std::vector<std::thread> senders;
    for (uint32_t sender = 0; sender < kCommandSenders; ++sender) {
      senders.push_back(Flood(sender * kPacketsOfAKind, packets / kCommandSenders, {0x01, 0x04, 4},
                              [this, sender, sent = 0u](const Bytes& packet) mutable {
                                WaitForRoom(checker_->commands[sender], sent++);
                                return hal_->sendHciCommand(packet);
                              }));
    }
    senders.push_back(
        Flood(0, packets, {low(0), high(0), 4, 0}, [&](const Bytes& packet) { return hal_->sendAclData(packet); }));
    senders.push_back(
        Flood(0, packets, {low(1), high(1), 4}, [&](const Bytes& packet) { return hal_->sendScoData(packet); }));
    senders.push_back(
        Flood(0, packets, {low(0), high(0), 4, 0}, [&](const Bytes& packet) { return hal_->sendIsoData(packet); }));
    for (std::thread& sender : senders) sender.join();
  }

  size_t journal_before_ = 0;
  std::shared_ptr<CheckingCallbacks> checker_ = ndk::SharedRefBase::make<CheckingCallbacks>();
};

INSTANTIATE_TEST_SUITE_P(Paths, TrafficTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Hub" : "Uart"; });

TEST_P(TrafficTest, NothingIsLostReorderedOrDuplicatedAndMemoryStaysFlat) {
  size_t early_kib = 0;
  std::thread watch([&] {
    WaitFor([&] { return checker_->acl.taken() > kPacketsOfAKind / 5; }, kPatience);
    early_kib = ResidentKib(service_->pid());
  });
  FloodAll(kPacketsOfAKind);
  EXPECT_TRUE(WaitFor(
      [&] {
        return checker_->commands_back == kPacketsOfAKind && checker_->acl.taken() == kPacketsOfAKind &&
               checker_->sco.taken() == kPacketsOfAKind && checker_->iso.taken() == kPacketsOfAKind;
      },
      kPatience))
      << checker_->commands_back << " commands, " << checker_->acl.taken() << " ACL, " << checker_->sco.taken()
      << " SCO, " << checker_->iso.taken() << " ISO came back";
  watch.join();
  for (const Sequence& sender : checker_->commands) {
    EXPECT_EQ(sender.taken(), kPacketsOfAKind / kCommandSenders);
    EXPECT_EQ(sender.faults(), 0U);
  }
  EXPECT_EQ(checker_->acl.faults() + checker_->sco.faults() + checker_->iso.faults(), 0U);

  // The board saw one command at a time: each only after the one before had been answered.
  uint32_t outstanding = 0;
  uint32_t overlaps = 0;
  for (const JournalEntry& entry : board_->Journal(journal_before_)) {
    EXPECT_NE(entry.event, WireEvent::kLostBytes) << entry.text;
    if (entry.event == WireEvent::kReceived && entry.packet_type == kCommandType && ++outstanding > 1) ++overlaps;
    if (entry.event == WireEvent::kSent && entry.packet_type == kEventType && !entry.bytes.empty() &&
        (entry.bytes[0] == 0x0E || entry.bytes[0] == 0x0F || entry.bytes[0] == kLoopbackCommand)) {
      outstanding = 0;
    }
  }
  EXPECT_EQ(overlaps, 0U);

#ifndef BTHAL_SANITIZED  // whose own bookkeeping grows
  constexpr size_t kSlackKib = 2048;
  EXPECT_LT(ResidentKib(service_->pid()), early_kib + kSlackKib);
#endif
}

}  // namespace
}  // namespace bthal::test
