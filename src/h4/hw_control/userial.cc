// The transport descriptor: the UART's tty, or the kernel's HCI user channel (user_channel.cc).
#define LOG_TAG "bthal.hwcontrol"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <thread>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "conf/conf.h"
#include "conf/userial_type.h"
#include "debug_central/debug_central.h"
#include "h4/hw_control/hw_control.h"
#include "h4/hw_control/user_channel.h"
#include "os/device_path.h"

namespace android::hardware::bluetooth::hwcontrol {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr auto kTtySettleTime = std::chrono::milliseconds(50);

std::optional<speed_t> ToTerminalSpeed(UartBaudRate rate) {
  switch (rate) {
    case UartBaudRate::kUartBaudRate115200:
      return B115200;
    case UartBaudRate::kUartBaudRate3000000:
      return B3000000;
    case UartBaudRate::kUartBaudRate4000000:
      return B4000000;
    default:
      return std::nullopt;
  }
}

void ApplyAndFlush(int fd, const termios& attributes) {
  tcsetattr(fd, TCSANOW, &attributes);
  tcflush(fd, TCIOFLUSH);
}

// A driver that takes only part of what it is told calls that a success: whether it has the speed is seen afterwards.
void ApplySpeed(const char* function, int fd, termios attributes, speed_t speed, UartBaudRate rate) {
  cfsetospeed(&attributes, speed);
  cfsetispeed(&attributes, speed);
  ApplyAndFlush(fd, attributes);
  termios taken{};
  tcgetattr(fd, &taken);
  if (cfgetospeed(&taken) == speed) return;
  LOG(WARNING) << function << ": " << conf::Config::GetInstance().uart_port << " did not take "
               << static_cast<unsigned>(rate) << " bit/s";
}

void ConfigureNewTty(int fd) {
  termios attributes{};
  tcflush(fd, TCIOFLUSH);
  tcgetattr(fd, &attributes);
  cfmakeraw(&attributes);
  attributes.c_cflag |= CRTSCTS;
  // Twice, with a flush after each, so that nothing received under the port's old settings is left.
  ApplyAndFlush(fd, attributes);
  ApplyAndFlush(fd, attributes);
  tcflush(fd, TCIOFLUSH);
  ApplySpeed("userial_tty_open", fd, attributes, B115200, UartBaudRate::kUartBaudRate115200);
}

unique_fd userial_tty_open() {
  const std::string& path = conf::Config::GetInstance().uart_port;
  DebugCentral::Get().SetBtUartDebugPort(path);
  DebugCentral::Get().UpdateRecord(AnchorType::kUserialTtyOpen, StringPrintf("%s: open %s", __func__, path.c_str()));
  LOG(INFO) << __func__ << ": open " << path;
  // O_NONBLOCK for the opening alone: a driver that minds the modem lines would wait for a carrier there.
  unique_fd fd(TEMP_FAILURE_RETRY(open(os::DevicePath(path).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)));
  if (!fd.ok()) {
    LOG(ERROR) << StringPrintf("%s: Can't open Bluetooth UART port: %s (%d)", __func__, strerror(errno), errno);
    return fd;
  }
  fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
  ConfigureNewTty(fd.get());
  return fd;
}

}  // namespace

bool BtHwControl::UserialOpen(uint32_t userial_type) {
  LOG(INFO) << __func__;
  const DebugAnchor anchor(AnchorType::kUserialOpen, __func__);
  const bool is_tty = userial_type == conf::kUserialApm;
  const int fd = (is_tty ? userial_tty_open() : userial_socket_open()).release();
  if (fd < 0) {
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostOpenUserial, "Host Open Port Error");
    return false;
  }
  const unique_fd replaced(userial_fd_.exchange(fd));
  if (is_tty) std::this_thread::sleep_for(kTtySettleTime);
  LOG(INFO) << StringPrintf("%s: USERIAL (%u) Ready", __func__, userial_type);
  DebugCentral::Get().UpdateRecord(AnchorType::kUserialReady,
                                   StringPrintf("USERIAL Ready FD: <%d>, type: <%u>", fd, userial_type));
  return true;
}

void BtHwControl::UserialClose() {
  const DebugAnchor anchor(AnchorType::kUserialClose, __func__);
  const unique_fd closing(userial_fd_.exchange(-1));
  // A tty waits at its close until what is left to send has gone out, or half a minute where the controller takes
  // nothing.
  if (closing.ok()) tcflush(closing.get(), TCOFLUSH);
}

void BtHwControl::BaudrateChange(UartBaudRate rate) {
  const auto speed = ToTerminalSpeed(rate);
  if (!speed) {
    LOG(ERROR) << StringPrintf("%s: Baud rate (%u) unsupported", __func__, static_cast<unsigned>(rate));
    return;
  }
  const int fd = userial_fd_;
  termios attributes{};
  tcgetattr(fd, &attributes);
  cfmakeraw(&attributes);  // leaves RTS/CTS flow control on
  ApplySpeed(__func__, fd, attributes, *speed, rate);
}

}  // namespace android::hardware::bluetooth::hwcontrol
