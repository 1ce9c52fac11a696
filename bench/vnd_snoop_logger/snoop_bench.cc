// What it costs to capture a packet, beside a bare write of the same bytes to a file of its own. Each round captures
// and writes as many packets as a snoop file holds, so that neither file grows without end.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>

#include "support/figures.h"
#include "vnd_snoop_logger.h"

namespace {

using android::base::SetProperty;
using android::hardware::bluetooth::VndSnoopLogger;
using android::hardware::bluetooth::hci::HciPacket;

constexpr size_t kRecordHeaderSize = 25;
constexpr size_t kPacketsPerRound = 4000;
constexpr char kFolder[] = "/data/vendor/bluetooth";

// A device root with the log switched on, gone at the end.
class Root {
 public:
  Root() {
    std::string pattern = (std::filesystem::temp_directory_path() / "snoop-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) abort();
    path_ = pattern;
    setenv("BTHAL_ROOT", path_.c_str(), 1);
    std::filesystem::create_directories(path_ + kFolder);
    SetProperty("persist.bluetooth.vendor.btsnoop", "true");
    SetProperty("persist.bluetooth.btsnooplogmode", "full");
  }
  ~Root() { std::filesystem::remove_all(path_); }

  std::string BareFile() const { return path_ + kFolder + std::string("/bare"); }

 private:
  std::string path_;
};

template <typename Step>
double NanosecondsPerPacket(Step step) {
  const auto start = std::chrono::steady_clock::now();
  for (size_t i = 0; i < kPacketsPerRound; ++i) step();
  const std::chrono::duration<double, std::nano> passed = std::chrono::steady_clock::now() - start;
  return passed.count() / kPacketsPerRound;
}

void Capture(benchmark::State& state) {
  android::base::SetMinimumLogSeverity(android::base::ERROR);
  const Root root;
  HciPacket packet;
  packet.resize(static_cast<size_t>(state.range(0)));
  const std::vector<uint8_t> bytes(kRecordHeaderSize + packet.size());
  auto& logger = VndSnoopLogger::Get();
  double bare_best = std::numeric_limits<double>::max();
  double capture_best = std::numeric_limits<double>::max();
  for (auto _ : state) {
    const android::base::unique_fd bare(open(root.BareFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    bare_best = std::min(bare_best, NanosecondsPerPacket([&] {
                           if (write(bare.get(), bytes.data(), bytes.size()) < 0) abort();
                         }));
    logger.Start();
    capture_best = std::min(capture_best, NanosecondsPerPacket([&] {
                              logger.Capture(packet, VndSnoopLogger::kFromController, VndSnoopLogger::kAclData, false);
                            }));
    logger.Stop();
  }
  bthal::bench::Tell(state, capture_best, bare_best, "capture of " + std::to_string(packet.size()) + " bytes", "ns");
}
BENCHMARK(Capture)->ArgName("bytes")->Arg(7)->Arg(64)->Arg(1026)->Arg(8192);

}  // namespace

BENCHMARK_MAIN();
