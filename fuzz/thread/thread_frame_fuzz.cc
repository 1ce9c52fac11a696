// Frames from the Thread client. The first byte chooses the socket mode: odd for packets, each with its length (2,
// little- endian) before it; even for a stream, taken as it stands.
#include <android-base/logging.h>
#include <android-base/unique_fd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "os/kill_self.h"
#include "thread/socket_processor.h"
#include "thread/thread_dispatcher.h"

namespace {

using ::android::hardware::bluetooth::hci::SocketMode;
using ::android::hardware::bluetooth::hci::SocketProcessor;
using ::android::hardware::bluetooth::hci::ThreadDispatcher;
using ::android::hardware::bluetooth::os::SetKillSelfForTest;
using Bytes = std::vector<uint8_t>;

constexpr size_t kMaxInput = 16384;  // fits a socket's buffer, so that nothing here blocks
constexpr size_t kMaxPacket = 8192;

int resets = 0;

void Check(bool holds) {
  if (!holds) abort();
}

// A processor with a client at the other end of a socket pair.
struct Conversation {
  explicit Conversation(SocketMode mode)
      : processor(mode, "/none", 1, [this](const Bytes& frame) { OnFrame(frame); }), mode(mode) {
    int ends[2];
    Check(socketpair(AF_UNIX, static_cast<int>(mode), 0, ends) == 0);
    processor.SetClientSocket(ends[0]);
    client.reset(ends[1]);
  }

  void OnFrame(const Bytes& frame) {
    received.push_back(frame);
    const int before = resets;
    dispatcher.OnThreadPacketReady(frame);
    Check((resets != before) == (frame == Bytes{0x80, 0x01, 0x04}));
    // What goes back arrives as it was.
    Check(processor.Send(frame));
    const size_t header = mode == SocketMode::kStream ? 3 : 0;
    Bytes echo(header + frame.size());
    Check(recv(client.get(), echo.data(), echo.size(), MSG_DONTWAIT) == static_cast<ssize_t>(echo.size()));
    Check(std::equal(frame.begin(), frame.end(), echo.begin() + static_cast<ptrdiff_t>(header)));
  }

  ThreadDispatcher dispatcher;
  SocketProcessor processor;
  SocketMode mode;
  android::base::unique_fd client;
  std::vector<Bytes> received;
};

void Packets(const uint8_t* data, size_t size) {
  Conversation conversation(SocketMode::kPacket);
  while (size >= 2) {
    const size_t length = std::min<size_t>(data[0] | data[1] << 8, size - 2);
    Check(send(conversation.client.get(), data + 2, length, 0) == static_cast<ssize_t>(length));
    const size_t before = conversation.received.size();
    const bool alive = conversation.processor.Recv();
    Check(alive == (length > 0));
    if (!alive) return;  // an empty message reads as the end
    const bool taken = length <= kMaxPacket;
    Check(conversation.received.size() == before + (taken ? 1 : 0));
    if (taken) Check(conversation.received.back() == Bytes(data + 2, data + 2 + length));
    data += 2 + length;
    size -= 2 + length;
  }
}

// The frames of a stream up to its end or its first fault.
std::vector<Bytes> FramesOf(const uint8_t* data, size_t size) {
  std::vector<Bytes> frames;
  while (size >= 3 && data[0] == 0x40) {
    uint16_t length = 0;
    memcpy(&length, data + 1, sizeof(length));
    if (length == 0 || size - 3 < length) break;
    frames.emplace_back(data + 3, data + 3 + length);
    data += 3 + length;
    size -= 3 + size_t{length};
  }
  return frames;
}

void Stream(const uint8_t* data, size_t size) {
  Conversation conversation(SocketMode::kStream);
  Check(send(conversation.client.get(), data, size, 0) == static_cast<ssize_t>(size));
  shutdown(conversation.client.get(), SHUT_WR);
  while (conversation.processor.Recv()) {
  }
  Check(conversation.received == FramesOf(data, size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > kMaxInput) return 0;
  android::base::SetLogger([](auto...) {});
  SetKillSelfForTest([] { ++resets; });
  if (data[0] % 2 != 0) {
    Packets(data + 1, size - 1);
  } else {
    Stream(data + 1, size - 1);
  }
  return 0;
}
