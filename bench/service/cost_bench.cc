// What a packet costs the service: allocations, system calls, and the CPU time of a line that is saturated at 4 Mbit/s
// by packets of one size; and what the service costs by itself: its start, and its memory before and after a million
// packets.
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/figures.h"
#include "support/hal.h"

namespace {

using ::android::base::unique_fd;
using bthal::bench::Bytes;
using bthal::bench::Hal;
using bthal::bench::Tell;

const Bytes kReadVersion = {0x01, 0x10, 0};
constexpr uint8_t kAcl = 2;
constexpr uint8_t kEvent = 4;
constexpr double kBitsPerByte = 10;  // with start and stop bit
constexpr double kLineBits = 4'000'000;
// How much the board may have under way, so that its own memory does not matter.
constexpr uint64_t kUnderWay = 1000;

enum Way { kRoundTrip, kDown, kUp };
constexpr const char* kWayNames[] = {"command round trip", "ACL packet down", "LE report up"};

// An LE Advertising Report with its type byte, `size` bytes long.
Bytes Report(size_t size) {
  Bytes report = {0x3E, static_cast<uint8_t>(size - 3), 0x02, 0x01};
  report.resize(size - 1, 0x55);
  return report;
}

Bytes Acl(size_t size) {
  Bytes data = {0x40, 0x20, static_cast<uint8_t>(size - 5), static_cast<uint8_t>((size - 5) >> 8)};
  data.resize(size - 1, 0x55);
  return data;
}

void SendUp(Hal& hal, uint8_t type, const Bytes& packet, uint64_t count) {
  const uint64_t begin = hal.client().packets();
  for (uint64_t i = 0; i < count; ++i) {
    if (i >= kUnderWay) hal.client().WaitFor(begin + i - kUnderWay + 1);
    hal.board().SendPacket(type, packet);
  }
  hal.client().WaitFor(begin + count);
}

void Pass(Hal& hal, Way way, uint64_t packets) {
  const Bytes data = Acl(64);
  for (uint64_t i = 0; way != kUp && i < packets; ++i) {
    const uint64_t before = hal.client().packets();
    if (way == kDown) {
      hal.hal().sendAclData(data);
    } else {
      hal.hal().sendHciCommand(kReadVersion);
      hal.client().WaitFor(before + 1);
    }
  }
  if (way == kUp) SendUp(hal, kEvent, Report(31), packets);
}

// A number that the service counts up.
class Counter {
 public:
  Counter() : path_(std::filesystem::temp_directory_path() / ("bthal-count-" + std::to_string(getpid()))) {
    android::base::WriteStringToFile(std::string(sizeof(uint64_t), '\0'), path_);
    const unique_fd fd(open(path_.c_str(), O_RDWR | O_CLOEXEC));
    memory_ = mmap(nullptr, sizeof(uint64_t), PROT_READ, MAP_SHARED, fd.get(), 0);
  }
  ~Counter() {
    munmap(memory_, sizeof(uint64_t));
    std::filesystem::remove(path_);
  }

  const std::string& path() const { return path_; }
  uint64_t value() const { return static_cast<const std::atomic<uint64_t>*>(memory_)->load(); }

