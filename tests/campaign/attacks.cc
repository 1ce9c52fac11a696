#include "campaign/attacks.h"

#include <android/binder_ibinder.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "bthal/run/device_names.h"
#include "bthal/run/thread_client.h"
#include "host/raw_peer.h"

namespace bthal::campaign {
namespace {

using std::chrono::milliseconds;
using test::FoundBy;
using test::Header;
using test::RawPeer;
using Random = std::mt19937_64;

constexpr char kDescriptor[] = "android.hardware.bluetooth.IBluetoothHci";
constexpr int32_t kSendHciCommand = FIRST_CALL_TRANSACTION + 3;
constexpr size_t kAllConnections = 64;

std::vector<uint8_t> RandomBytes(Random& random, size_t size) {
  std::vector<uint8_t> bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// Until more waits for it than is kept. What it asks for is refused, so that none of it reaches the controller.
bool AskAndNotRead(const std::string& root, Random& /*random*/) {
  const RawPeer peer = FoundBy(root, tool::kHciService);
  for (uint64_t call = 1; call <= 20000 && peer.connected(); ++call) Call(peer, call, kDescriptor, kSendHciCommand);
  return peer.connected();
}

bool SendGarbage(const std::string& root, Random& random) {
  const RawPeer peer(root);
  Header header{.size = static_cast<uint32_t>(random() % 4096),
                .type = static_cast<uint16_t>(random() % 8),
                .objects = static_cast<uint16_t>(random() % 3),
                .call = random() % 5,
                .target = random() % 3};
  if (random() % 2 == 0) header.code = static_cast<int32_t>(random());
  header.flags = static_cast<uint32_t>(random() % 3);
  peer.Send(header);
  const std::vector<uint8_t> rest = RandomBytes(random, random() % 4096);
  peer.Send(rest.data(), rest.size());
  return peer.connected();
}

// Whole messages that the object itself refuses: no such method, or fewer bytes than are announced.
bool CallNonsense(const std::string& root, Random& random) {
  const RawPeer peer = FoundBy(root, tool::kHciService);
  bool answered = true;
  for (const int32_t code : {0, -5, 99, kSendHciCommand}) {
    std::vector<uint32_t> body = test::Words(kDescriptor);
    body.push_back(static_cast<uint32_t>(random()) | 1U << 20);
    peer.Send(Header{.size = static_cast<uint32_t>(4 * body.size()), .target = 1, .code = code}, body);
    answered &= !peer.IsEnded();
  }
  return answered;
}

bool HoldConnections(const std::string& root, Random& random) {
  std::deque<RawPeer> held;
  for (size_t i = 0; i < kAllConnections; ++i) held.emplace_back(root);
  std::this_thread::sleep_for(milliseconds(random() % 500));
  return held.front().connected();
}

android::base::unique_fd ConnectAsThreadHal(const std::string& root) {
  std::string ignored;
  return tool::ConnectToThreadSocket(root + tool::kThreadSocket, &ignored);
}

// The board sends each frame back, which nobody reads here. Never the three bytes that ask for the service's end.
bool SendFramesAndNotRead(const std::string& root, Random& random) {
  const android::base::unique_fd socket = ConnectAsThreadHal(root);
  std::string ignored;
  int sent = 0;
  while (sent < 200 && tool::SendFrame(socket.get(), RandomBytes(random, 4 + random() % 9000), &ignored)) {
    std::this_thread::sleep_for(milliseconds(1));
    ++sent;
  }
  return sent > 0;
}

bool ConnectAndLeave(const std::string& root, Random& /*random*/) { return ConnectAsThreadHal(root).ok(); }

constexpr std::array kAttacks = {Attack{"Binder, asks and does not read", AskAndNotRead},
                                 Attack{"the same, another process", AskAndNotRead},
                                 Attack{"Binder, sends garbage", SendGarbage},
                                 Attack{"Binder, calls nonsense", CallNonsense},
                                 Attack{"Binder, holds connections", HoldConnections},
                                 Attack{"Thread, sends and does not read", SendFramesAndNotRead},
                                 Attack{"Thread, leaves at once", ConnectAndLeave}};

}  // namespace

std::span<const Attack> Attacks() { return kAttacks; }

}  // namespace bthal::campaign
