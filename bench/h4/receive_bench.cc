// Receive parsing, from the bytes of a read to the callback of each packet, beside the least that such a parser can do:
// a walk that finds each packet and copies it once. Both get the same streams in the same chunks, by turns, and call
// the same kind of callback. Each cell's figures are the best pass of each, in nanoseconds a packet, and their ratio.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "h4/h4_protocol.h"
#include "hci/hci_packet.h"
#include "support/figures.h"

namespace {

using android::hardware::bluetooth::hci::H4Protocol;
using android::hardware::bluetooth::hci::HciPacket;
using android::hardware::bluetooth::hci::HciPacketCallback;
using android::hardware::bluetooth::hci::HciPacketizer;

constexpr size_t kPacketsPerStream = 2048;
constexpr uint8_t kAcl = 0x02;
constexpr uint8_t kEvent = 0x04;

using Bytes = std::vector<uint8_t>;

void AppendEvent(Bytes& out, uint8_t code, size_t size_with_type) {
  const size_t parameters = size_with_type - 3;
  out.insert(out.end(), {kEvent, code, static_cast<uint8_t>(parameters)});
  for (size_t i = 0; i < parameters; ++i) out.push_back(static_cast<uint8_t>(i));
}

void AppendAcl(Bytes& out, size_t size_with_type) {
  const size_t data = size_with_type - 5;
  out.insert(out.end(), {kAcl, 0x40, 0x20, static_cast<uint8_t>(data), static_cast<uint8_t>(data >> 8)});
  for (size_t i = 0; i < data; ++i) out.push_back(static_cast<uint8_t>(i));
}

enum Stream { kEvents, kAclData, kAdvertising, kMixed };
constexpr const char* kStreamNames[] = {"7-byte events", "ACL, 1026 bytes", "advertising reports", "mixed"};

void AppendPacket(Bytes& out, Stream stream, std::mt19937& random) {
  switch (stream) {
    case kEvents:
      return AppendEvent(out, 0x0E, 7);
    case kAclData:
      return AppendAcl(out, 1026);
    case kAdvertising:
      return AppendEvent(out, 0x3E, 30 + random() % 31);
    case kMixed:
      const uint32_t kind = random() % 8;
      return AppendPacket(out, kind == 0 ? kAclData : kind < 4 ? kAdvertising : kEvents, random);
  }
}

Bytes MakeStream(Stream stream) {
  std::mt19937 random(1);
  Bytes out;
  for (size_t i = 0; i < kPacketsPerStream; ++i) AppendPacket(out, stream, random);
  out.reserve(out.size() + HciPacketizer::kReadAhead);
  return out;
}

// The walk against which the real path is held. It knows the two packet types of the streams and checks nothing.
class IdealWalk {
 public:
  explicit IdealWalk(HciPacketCallback callback) : callback_(std::move(callback)) {}

  void OnBytes(const uint8_t* data, size_t length) {
    const uint8_t* const end = data + length;
    while (data != end) {
      if (wanted_ == 0) {
        const size_t left = end - data;
        if (left >= kLargestHeader && Size(data) <= left) {
          const size_t size = Size(data);
          std::memcpy(buffer_.get(), data, size);
          data += size;
          Deliver(size);
          continue;
        }
        wanted_ = *data == kEvent ? kEventHeader : kLargestHeader;
      }
      const size_t count = std::min<size_t>(wanted_ - have_, end - data);
      std::memcpy(buffer_.get() + have_, data, count);
      data += count;
      have_ += count;
      if (have_ != wanted_) return;
      wanted_ = Size(buffer_.get());
      if (have_ == wanted_) {
        Deliver(have_);
        have_ = wanted_ = 0;
      }
    }
  }

 private:
  static constexpr size_t kEventHeader = 3;    // type, code, length
  static constexpr size_t kLargestHeader = 5;  // type, handle, length

  static size_t Size(const uint8_t* p) {
    return p[0] == kEvent ? kEventHeader + p[2] : kLargestHeader + (p[3] | p[4] << 8);
  }

  void Deliver(size_t size) {
    packet_.setToExternal(buffer_.get() + 1, size - 1);
    callback_(packet_);
  }

  std::unique_ptr<uint8_t[]> buffer_{new uint8_t[kLargestHeader + 65536]};
  size_t have_ = 0;    // bytes gathered of the packet in progress
  size_t wanted_ = 0;  // where its header, then the packet, ends; 0 between packets
  HciPacket packet_;
  HciPacketCallback callback_;
};

struct Sink {
  uint64_t packets = 0;
  uint64_t bytes = 0;

  HciPacketCallback Callback() {
    return [this](const HciPacket& packet) {
      ++packets;
      bytes += packet.size();
      benchmark::DoNotOptimize(packet.data());
    };
  }
};

template <typename Parser>
double NanosecondsPerPacket(Parser& parser, const Bytes& stream, size_t chunk) {
  const auto start = std::chrono::steady_clock::now();
  for (size_t offset = 0; offset < stream.size(); offset += chunk) {
    parser.OnBytes(stream.data() + offset, std::min(chunk, stream.size() - offset));
  }
  const std::chrono::duration<double, std::nano> passed = std::chrono::steady_clock::now() - start;
  return passed.count() / kPacketsPerStream;
}

void Receive(benchmark::State& state) {
  const Bytes stream = MakeStream(static_cast<Stream>(state.range(0)));
  const auto chunk = static_cast<size_t>(state.range(1));
  Sink ideal_sink;
  Sink real_sink;
  IdealWalk ideal(ideal_sink.Callback());
  H4Protocol real(-1, {real_sink.Callback(), real_sink.Callback(), real_sink.Callback(), real_sink.Callback(), nullptr},
                  {});
  double ideal_best = std::numeric_limits<double>::max();
  double real_best = std::numeric_limits<double>::max();
  for (auto _ : state) {
    ideal_best = std::min(ideal_best, NanosecondsPerPacket(ideal, stream, chunk));
    real_best = std::min(real_best, NanosecondsPerPacket(real, stream, chunk));
  }
  if (ideal_sink.packets != real_sink.packets || ideal_sink.bytes != real_sink.bytes) {
    state.SkipWithError("the two walks did not see the same packets");
  }
  bthal::bench::Tell(
      state, real_best, ideal_best,
      "receive " + std::string(kStreamNames[state.range(0)]) + ", " + std::to_string(chunk) + " B a read", "ns");
}
BENCHMARK(Receive)
    ->ArgNames({"stream", "chunk"})
    ->ArgsProduct({{kEvents, kAclData, kAdvertising, kMixed}, {4096, 64, 1}});

}  // namespace

BENCHMARK_MAIN();