 private:
  const std::string path_;
  void* memory_;
};

void Allocations(benchmark::State& state) {
  constexpr uint64_t kWarmUp = 1000;
  constexpr uint64_t kPackets = 2000;
  const auto way = static_cast<Way>(state.range(0));
  const Counter counter;
  Hal hal({}, {{"LD_PRELOAD", COUNTER_LIBRARY}, {"BTHAL_COUNT_ALLOCATIONS", counter.path()}});
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  for (auto _ : state) {
    Pass(hal, way, kWarmUp);
    const uint64_t before = counter.value();
    Pass(hal, way, kPackets);
    // What the interface's vector takes of a call that the service serves.
    const double floor = way == kUp ? 0 : 1;
    Tell(state, static_cast<double>(counter.value() - before) / kPackets, floor,
         std::string("allocations, ") + kWayNames[way], "a packet");
  }
}
BENCHMARK(Allocations)->DenseRange(kRoundTrip, kUp)->Iterations(1);

// The number in the column "calls" of the last line of what `strace -c` writes:
//   100.00    0.000123           1       123         4 total
double TotalCalls(const std::string& path) {
  std::string text;
  android::base::ReadFileToString(path, &text);
  const size_t total = text.rfind("\n100.00");
  if (total == std::string::npos) return 0;
  std::istringstream line(text.substr(total));
  double percent = 0;
  double seconds = 0;
  double each = 0;
  double calls = 0;
  line >> percent >> seconds >> each >> calls;
  return calls;
}

void SystemCalls(benchmark::State& state) {
  constexpr uint64_t kPackets = 2000;
  const auto way = static_cast<Way>(state.range(0));
  Hal hal;
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  const std::string report = std::filesystem::temp_directory_path() / ("bthal-strace-" + std::to_string(getpid()));
  for (auto _ : state) {
    bthal::tool::SpawnOptions spawn;
    spawn.arguments = {"/usr/bin/strace", "-f", "-qq", "-c", "-o", report, "-p", std::to_string(hal.service())};
    std::string error;
    auto strace = bthal::tool::Child::Spawn(spawn, &error);
    if (!strace.running()) return state.SkipWithError(("strace is needed: " + error).c_str());
    // It has the service when the service has a tracer.
    std::string status;
    do {
      android::base::ReadFileToString("/proc/" + std::to_string(hal.service()) + "/status", &status);
    } while (status.find("TracerPid:\t0\n") != std::string::npos && !strace.Wait(std::chrono::milliseconds(1)));
    Pass(hal, way, kPackets);
    strace.Signal(SIGINT);
    strace.Wait(std::chrono::seconds(10));
  }
  const double calls = TotalCalls(report) / kPackets;
  std::filesystem::remove(report);
  if (calls == 0) return state.SkipWithError("strace counted nothing: may it trace here?");
  // A call that is served by the thread that stays with the client: read, answer. A packet to the controller: a write;
  // from it: look, read (often many at once). A call to the client: write, read; of a flood, up to 16 in one.
  const double floor = way == kRoundTrip ? 7 : way == kDown ? 3 : 2.0 / 16;
  Tell(state, calls, floor, std::string("system calls, ") + kWayNames[way], "a packet");
}
BENCHMARK(SystemCalls)->DenseRange(kRoundTrip, kUp)->Iterations(1);

void SaturatedLine(benchmark::State& state) {
  constexpr double kWireSeconds = 2;
  const auto size = static_cast<size_t>(state.range(0));
  bthal::sim::BoardOptions options;
  options.pace = true;
  Hal hal(options);
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  const auto packets = static_cast<uint64_t>(kWireSeconds * kLineBits / kBitsPerByte / static_cast<double>(size));
  const double wire = static_cast<double>(packets * size) * kBitsPerByte / kLineBits;
  for (auto _ : state) {
    const auto before = bthal::bench::CpuTime(hal.service());
    SendUp(hal, size < 64 ? kEvent : kAcl, size < 64 ? Report(size) : Acl(size), packets);
    const double used = (bthal::bench::CpuTime(hal.service()) - before).count() / wire;
    Tell(state, 100 * used, 100, "line full of " + std::to_string(size) + "-byte packets", "% CPU");
  }
}
BENCHMARK(SaturatedLine)->Arg(1026)->Arg(256)->Arg(64)->Arg(31)->Iterations(1);

void Start(benchmark::State& state) {
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    const Hal hal;
    if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
    const double with_board = bthal::bench::Seconds(std::chrono::steady_clock::now() - begin).count();
    const auto exec = std::chrono::steady_clock::now();
    std::string error;
    bthal::tool::SpawnOptions spawn;
    spawn.arguments = {"/bin/true"};
    bthal::tool::Child::Spawn(spawn, &error).Wait(std::chrono::seconds(10));
    const double bare = bthal::bench::Seconds(std::chrono::steady_clock::now() - exec).count();
    Tell(state, 1000 * with_board, 1000 * bare, "start of board and service", "ms");
  }
}
BENCHMARK(Start)->Iterations(1);

void Memory(benchmark::State& state) {
  constexpr uint64_t kPackets = 1'000'000;
  Hal hal;
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  for (auto _ : state) {
    SendUp(hal, kEvent, Report(31), 10'000);
    const double before = bthal::bench::ResidentKib(hal.service());
    SendUp(hal, kEvent, Report(31), kPackets);
    Tell(state, bthal::bench::ResidentKib(hal.service()), before, "memory after 1,000,000 packets", "KiB");
  }
}
BENCHMARK(Memory)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
