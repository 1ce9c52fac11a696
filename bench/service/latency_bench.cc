// How long an LE event takes from the controller to the client while another thread of the client sends data without
// pause to a controller that takes 400 kB/s, so that a write is blocked nearly always; beside the same without that
// data.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/figures.h"
#include "support/hal.h"

namespace {

using bthal::bench::Bytes;
using bthal::bench::Hal;
using Clock = std::chrono::steady_clock;

constexpr uint8_t kEvent = 4;
// LE Meta, as long as the time that it carries and a subevent that nobody watches.
constexpr uint8_t kLeMeta = 0x3E;
constexpr uint8_t kSubevent = 0x7F;
constexpr size_t kTimeOffset = 3;
constexpr auto kPause = std::chrono::microseconds(500);

int Events() {
  const char* events = getenv("BENCH_EVENTS");
  return events == nullptr ? 5000 : atoi(events);
}

Bytes StampedEvent() {
  const int64_t now = Clock::now().time_since_epoch().count();
  Bytes event = {kLeMeta, 1 + sizeof(now), kSubevent};
  event.resize(kTimeOffset + sizeof(now));
  memcpy(event.data() + kTimeOffset, &now, sizeof(now));
  return event;
}

double MicrosecondsSince(const Bytes& event) {
  int64_t then = 0;
  memcpy(&then, event.data() + kTimeOffset, sizeof(then));
  return std::chrono::duration<double, std::micro>(Clock::now().time_since_epoch() - Clock::duration(then)).count();
}

// Sends ACL data until it is told to stop.
class Flood {
 public:
  explicit Flood(Hal& hal)
      : thread_([this, &hal] {
          Bytes data = {0x40, 0x00, 0xFD, 0x03};
          data.resize(4 + 1021, 0x55);
          while (!stopped_) hal.hal().sendAclData(data);
        }) {}
  ~Flood() {
    stopped_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

// Microseconds of each event.
std::vector<double> Latencies(Hal& hal, std::vector<double>& taken, std::mutex& mutex) {
  for (int i = 0, events = Events(); i < events; ++i) {
    const uint64_t before = hal.client().packets();
    hal.board().SendPacket(kEvent, StampedEvent());
    hal.client().WaitFor(before + 1);
    std::this_thread::sleep_for(kPause);
  }
  const std::lock_guard lock(mutex);
  return std::exchange(taken, {});
}

void BlockedWrite(benchmark::State& state) {
  bthal::sim::BoardOptions options;
  options.pace = true;
  Hal hal(options);
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  std::mutex mutex;
  std::vector<double> taken;
  hal.client().on_event = [&](const Bytes& event) {
    if (event.size() != kTimeOffset + sizeof(int64_t) || event[0] != kLeMeta || event[2] != kSubevent) return;
    const double latency = MicrosecondsSince(event);
    const std::lock_guard lock(mutex);
    taken.push_back(latency);
  };
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  std::vector<double> idle;
  std::vector<double> blocked;
  for (auto _ : state) {
    idle = Latencies(hal, taken, mutex);
    const Flood flood(hal);
    blocked = Latencies(hal, taken, mutex);
  }
  using bthal::bench::Quantile;
  using bthal::bench::Tell;
  Tell(state, Quantile(blocked, 0.99), Quantile(idle, 0.99), "LE event under a blocked write, p99", "us");
  for (const auto& [name, values] : {std::pair("", &blocked), std::pair("floor_", &idle)}) {
    state.counters[name + std::string("p50")] = Quantile(*values, 0.5);
    state.counters[name + std::string("max")] = Quantile(*values, 1);
  }
}
BENCHMARK(BlockedWrite)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
