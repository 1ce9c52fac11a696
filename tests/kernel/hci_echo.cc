// hci_echo COUNT: sends COUNT data packets through the kernel's hci0, whose controller sends them back, and ends with 0
// once all have come back whole and in order; with 1 as soon as hci0 is not there, goes, or nothing has come for a
// while. Several may run at a time.
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The kernel's interface to HCI sockets, which the C library's headers do not carry.
constexpr int kAddressFamilyBluetooth = 31;
constexpr int kProtocolHci = 1;
constexpr int kSocketLevelHci = 0;
constexpr int kOptionFilter = 2;
constexpr unsigned long kDeviceUp = _IOW('H', 201, int);
struct HciSocketAddress {
  sa_family_t family;
  uint16_t device;
  uint16_t channel;
};
struct HciFilter {
  uint32_t packet_types;
  uint32_t events[2];
  uint16_t opcode;
};

constexpr uint8_t kAcl = 2;
constexpr uint8_t kEvent = 4;
constexpr uint8_t kCommandComplete = 0x0E;
// Write Loopback Mode, local: from its answer on, data that is sent on handle 1 is sent back.
constexpr uint16_t kWriteLoopbackMode = 0x1802;
constexpr uint8_t kLoopback[] = {1, kWriteLoopbackMode & 0xFF, kWriteLoopbackMode >> 8, 1, 1};
// type (1) | handle and flags (2) | length (2) | who sends (4) | number (4) | filling
constexpr size_t kPayload = 600;
using Packet = std::array<uint8_t, 5 + kPayload>;
constexpr size_t kSenderAt = 5;
constexpr size_t kNumberAt = 9;
// No more than a controller has buffers for.
constexpr uint32_t kWindow = 4;
constexpr int kPatienceMs = 5000;

int OpenHci0() {
  const int fd = socket(kAddressFamilyBluetooth, SOCK_RAW | SOCK_CLOEXEC, kProtocolHci);
  if (fd < 0 || (ioctl(fd, kDeviceUp, 0) != 0 && errno != EALREADY)) return -1;
  const HciFilter filter{1U << kAcl | 1U << kEvent, {1U << kCommandComplete, 0}, kWriteLoopbackMode};
  const HciSocketAddress address{kAddressFamilyBluetooth, 0, 0};
  if (setsockopt(fd, kSocketLevelHci, kOptionFilter, &filter, sizeof(filter)) != 0) return -1;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return -1;
  return fd;
}

Packet Numbered(uint32_t number) {
  Packet packet = {kAcl, 0x01, 0x20, kPayload & 0xFF, kPayload >> 8};
  const uint32_t sender = static_cast<uint32_t>(getpid());
  memcpy(&packet[kSenderAt], &sender, sizeof(sender));
  memcpy(&packet[kNumberAt], &number, sizeof(number));
  for (size_t i = kNumberAt + sizeof(number); i < packet.size(); ++i) packet[i] = static_cast<uint8_t>(number + i);
  return packet;
}

// The next packet of this type, and of data the next of ours: every socket is shown everybody's.
bool Receive(int fd, uint8_t type, Packet* packet) {
  const Packet ours = Numbered(0);
  for (;;) {
    pollfd readable{fd, POLLIN, 0};
    if (poll(&readable, 1, kPatienceMs) <= 0) return false;
    const ssize_t size = read(fd, packet->data(), packet->size());
    if (size <= 0) return false;
    if ((*packet)[0] != type) continue;
    if (type != kAcl || std::equal(&ours[kSenderAt], &ours[kNumberAt], &(*packet)[kSenderAt])) return true;
  }
}

int Fail(const char* what, uint32_t number) {
  fprintf(stderr, "hci_echo: packet %u: %s: %s\n", number, what, strerror(errno));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t count = argc > 1 ? static_cast<uint32_t>(strtoul(argv[1], nullptr, 10)) : 1;
  const int fd = OpenHci0();
  if (fd < 0) return Fail("no hci0", 0);
  Packet packet{};
  if (write(fd, kLoopback, sizeof(kLoopback)) < 0 || !Receive(fd, kEvent, &packet)) return Fail("no loopback mode", 0);
  uint32_t sent = 0;
  for (uint32_t back = 0; back < count; ++back) {
    for (; sent < count && sent - back < kWindow; ++sent) {
      if (write(fd, Numbered(sent).data(), packet.size()) < 0) return Fail("cannot be sent", sent);
    }
    if (!Receive(fd, kAcl, &packet)) return Fail("does not come back", back);
    if (!std::equal(packet.begin() + kNumberAt, packet.end(), Numbered(back).begin() + kNumberAt)) {
      return Fail("is not what comes back", back);
    }
  }
  return 0;
}
