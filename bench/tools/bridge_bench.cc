// What a host stack behind `bthal bridge pty` gets, beside one that has the board's bare pty: a command's round trip,
// and data that the controller sends back.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bthal/run/process.h"
#include "sim/board.h"

namespace {

using ::android::base::unique_fd;
using Bytes = std::vector<uint8_t>;
using Seconds = std::chrono::duration<double>;

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

constexpr int kTrips = 200;
constexpr int kPackets = 2000;
constexpr auto kPatience = std::chrono::seconds(20);

// A board below a folder of its own, and a terminal behind which it answers.
class Controller {
 public:
  Controller() {
    root_ = (std::filesystem::temp_directory_path() / "bthal-bench-XXXXXX").string();
    if (mkdtemp(root_.data()) == nullptr) return;
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

  // The seconds that it takes the packets to go and come, which must be in loopback.
  double EchoAll() {
    Bytes packet = {2, 0x01, 0x20, kPayload & 0xFF, kPayload >> 8};
    packet.resize(packet.size() + kPayload, 0x55);
    const auto start = std::chrono::steady_clock::now();
    std::thread writer([&] {
      for (int i = 0; i < kPackets; ++i) Write(packet);
    });
    Read(kPackets * (packet.size() + kCredit));
    writer.join();
    return Seconds(std::chrono::steady_clock::now() - start).count();
  }

  double Trips() {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTrips; ++i) Exchange(kReadAddress, kAddressAnswer);
    return Seconds(std::chrono::steady_clock::now() - start).count();
  }

  const std::string& error() const { return error_; }

 protected:
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

  std::string root_;
  std::string error_;

 private:
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

// Both in turn within one iteration, so that the machine's moods strike both. The best of each, and the median of the
// ratios.
template <typename Measure>
void Compare(benchmark::State& state, Controller& bridged, Controller& bare, Measure measure, const char* unit,
             double (*in_unit)(double seconds)) {
  if (!bridged.error().empty()) return state.SkipWithError(bridged.error().c_str());
  if (!bare.error().empty()) return state.SkipWithError(bare.error().c_str());
  std::vector<double> ratios;
  std::vector<double> floor;
  std::vector<double> through;
  for (auto _ : state) {
    through.push_back(measure(bridged));
    floor.push_back(measure(bare));
    ratios.push_back(through.back() / floor.back());
    state.SetIterationTime(through.back());
  }
  for (std::vector<double>* values : {&ratios, &floor, &through}) std::sort(values->begin(), values->end());
  state.counters[std::string("bare_") + unit] = in_unit(floor.front());
  state.counters[std::string("bridge_") + unit] = in_unit(through.front());
  state.counters["ratio_of_best"] = through.front() / floor.front();
  state.counters["ratio"] = ratios[ratios.size() / 2];
}

void BM_RoundTrip(benchmark::State& state) {
  Bridged bridged;
  Bare bare;
  Compare(
      state, bridged, bare, [](Controller& controller) { return controller.Trips(); }, "us",
      [](double seconds) { return seconds / kTrips * 1e6; });
}
BENCHMARK(BM_RoundTrip)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20)->Repetitions(3);

void BM_Loopback(benchmark::State& state) {
  Bridged bridged;
  Bare bare;
  for (Controller* controller : {static_cast<Controller*>(&bridged), static_cast<Controller*>(&bare)}) {
    if (!controller->Exchange(kLoopback, kLoopbackAnswer)) return state.SkipWithError("no loopback mode");
  }
  Compare(
      state, bridged, bare, [](Controller& controller) { return controller.EchoAll(); }, "MB_s",
      [](double seconds) { return kPackets * kPayload / seconds / 1e6; });
}
BENCHMARK(BM_Loopback)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
