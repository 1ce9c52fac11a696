// A command's round trip, from the client through Binder, service and pty to the board and back, beside the five hops
// that it must take with nothing in between: client to service, service to controller, back to the service's receive
// thread, to the client's thread, and to the one that waits. Both as the medians of short bursts, taken by turns.
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "support/figures.h"
#include "support/hal.h"

namespace {

using ::android::base::unique_fd;
using bthal::bench::Bytes;
using bthal::bench::Hal;

const Bytes kCommand = {0x01, 0x10, 0};  // Read Local Version
constexpr size_t kCommandWithType = 4;
constexpr size_t kAnswerWithType = 15;
constexpr int kTripsOfBurst = 20;
constexpr int kBursts = 200;

bool ReadWhole(int fd, size_t count) {
  std::array<uint8_t, kAnswerWithType> buffer{};
  while (count > 0) {
    const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buffer.data(), count));
    if (n <= 0) return false;
    count -= static_cast<size_t>(n);
  }
  return true;
}

void Write(int fd, size_t count) {
  const std::array<uint8_t, kAnswerWithType> bytes{};
  TEMP_FAILURE_RETRY(write(fd, bytes.data(), count));
}

// The five hops: two sockets, a pty, four threads beside the caller's, and no work.
class Hops {
 public:
  Hops() : controller_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    grantpt(controller_.get());
    unlockpt(controller_.get());
    host_.reset(open(ptsname(controller_.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios attributes{};
    tcgetattr(host_.get(), &attributes);
    cfmakeraw(&attributes);
    tcsetattr(host_.get(), TCSANOW, &attributes);
    if (!android::base::Socketpair(SOCK_STREAM, &client_down_, &service_down_) ||
        !android::base::Socketpair(SOCK_STREAM, &service_up_, &client_up_)) {
      perror("no sockets");
      abort();
    }
    threads_.emplace_back([this] { Pass(service_down_.get(), host_.get(), kCommandWithType, kCommandWithType); });
    threads_.emplace_back([this] { Pass(controller_.get(), controller_.get(), kCommandWithType, kAnswerWithType); });
    threads_.emplace_back([this] { Pass(host_.get(), service_up_.get(), kAnswerWithType, kAnswerWithType); });
    threads_.emplace_back([this] {
      while (ReadWhole(client_up_.get(), kAnswerWithType)) {
        ++answers_;
        answers_.notify_all();
      }
    });
  }
  ~Hops() {
    // Each ends the next one.
    shutdown(client_down_.get(), SHUT_RDWR);
    threads_[0].join();
    shutdown(client_up_.get(), SHUT_RDWR);
    threads_[3].join();
    Write(controller_.get(), kAnswerWithType);  // the receive thread finds its socket shut
    threads_[2].join();
    host_.reset();
    threads_[1].join();
  }

  void RoundTrip() {
    const uint64_t before = answers_;
    Write(client_down_.get(), kCommandWithType);
    for (uint64_t seen = answers_; seen == before; seen = answers_) answers_.wait(seen);
  }

 private:
  static void Pass(int from, int to, size_t count, size_t passed) {
    const std::array<uint8_t, kAnswerWithType> bytes{};
    while (ReadWhole(from, count)) {
      if (TEMP_FAILURE_RETRY(write(to, bytes.data(), passed)) < 0) return;
    }
  }

  unique_fd controller_;
  unique_fd host_;
  unique_fd client_down_;
  unique_fd service_down_;
  unique_fd service_up_;
  unique_fd client_up_;
  std::atomic<uint64_t> answers_{0};
  std::vector<std::thread> threads_;
};

template <typename Trip>
double MicrosecondsOfATrip(Trip trip) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kTripsOfBurst; ++i) trip();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() / kTripsOfBurst;
}

void RoundTrip(benchmark::State& state) {
  signal(SIGPIPE, SIG_IGN);
  Hal hal;
  hal.Initialize();
  if (!hal.error().empty()) return state.SkipWithError(hal.error().c_str());
  Hops hops;
  std::vector<double> through;
  std::vector<double> bare;
  for (auto _ : state) {
    for (int i = 0; i < kBursts; ++i) {
      through.push_back(MicrosecondsOfATrip([&] {
        const uint64_t before = hal.client().packets();
        hal.hal().sendHciCommand(kCommand);
        hal.client().WaitFor(before + 1);
      }));
      bare.push_back(MicrosecondsOfATrip([&] { hops.RoundTrip(); }));
    }
  }
  using bthal::bench::Quantile;
  using bthal::bench::Tell;
  Tell(state, Quantile(through, 0.5), Quantile(bare, 0.5), "command round trip, median", "us");
  state.counters["min"] = Quantile(through, 0);
  state.counters["floor_min"] = Quantile(bare, 0);
}
BENCHMARK(RoundTrip)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
