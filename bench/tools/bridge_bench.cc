// What a host stack behind `bthal bridge pty` gets, beside one that has the board's bare pty: a command's round trip,
// as the medians of short bursts, and data that the controller sends back, as the best of some rounds. By turns.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bthal/run/process.h"
#include "sim/board.h"
#include "support/figures.h"
#include "support/hal.h"

namespace {

using ::android::base::unique_fd;
using bthal::bench::Bytes;
using bthal::bench::Quantile;
using bthal::bench::Seconds;

// H4: with the type byte.
const Bytes kReset = {1, 0x03, 0x0C, 0};
constexpr size_t kResetAnswer = 7;
const Bytes kReadAddress = {1, 0x09, 0x10, 0};
constexpr size_t kAddressAnswer = 13;
// Local loopback: one ACL and three SCO connections are told, then the answer.
const Bytes kLoopback = {1, 0x02, 0x18, 1, 1};
constexpr size_t kLoopbackAnswer = 4 * 14 + 7;
// ACL data of the largest packet, and the credit (Number Of Completed Packets) that comes with each.
constexpr size_t kPayload = 1021;
constexpr size_t kCredit = 8;

constexpr int kTripsOfBurst = 20;
constexpr int kBursts = 200;
constexpr int kPackets = 2000;
constexpr int kRounds = 10;
constexpr auto kPatience = std::chrono::seconds(20);

// A board below a folder of its own, and a terminal behind which it answers.
class Controller {
 public:
  Controller() : root_(bthal::bench::NewRoot()) {
    bthal::sim::BoardOptions options;
    options.root = root_;
    options.patch_records = 3;
    options.journal_data_bytes = 0;
    board_ = std::make_unique<bthal::sim::Board>(options);
    board_->Start(&error_);
  }
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;
  virtual ~Controller() {
    board_.reset();
    std::filesystem::remove_all(root_);
  }

  // As soon as there is one.
  bool Open(const std::string& terminal) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!fd_.ok() && error_.empty() && std::chrono::steady_clock::now() < deadline) {
      fd_.reset(open((root_ + terminal).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
    termios attributes{};
    tcgetattr(fd_.get(), &attributes);
    cfmakeraw(&attributes);
    cfsetspeed(&attributes, B115200);
    tcsetattr(fd_.get(), TCSANOW, &attributes);
    return Exchange(kReset, kResetAnswer);
  }

  bool Exchange(const Bytes& packet, size_t answer) { return Write(packet) && Read(answer); }

  // In loopback: MB/s of data that goes and comes.
  double Loopback() {
    Bytes packet = {2, 0x01, 0x20, kPayload & 0xFF, kPayload >> 8};
    packet.resize(packet.size() + kPayload, 0x55);
    const auto start = std::chrono::steady_clock::now();
    std::thread writer([&] {
      for (int i = 0; i < kPackets; ++i) Write(packet);
    });
    Read(kPackets * (packet.size() + kCredit));
    writer.join();
    return kPackets * kPayload / Seconds(std::chrono::steady_clock::now() - start).count() / 1e6;
  }

  double MicrosecondsOfATrip() {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTripsOfBurst; ++i) Exchange(kReadAddress, kAddressAnswer);
    return Seconds(std::chrono::steady_clock::now() - start).count() / kTripsOfBurst * 1e6;
  }

  const std::string& error() const { return error_; }

 protected:
  const std::string root_;
  std::string error_;

 private:
  bool Write(const Bytes& packet) {
    return TEMP_FAILURE_RETRY(write(fd_.get(), packet.data(), packet.size())) == static_cast<ssize_t>(packet.size());
  }
  bool Read(size_t count) {
    std::array<uint8_t, 65536> buffer;
    while (count > 0) {
      const ssize_t n = TEMP_FAILURE_RETRY(read(fd_.get(), buffer.data(), std::min(count, buffer.size())));
      if (n <= 0) return false;
      count -= static_cast<size_t>(n);
    }
    return true;
  }

  std::unique_ptr<bthal::sim::Board> board_;
  unique_fd fd_;
};

class Bare : public Controller {
 public:
  Bare() {
    const unique_fd power(open((root_ + "/sys/class/rfkill/rfkill0/state").c_str(), O_WRONLY | O_CLOEXEC));
    if (!android::base::WriteStringToFd("1", power) || !Open("/dev/ttySAC16")) error_ = "the board does not answer";
  }
};

// Bridge and service wait for one another as they come, and a service that goes first complains of nobody.
class Bridged : public Controller {
 public:
  Bridged() : bridge_(Start({BTHAL_PROGRAM, "bridge", "pty", root_ + "/host"})), service_(Start({SERVICE_PROGRAM})) {
    if (!Open("/host") && error_.empty()) error_ = "nobody answers behind the bridge";
  }

 private:
  bthal::tool::Child Start(std::vector<std::string> arguments) {
    const unique_fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    bthal::tool::SpawnOptions spawn;
    spawn.arguments = std::move(arguments);
    spawn.environment = {{"BTHAL_ROOT", root_}, {"BTHAL_LOG", "error"}};
    spawn.standard_output = nowhere.get();
    return bthal::tool::Child::Spawn(spawn, &error_);
  }

  bthal::tool::Child bridge_;
  bthal::tool::Child service_;
};

struct Pair {
  std::vector<double> bridged;
  std::vector<double> bare;
};

// `prepare` for each of the two, then `measure` by turns.
template <typename Prepare, typename Measure>
Pair Compare(benchmark::State& state, int rounds, Prepare prepare, Measure measure) {
  Pair pair;
  Bridged bridged;
  Bare bare;
  for (Controller* controller : {static_cast<Controller*>(&bridged), static_cast<Controller*>(&bare)}) {
    const std::string error = controller->error().empty() && !prepare(*controller) ? "refused" : controller->error();
    if (error.empty()) continue;
    state.SkipWithError(error.c_str());
    return pair;
  }
  for (auto _ : state) {
    for (int i = 0; i < rounds; ++i) {
      pair.bridged.push_back(measure(bridged));
      pair.bare.push_back(measure(bare));
    }
  }
  return pair;
}

void RoundTrip(benchmark::State& state) {
  const Pair pair = Compare(
      state, kBursts, [](Controller&) { return true; },
      [](Controller& controller) { return controller.MicrosecondsOfATrip(); });
  if (pair.bare.empty()) return;
  bthal::bench::Tell(state, Quantile(pair.bridged, 0.5), Quantile(pair.bare, 0.5), "bridge, command round trip, median",
                     "us");
  state.counters["min"] = Quantile(pair.bridged, 0);
  state.counters["floor_min"] = Quantile(pair.bare, 0);
}
BENCHMARK(RoundTrip)->Iterations(1)->Unit(benchmark::kMillisecond);

void Loopback(benchmark::State& state) {
  const Pair pair = Compare(
      state, kRounds, [](Controller& controller) { return controller.Exchange(kLoopback, kLoopbackAnswer); },
      [](Controller& controller) { return controller.Loopback(); });
  if (pair.bare.empty()) return;
  bthal::bench::Tell(state, Quantile(pair.bridged, 1), Quantile(pair.bare, 1), "bridge, ACL sent back", "MB/s");
  state.counters["median"] = Quantile(pair.bridged, 0.5);
  state.counters["floor_median"] = Quantile(pair.bare, 0.5);
}
BENCHMARK(Loopback)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
