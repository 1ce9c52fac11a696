// A command's round trip, from the client through Binder, service and pty to the board and back. Beside the five hops
// that it must take, with a relay instead of the service and the same controller: client to service, service to
// controller, back to the service's receive thread, to the client's thread, and to the one that waits. And beside the
// two of a bare pty, whose other end echoes. As the medians of short bursts, taken by turns.
#include <benchmark/benchmark.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/figures.h"
#include "support/hal.h"
#include "support/relay.h"
#include "support/relayed_board.h"

namespace {

using bthal::bench::Bytes;
using bthal::bench::Hal;
using bthal::bench::Pty;
using bthal::bench::RelayedBoard;

const Bytes kCommand = {0x01, 0x10, 0};  // Read Local Version
constexpr size_t kCommandWithType = 4;
constexpr size_t kAnswerWithType = 15;
constexpr int kTripsOfBurst = 20;
constexpr int kBursts = 200;

using Packet = std::array<uint8_t, kAnswerWithType>;

// The other end of a pty, which sends as much as an answer has for as much as a command has.
class Echo {
 public:
  Echo()
      : thread_([this] {
          Packet packet{};
          while (bthal::bench::ReadWhole(pty_.controller.get(), packet.data(), kCommandWithType) && !ended_) {
            bthal::bench::WriteWhole(pty_.controller.get(), packet.data(), kAnswerWithType);
          }
        }) {}
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;
  ~Echo() {
    ended_ = true;
    const Packet packet{};
    bthal::bench::WriteWhole(pty_.host.get(), packet.data(), kCommandWithType);
    thread_.join();
  }

  int host() const { return pty_.host.get(); }
  void RoundTrip() const {
    Packet packet{};
    bthal::bench::WriteWhole(host(), packet.data(), kCommandWithType);
    bthal::bench::ReadWhole(host(), packet.data(), kAnswerWithType);
  }

 private:
  Pty pty_;
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

template <typename Trip>
double MicrosecondsOfATrip(Trip trip) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kTripsOfBurst; ++i) trip();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() / kTripsOfBurst;
}

void RoundTrip(benchmark::State& state) {
  const bool five_hops = state.range(0) == 5;
  signal(SIGPIPE, SIG_IGN);
  Hal hal;
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  const Echo echo;
  RelayedBoard bare(kCommandWithType, kAnswerWithType);
  if (!bare.error().empty()) return state.SkipWithError(bare.error().c_str());
  Bytes command = {1};
  command.insert(command.end(), kCommand.begin(), kCommand.end());
  std::vector<double> through;
  std::vector<double> without;
  for (auto _ : state) {
    for (int i = 0; i < kBursts; ++i) {
      through.push_back(MicrosecondsOfATrip([&] {
        const uint64_t before = hal.client().packets();
        hal.hal().sendHciCommand(kCommand);
        hal.client().WaitFor(before + 1);
      }));
      without.push_back(MicrosecondsOfATrip([&] {
        if (!five_hops) return echo.RoundTrip();
        const uint64_t before = bare.relay().packets();
        bare.relay().Send(command.data());
        bare.relay().WaitFor(before + 1);
      }));
    }
  }
  using bthal::bench::Quantile;
  using bthal::bench::Tell;
  Tell(state, Quantile(through, 0.5), Quantile(without, 0.5),
       five_hops ? "command round trip, median" : "the same by a bare pty's echo", "us");
  state.counters["min"] = Quantile(through, 0);
  state.counters["floor_min"] = Quantile(without, 0);
}
BENCHMARK(RoundTrip)->ArgName("hops")->Arg(5)->Arg(2)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
