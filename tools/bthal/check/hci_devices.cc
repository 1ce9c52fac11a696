#include "bthal/check/hci_devices.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

namespace bthal::tool {
namespace {

using ::android::base::unique_fd;

// The kernel's interface to HCI sockets, which the C library's headers do not carry.
constexpr int kProtocolHci = 1;
constexpr uint16_t kChannelRaw = 0;
constexpr uint16_t kMostDevices = 16;
constexpr unsigned long kGetDeviceList = _IOR('H', 210, int);
constexpr unsigned long kGetDeviceInfo = _IOR('H', 211, int);
constexpr unsigned long kGetAuthInfo = _IOR('H', 215, int);
constexpr uint32_t kUp = 1U << 0;

struct SocketAddress {
  sa_family_t family;
  uint16_t device;
  uint16_t channel;
};
struct DeviceList {
  uint16_t count;
  struct {
    uint16_t number;
    uint32_t flags;
  } devices[kMostDevices];
};
// The beginning is what matters here; the kernel writes all of it.
struct DeviceInfo {
  uint16_t number;
  char name[8];
  uint8_t address[6];
  uint32_t flags;
  uint8_t type;  // its lower half is the bus
  uint8_t rest[71];
};
struct AuthInfo {
  uint8_t address[6];
  uint8_t type;
};

unique_fd HciSocket() { return unique_fd(socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, kProtocolHci)); }

// The kernel answers no questions about a controller while its user channel is in use.
bool IsLent(uint16_t number) {
  const unique_fd socket = HciSocket();
  const SocketAddress address = {AF_BLUETOOTH, number, kChannelRaw};
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return false;
  AuthInfo info = {};
  return ioctl(socket.get(), kGetAuthInfo, &info) != 0 && errno == EBUSY;
}

std::string BusOf(int socket, uint16_t number) {
  constexpr const char* kBuses[] = {"virtual", "USB", "PC card", "UART"};
  DeviceInfo info = {};
  info.number = number;
  if (ioctl(socket, kGetDeviceInfo, &info) != 0) return "unknown bus";
  const int bus = info.type & 0x0F;
  return bus < static_cast<int>(std::size(kBuses)) ? kBuses[bus] : "bus " + std::to_string(bus);
}

}  // namespace

std::optional<std::vector<HciDevice>> HciDevices() {
  const unique_fd socket = HciSocket();
  if (!socket.ok()) return std::nullopt;
  DeviceList list = {};
  list.count = kMostDevices;
  if (ioctl(socket.get(), kGetDeviceList, &list) != 0) return std::nullopt;
  std::vector<HciDevice> devices;
  for (uint16_t i = 0; i < list.count; ++i) {
    const uint16_t number = list.devices[i].number;
    const bool up = (list.devices[i].flags & kUp) != 0;
    devices.push_back({.number = number, .bus = BusOf(socket.get(), number), .up = up, .lent = up && IsLent(number)});
  }
  std::ranges::sort(devices, {}, &HciDevice::number);
  return devices;
}

}  // namespace bthal::tool
