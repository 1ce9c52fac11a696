// ACL data of 1026 bytes through client, Binder, service and pty, either way, beside a relay that does nothing but pass
// it on, over a pty of its own. The board is the same in both, and answers nothing. By turns, the best of some rounds
// of each.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "support/figures.h"
#include "support/hal.h"
#include "support/relayed_board.h"

namespace {

using bthal::bench::Bytes;
using bthal::bench::Hal;
using bthal::bench::RelayedBoard;
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
  RelayedBoard bare(kSize, kSize);
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
