// ACL data of 1026 bytes through client, Binder, service and pty, either way, beside a relay that does nothing but pass
// it on, over a pty of its own. The board is the same in both, and answers nothing. By turns, the best of some rounds
// of each.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/figures.h"
#include "support/hal.h"
#include "support/relay.h"

namespace {

using ::android::base::unique_fd;
using bthal::bench::Bytes;
using bthal::bench::Hal;
using bthal::bench::Relay;
using bthal::sim::Board;
using bthal::sim::JournalEntry;
using bthal::sim::WireEvent;

constexpr uint8_t kAcl = 2;
constexpr size_t kSize = 1026;  // with the type byte
constexpr uint64_t kPackets = 4000;
constexpr int kRounds = 10;

Bytes Data() {
  constexpr size_t kPayload = kSize - 5;
  Bytes data = {0x40, 0x00, kPayload & 0xFF, kPayload >> 8};
  data.resize(kSize - 1, 0x55);
  return data;
}

// Counts the ACL packets that a board receives.
class Arrivals {
 public:
  explicit Arrivals(Board& board) : board_(board) {
    board.SetObserver([this](const JournalEntry& entry) {
      if (entry.event != WireEvent::kReceived || entry.packet_type != kAcl) return;
      if (++count_ % kPackets == 0) count_.notify_all();
    });
  }
  ~Arrivals() { board_.SetObserver({}); }

  void Wait(uint64_t count) {
    for (uint64_t seen = count_; seen < count; seen = count_) count_.wait(seen);
  }

 private:
  Board& board_;
  std::atomic<uint64_t> count_{0};
};

// A relay to a board of its own.
class Bare {
 public:
  Bare() : root_(bthal::bench::NewRoot()) {
    bthal::sim::BoardOptions options;
    options.root = root_;
    options.journal_data_bytes = 0;
    board_ = std::make_unique<Board>(options);
    if (!board_->Start(&error_)) return;
    const unique_fd power(open((root_ + "/sys/class/rfkill/rfkill0/state").c_str(), O_WRONLY | O_CLOEXEC));
    android::base::WriteStringToFd("1", power);
    port_.reset(open((root_ + "/dev/ttySAC16").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    bthal::bench::MakeRaw(port_.get());
    SetFirstSpeed();
    const bool on = board_->WaitFor(
        [](const auto& journal) {
          return std::any_of(journal.begin(), journal.end(),
                             [](const JournalEntry& entry) { return entry.event == WireEvent::kBooted; });
        },
        std::chrono::seconds(10));
    if (!on) error_ = "the board does not come up";
    relay_ = std::make_unique<Relay>(port_.get(), kSize, kSize);
  }
  ~Bare() {
    relay_.reset();
    board_.reset();
    std::filesystem::remove_all(root_);
  }

  const std::string& error() const { return error_; }
  Board& board() { return *board_; }
  Relay& relay() { return *relay_; }

 private:
  void SetFirstSpeed() {
    termios attributes{};
    tcgetattr(port_.get(), &attributes);
    cfsetspeed(&attributes, B115200);
    tcsetattr(port_.get(), TCSANOW, &attributes);
  }

  std::string root_;
  std::string error_;
  std::unique_ptr<Board> board_;
  unique_fd port_;
  std::unique_ptr<Relay> relay_;
};

template <typename Step>
double MegabytesPerSecond(Step step) {
  const auto begin = std::chrono::steady_clock::now();
  step();
  const bthal::bench::Seconds took = std::chrono::steady_clock::now() - begin;
  return static_cast<double>(kPackets * kSize) / took.count() / 1e6;
}

void SendUp(Board& board, const Bytes& data) {
  for (uint64_t i = 0; i < kPackets; ++i) board.SendPacket(kAcl, data);
}

void Throughput(benchmark::State& state) {
  const bool down = state.range(0) == 0;
  Hal hal;
  hal.Initialize();
  Bare bare;
  for (const std::string& error : {hal.error(), bare.error()}) {
    if (!error.empty()) return state.SkipWithError(error.c_str());
  }
  const Bytes data = Data();
  Bytes packet = {kAcl};
  packet.insert(packet.end(), data.begin(), data.end());
  Arrivals through(hal.board());
  Arrivals without(bare.board());
  double measured = 0;
  double floor = 0;
  for (auto _ : state) {
    for (uint64_t round = 1; round <= kRounds; ++round) {
      measured = std::max(measured, MegabytesPerSecond([&] {
                            const uint64_t before = hal.client().packets();
                            if (!down) return SendUp(hal.board(), data), hal.client().WaitFor(before + kPackets);
                            for (uint64_t i = 0; i < kPackets; ++i) hal.hal().sendAclData(data);
                            through.Wait(round * kPackets);
                          }));
      floor = std::max(floor, MegabytesPerSecond([&] {
                         const uint64_t before = bare.relay().packets();
                         if (!down) return SendUp(bare.board(), data), bare.relay().WaitFor(before + kPackets);
                         for (uint64_t i = 0; i < kPackets; ++i) bare.relay().Send(packet.data());
                         without.Wait(round * kPackets);
                       }));
    }
  }
  bthal::bench::Tell(state, measured, floor, down ? "ACL down" : "ACL up", "MB/s");
}
BENCHMARK(Throughput)->DenseRange(0, 1)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
