// One peer: what it sends goes down, what the controller sends goes up.
#include <android-base/stringprintf.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "bthal/bridge/bridge.h"
#include "bthal/bridge/host_decoder.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr size_t kReadSize = 65536;

}  // namespace

Bridge::End Bridge::ServePeer(Peer peer) {
  Tell("a host has come");
  {
    const std::lock_guard lock(reason_mutex_);
    reason_.clear();
  }
  ledger_.NewHost();
  enough_.reset(eventfd(0, EFD_CLOEXEC));
  outbox_.Open();
  std::thread up([&] {
    pthread_setname_np(pthread_self(), "bridge_up");
    PumpUp(peer);
  });
  const End end = PumpDown(peer);
  outbox_.Close();
  constexpr uint64_t kOnce = 1;
  (void)!write(enough_.get(), &kOnce, sizeof(kOnce));
  up.join();
  ledger_.HostGone();
  ledger_.DroppedReports(outbox_.dropped_reports());
  if (!service_error_.empty()) Tell(std::exchange(service_error_, {}));
  return end;
}

Bridge::End Bridge::PumpDown(const Peer& peer) {
  HostDecoder decoder([this](uint8_t kind, std::span<const uint8_t> packet) { Forward(kind, packet); });
  std::array<uint8_t, kReadSize> buffer;
  for (;;) {
    if (const std::optional<End> end = AwaitReadable(peer.fd.get(), /*serving=*/true)) return *end;
    const ssize_t count = read(peer.fd.get(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count <= 0) return End::kPeerGone;
    const auto bytes = std::span<const uint8_t>(buffer).first(static_cast<size_t>(count));
    if (peer.whole_packets && !HostSends(bytes[0])) continue;
    if (!decoder.Decode(bytes)) {
      GiveUp(StringPrintf("it sent the packet type 0x%02X, which no host sends", decoder.bad_type()));
      return End::kPeerGone;
    }
    if (!service_error_.empty()) return End::kServiceGone;
  }
}

void Bridge::Forward(uint8_t kind, std::span<const uint8_t> packet) {
  if (!service_error_.empty()) return;
  ledger_.Sent(kind, packet);
  if (options_.verbose) SayPacket(Direction::kToController, kind, packet);
  client_.Send(kind, {packet.begin(), packet.end()}, &service_error_);
}

void Bridge::PumpUp(const Peer& peer) {
  std::deque<Outbox::Packet> packets;
  Outbox::Packet together;
  while (outbox_.Take(&packets)) {
    together.clear();
    for (const Outbox::Packet& packet : packets) {
      if (!peer.whole_packets) {
        together.insert(together.end(), packet.begin(), packet.end());
      } else if (!WriteUp(peer, packet)) {
        return;
      }
    }
    if (!WriteUp(peer, together)) return;
  }
}

// Waits for a peer that is slow, as long as it is served.
bool Bridge::WriteUp(const Peer& peer, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(peer.fd.get(), bytes.data(), bytes.size());
    if (count > 0) {
      bytes = bytes.subspan(static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd fds[] = {{peer.fd.get(), POLLOUT, 0}, {enough_.get(), POLLIN, 0}};
      poll(fds, std::size(fds), -1);
      if (fds[1].revents != 0) return false;
    } else if (errno != EINTR) {
      GiveUp(std::string("writing to it failed: ") + strerror(errno));
      return false;
    }
  }
  return true;
}

}  // namespace bthal::tool
