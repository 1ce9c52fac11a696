#define LOG_TAG "bthal.hwcontrol"

#include "h4/hw_control/user_channel.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

namespace android::hardware::bluetooth::hwcontrol {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

// The kernel's interface to HCI sockets, which the C library's headers do not carry.
constexpr int kAddressFamilyBluetooth = 31;
constexpr int kProtocolHci = 1;
constexpr uint16_t kFirstHciDevice = 0;
constexpr uint16_t kHciChannelRaw = 0;
constexpr uint16_t kHciChannelUser = 1;
struct HciSocketAddress {
  sa_family_t family;
  uint16_t device;
  uint16_t channel;
};
constexpr uint16_t kMostDevices = 16;
struct HciDevice {
  uint16_t number;
  uint32_t flags;
};
struct HciDeviceList {
  uint16_t count;
  HciDevice devices[kMostDevices];
};
constexpr unsigned long kHciGetDeviceList = _IOR('H', 210, int);
constexpr unsigned long kHciGetAuthInfo = _IOR('H', 215, int);
constexpr size_t kAuthInfoSize = 7;  // of no interest here
constexpr uint32_t kHciUp = 1U << 0;

bool Bind(int socket, uint16_t channel) {
  const HciSocketAddress address{kAddressFamilyBluetooth, kFirstHciDevice, channel};
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

HciDeviceList Devices(int socket) {
  HciDeviceList list{};
  list.count = kMostDevices;
  if (ioctl(socket, kHciGetDeviceList, &list) != 0) list.count = 0;
  return list;
}

// "hci1, hci2"; empty without any.
std::string Names(const HciDeviceList& list) {
  std::string names;
  for (uint16_t i = 0; i < list.count; ++i) {
    names += (names.empty() ? "hci" : ", hci") + std::to_string(list.devices[i].number);
  }
  return names;
}

bool IsUp(const HciDeviceList& list) {
  for (uint16_t i = 0; i < list.count; ++i) {
    if (list.devices[i].number == kFirstHciDevice) return (list.devices[i].flags & kHciUp) != 0;
  }
  return false;
}

// Whether some process has the user channel: then the kernel answers nobody else's questions about the controller.
bool IsLent() {
  const unique_fd other(socket(kAddressFamilyBluetooth, SOCK_RAW | SOCK_CLOEXEC, kProtocolHci));
  uint8_t info[kAuthInfoSize] = {};
  return other.ok() && Bind(other.get(), kHciChannelRaw) && ioctl(other.get(), kHciGetAuthInfo, info) != 0 &&
         errno == EBUSY;
}

// The kernel's numbers do not name their reason. What says nothing here says enough there.
std::string Explained(int error, int socket) {
  switch (error) {
    case EPERM:
      return "the user channel of hci0 takes CAP_NET_ADMIN";
    case EBUSY:
    case EUSERS:
      if (IsLent()) return "hci0 is busy: another process has its user channel";
      if (IsUp(Devices(socket))) return "hci0 is up: the kernel's own host stack has it, and must power it off first";
      return "the kernel is still setting hci0 up";
    case ERFKILL:
      return "hci0 is blocked by rfkill: see 'rfkill list' for what blocks it";
    case ENODEV: {
      const std::string others = Names(Devices(socket));
      if (others.empty()) return "there is no hci0, nor any other: is the controller's driver loaded?";
      return "there is no hci0, but " + others +
             ": a controller that comes back while hci0 is in use gets another number";
    }
    default:
      return {};
  }
}

}  // namespace

unique_fd userial_socket_open() {
  unique_fd fd(socket(kAddressFamilyBluetooth, SOCK_RAW | SOCK_CLOEXEC, kProtocolHci));
  if (!fd.ok()) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: Can't create Bluetooth HCI socket: %s (%d)", __func__, strerror(error), error);
    if (error == EAFNOSUPPORT) LOG(ERROR) << __func__ << ": this kernel has no Bluetooth, or has not loaded it";
    return fd;
  }
  if (!Bind(fd.get(), kHciChannelUser)) {
    const int error = errno;
    LOG(ERROR) << StringPrintf("%s: HCI User Channel Error: %s (%d)", __func__, strerror(error), error);
    const std::string why = Explained(error, fd.get());
    if (!why.empty()) LOG(ERROR) << __func__ << ": " << why;
    fd.reset();
  }
  return fd;
}

std::string LostUserChannel(int fd, int error) {
  int family = 0;  // asked this way: it has no name any more
  socklen_t size = sizeof(family);
  if (error != EPIPE || getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &family, &size) != 0) return {};
  return family == kAddressFamilyBluetooth ? "hci0 has gone: it was unplugged or reset, or its driver unloaded" : "";
}

}  // namespace android::hardware::bluetooth::hwcontrol
