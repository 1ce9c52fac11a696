// A command's round trip, from the client through Binder, service and pty to the board and back, beside a bare echo of
// as many bytes over a pty between two threads.
#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>
#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <semaphore.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>

#include "bthal/run/process.h"
#include "sim/board.h"

namespace {

using ::aidl::android::hardware::bluetooth::IBluetoothHci;
using ::aidl::android::hardware::bluetooth::Status;
using ::android::base::unique_fd;
using Bytes = std::vector<uint8_t>;

// Read Local Version with its H4 type byte, and the length of its answer with it.
constexpr std::array<uint8_t, 4> kCommand = {1, 0x01, 0x10, 0};
constexpr size_t kAnswerSize = 15;

class Semaphore {
 public:
  Semaphore() { sem_init(&semaphore_, 0, 0); }
  ~Semaphore() { sem_destroy(&semaphore_); }
  void Post() { sem_post(&semaphore_); }
  void Wait() { TEMP_FAILURE_RETRY(sem_wait(&semaphore_)); }

 private:
  sem_t semaphore_{};
};

class Client : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  ndk::ScopedAStatus initializationComplete(Status status) override {
    initialized = status == Status::SUCCESS;
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus hciEventReceived(const Bytes& /*event*/) override {
    answered.Post();
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus aclDataReceived(const Bytes& /*data*/) override { return ndk::ScopedAStatus::ok(); }
  ndk::ScopedAStatus scoDataReceived(const Bytes& /*data*/) override { return ndk::ScopedAStatus::ok(); }
  ndk::ScopedAStatus isoDataReceived(const Bytes& /*data*/) override { return ndk::ScopedAStatus::ok(); }

  std::atomic<bool> initialized{false};
  Semaphore answered;
};

// Everything between the client and the wire, for the length of the benchmark.
class Hal {
 public:
  Hal() {
    root_ = (std::filesystem::temp_directory_path() / "bthal-bench-XXXXXX").string();
    if (mkdtemp(root_.data()) == nullptr) return;
    setenv("BTHAL_ROOT", root_.c_str(), 1);
    bthal::sim::BoardOptions options;
    options.root = root_;
    options.patch_records = 3;
    board_ = std::make_unique<bthal::sim::Board>(options);
    if (!board_->Start(&error)) return;
    bthal::tool::SpawnOptions spawn;
    spawn.arguments = {SERVICE_PROGRAM};
    spawn.environment = {{"BTHAL_LOG", "error"}};
    service_ = bthal::tool::Child::Spawn(spawn, &error);
    const std::string instance = std::string(IBluetoothHci::descriptor) + "/default";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (hal == nullptr && std::chrono::steady_clock::now() < deadline) {
      hal = IBluetoothHci::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    }
    ABinderProcess_startThreadPool();
    if (hal != nullptr) hal->initialize(client);
    if (!client->initialized) error = "the HAL could not be initialised";
  }
  ~Hal() {
    if (hal != nullptr) hal->close();
    service_.Kill();
    board_.reset();
    std::filesystem::remove_all(root_);
  }

  std::string error;
  std::shared_ptr<Client> client = ndk::SharedRefBase::make<Client>();
  std::shared_ptr<IBluetoothHci> hal;

 private:
  std::string root_;
  std::unique_ptr<bthal::sim::Board> board_;
  bthal::tool::Child service_;
};

// A thread that answers kCommand with kAnswerSize bytes over a pty, and nothing else.
class Echo {
 public:
  Echo() : controller_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    grantpt(controller_.get());
    unlockpt(controller_.get());
    host_.reset(open(ptsname(controller_.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios attributes{};
    tcgetattr(host_.get(), &attributes);
    cfmakeraw(&attributes);
    tcsetattr(host_.get(), TCSANOW, &attributes);
    thread_ = std::thread([this] { Answer(); });
  }
  ~Echo() {
    host_.reset();  // the other end reads end of file
    thread_.join();
  }

  void RoundTrip() {
    TEMP_FAILURE_RETRY(write(host_.get(), kCommand.data(), kCommand.size()));
    ReadWhole(host_.get(), kAnswerSize);
  }

 private:
  static bool ReadWhole(int fd, size_t count) {
    std::array<uint8_t, kAnswerSize> buffer{};
    while (count > 0) {
      const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buffer.data(), count));
      if (n <= 0) return false;
      count -= static_cast<size_t>(n);
    }
    return true;
  }

  void Answer() {
    const std::array<uint8_t, kAnswerSize> answer{};
    while (ReadWhole(controller_.get(), kCommand.size())) {
      TEMP_FAILURE_RETRY(write(controller_.get(), answer.data(), answer.size()));
    }
  }

  unique_fd controller_;
  unique_fd host_;
  std::thread thread_;
};

double Nanoseconds(std::chrono::steady_clock::duration duration) {
  return static_cast<double>(std::chrono::nanoseconds(duration).count());
}

// Both in turn within one iteration, so that the machine's moods strike both.
void BM_RoundTrip(benchmark::State& state) {
  constexpr int kTrips = 200;
  Hal hal;
  Echo echo;
  if (!hal.error.empty()) return state.SkipWithError(hal.error.c_str());
  const Bytes command(kCommand.begin() + 1, kCommand.end());
  std::vector<double> ratios;
  double through = 0;
  double bare = 0;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kTrips; ++i) {
      hal.hal->sendHciCommand(command);
      hal.client->answered.Wait();
    }
    const auto middle = std::chrono::steady_clock::now();
    for (int i = 0; i < kTrips; ++i) echo.RoundTrip();
    const auto end = std::chrono::steady_clock::now();
    through = Nanoseconds(middle - begin);
    bare = Nanoseconds(end - middle);
    ratios.push_back(through / bare);
    state.SetIterationTime(through / kTrips / 1e9);
  }
  std::nth_element(ratios.begin(), ratios.begin() + static_cast<ptrdiff_t>(ratios.size() / 2), ratios.end());
  state.counters["bare_us"] = bare / kTrips / 1000;
  state.counters["ratio"] = ratios[ratios.size() / 2];
}
BENCHMARK(BM_RoundTrip)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(20)->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
