// ACL data of 1026 bytes through client, Binder, service and pty, either way, beside a relay that does nothing but pass
// it on: over a socket, each packet acknowledged, as a call of the interface is, and over a pty of its own. The board
// is the same in both, and answers nothing. By turns, the best of some rounds of each.
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/socket.h>
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

#include "support/figures.h"
#include "support/hal.h"

namespace {

using ::android::base::unique_fd;
using bthal::bench::Bytes;
using bthal::bench::Hal;
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

bool ReadWhole(int fd, uint8_t* bytes, size_t count) { return android::base::ReadFully(fd, bytes, count); }

// A client's end of a socket, a relay's at the other, and the port.
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
    termios attributes{};
    tcgetattr(port_.get(), &attributes);
    cfmakeraw(&attributes);
    cfsetspeed(&attributes, B115200);
    tcsetattr(port_.get(), TCSANOW, &attributes);
    const bool on = board_->WaitFor(
        [](const auto& journal) {
          return std::any_of(journal.begin(), journal.end(),
                             [](const JournalEntry& entry) { return entry.event == WireEvent::kBooted; });
        },
        std::chrono::seconds(10));
    if (!on) error_ = "the board does not come up";
    if (!android::base::Socketpair(SOCK_STREAM, &client_, &relay_)) error_ = "no sockets";
  }
  ~Bare() {
    board_.reset();
    std::filesystem::remove_all(root_);
  }

  const std::string& error() const { return error_; }
  Board& board() { return *board_; }

  // As the client: what it sends is on its way when this returns.
  void Write(const Bytes& packet) {
    android::base::WriteFully(client_.get(), packet.data(), packet.size());
    ReadWhole(client_.get(), &acknowledgement_, 1);
  }
  // Runs a relay from the client to the port.
  std::thread RelayDown() {
    return std::thread([this] {
      std::array<uint8_t, kSize> packet;
      while (ReadWhole(relay_.get(), packet.data(), packet.size())) {
        android::base::WriteFully(port_.get(), packet.data(), packet.size());
        android::base::WriteFully(relay_.get(), packet.data(), 1);
      }
    });
  }
  void EndOfClient() { shutdown(client_.get(), SHUT_RDWR); }

  // Relays that many packets from the port to a client of its own.
  void RelayUp(uint64_t packets) {
    std::thread client([this, packets] {
      std::array<uint8_t, kSize> packet;
      for (uint64_t i = 0; i < packets && ReadWhole(client_.get(), packet.data(), packet.size()); ++i) {
        android::base::WriteFully(client_.get(), packet.data(), 1);
      }
    });
    std::array<uint8_t, 64 * kSize> buffer;
    size_t have = 0;
    for (uint64_t i = 0; i < packets;) {
      const ssize_t n = TEMP_FAILURE_RETRY(read(port_.get(), buffer.data() + have, buffer.size() - have));
      if (n <= 0) break;
      have += static_cast<size_t>(n);
      size_t begin = 0;
      for (; have - begin >= kSize; begin += kSize, ++i) {
        android::base::WriteFully(relay_.get(), buffer.data() + begin, kSize);
        ReadWhole(relay_.get(), &acknowledgement_, 1);
      }
      std::copy(buffer.begin() + static_cast<ptrdiff_t>(begin), buffer.begin() + static_cast<ptrdiff_t>(have),
                buffer.begin());
      have -= begin;
    }
    client.join();
  }

 private:
  std::string root_;
  std::string error_;
  std::unique_ptr<Board> board_;
  unique_fd port_;
  unique_fd client_;
  unique_fd relay_;
  uint8_t acknowledgement_ = 0;
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
  std::thread relay;
  if (down) relay = bare.RelayDown();
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
                         if (!down) return SendUp(bare.board(), data), bare.RelayUp(kPackets);
                         for (uint64_t i = 0; i < kPackets; ++i) bare.Write(packet);
                         without.Wait(round * kPackets);
                       }));
    }
  }
  bare.EndOfClient();
  if (relay.joinable()) relay.join();
  bthal::bench::Tell(state, measured, floor, down ? "ACL down" : "ACL up", "MB/s");
}
BENCHMARK(Throughput)->DenseRange(0, 1)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
