#define LOG_TAG "bthal.hci_h4"

#include "h4/h4_protocol.h"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <limits>
#include <utility>

#include "debug_central/debug_central.h"
#include "h4/async_fd_watcher.h"
#include "h4/hw_control/user_channel.h"

namespace android::hardware::bluetooth::hci {
namespace {

using ::android::base::StringPrintf;

constexpr size_t kReadBufferSize = 65536;
constexpr size_t kTransmitAnchorSize = 128;
// Keeps a descriptor that stays readable at its end from spinning the watcher thread.
constexpr std::chrono::seconds kReadErrorPause{5};
// How much of the stream the report of an unknown type shows, from the bad byte on.
constexpr size_t kReportedBytes = 7;

constexpr ptrdiff_t kLargestHeaderWithType = 5;

inline size_t SizeWithType(HciPacketType type, const uint8_t* packet) {
  return 1 + HciPacketizer::PacketSize(type, packet + 1);
}

bool CarriesReceivedData(HciPacketType type) {
  return type == HciPacketType::kEvent || type == HciPacketType::kAclData || type == HciPacketType::kScoData ||
         type == HciPacketType::kIsoData || type == HciPacketType::kThreadData;
}

// Kept out of the way of what every packet passes.
[[gnu::cold, gnu::noinline]] void DieOfType(HciPacketType type) {
  LOG(FATAL) << "OnPacketReady: Unimplemented packet type " << static_cast<int>(type);
}

template <typename... Args>
void RecordTransmitAnchor(const char* format, Args... args) {
  char text[kTransmitAnchorSize];
  snprintf(text, sizeof(text), format, args...);
  DebugCentral::Get().UpdateRecord(AnchorType::kUartTransmit, text);
}

// What a write left over: the entries behind the first `written` bytes of `entries`, the first one shortened.
template <size_t N>
void AdvancePast(size_t written, std::array<iovec, N>& entries, iovec*& first) {
  while (first != entries.data() + N && written >= first->iov_len) {
    written -= first->iov_len;
    ++first;
  }
  if (first == entries.data() + N) return;
  first->iov_base = static_cast<uint8_t*>(first->iov_base) + written;
  first->iov_len -= written;
}

}  // namespace

H4Protocol::H4Protocol(int uart_fd, Consumers consumers, H4Owner owner)
    : uart_fd_(uart_fd),
      consumers_(std::move(consumers)),
      owner_(std::move(owner)),
      watchdog_([catch_exception = owner_.catch_exception](const std::string& what) {
        if (catch_exception) catch_exception(BqrErrorCode::kHosHcitH4TxError, "Host HCI H4 TX Error: " + what);
      }),
      hci_packetizer_([this] { OnPacketReady(); }) {
  if (!consumers_.thread_cb) consumers_.thread_cb = [](const HciPacket&) {};
}

size_t H4Protocol::Send(uint8_t type, const uint8_t* data, size_t length) {
  if (length == std::numeric_limits<size_t>::max()) return 0;
  WriteWatchdog::Write watched(watchdog_, type, data, length);
  const size_t total = length + 1;
  std::array<iovec, 2> entries = {iovec{&type, sizeof(type)}, iovec{const_cast<uint8_t*>(data), length}};
  iovec* first = entries.data();
  size_t written = 0;
  while (!giving_up_) {
    const ssize_t result = writev(uart_fd_, first, static_cast<int>(entries.data() + entries.size() - first));
    // A full port is written to again at once, for as long as it takes: the controller's flow control decides.
    if (result < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (result < 0) {
      const char* reason = strerror(errno);
      LOG(ERROR) << __func__ << " error writing to UART (" << reason << ")";
      RecordTransmitAnchor("%s: error writing to UART (%s)", __func__, reason);
      return written;
    }
    if (result == 0) {
      LOG(ERROR) << __func__ << " zero bytes written - something went wrong...";
      RecordTransmitAnchor("%s: zero bytes written - something went wrong...", __func__);
      return written;
    }
    written += result;
    if (written == total) return written;
    watched.Progress(written);
    constexpr char kFormat[] = "%s: %d/%d bytes written - retrying remaining %d bytes";
    const int done = static_cast<int>(written);
    const int whole = static_cast<int>(total);
    LOG(WARNING) << StringPrintf(kFormat, __func__, done, whole, whole - done);
    RecordTransmitAnchor(kFormat, __func__, done, whole, whole - done);
    AdvancePast(result, entries, first);
  }
  return written;
}

void H4Protocol::GiveUpWriting() {
  giving_up_ = true;
  watchdog_.InterruptWrite();
}

void H4Protocol::OnDataReady(int fd) {
  uint8_t buffer[kReadBufferSize + HciPacketizer::kReadAhead];
  const ssize_t bytes_read = TEMP_FAILURE_RETRY(read(fd, buffer, kReadBufferSize));
  if (bytes_read > 0) {
    OnBytes(buffer, bytes_read);
    return;
  }
  if (bytes_read == 0) {
    LOG(ERROR) << __func__ << ": Unexpected EOF reading the packet type!";
    DebugCentral::Get().UpdateRecord(AnchorType::kUartReceive,
                                     StringPrintf("%s: Unexpected EOF reading the packet type!", __func__));
    if (ReportHangUp(fd)) return;
  } else {
    const int error = errno;
    const std::string reason = strerror(error);
    const std::string lost = hwcontrol::LostUserChannel(fd, error);
    if (!lost.empty()) LOG(ERROR) << __func__ << ": " << lost;
    if (owner_.is_initialized && owner_.is_initialized()) {
      LOG(FATAL) << __func__ << ": Read packet type error: " << reason;
      return;
    }
    LOG(ERROR) << __func__ << ": read failed (" << reason << "), not ready to read!";
    // "reay" stays: the record's texts do not change from release to release.
    DebugCentral::Get().UpdateRecord(AnchorType::kUartReceive,
                                     StringPrintf("%s: read failed (%s), not reay to read!", __func__, reason.c_str()));
  }
  async::AsyncFdWatcher::WaitOnWatcherThread(kReadErrorPause);
}

// The port itself is gone: no later read will find more, and no write arrives. While nothing is sent nobody else would
// notice before the next client does.
bool H4Protocol::ReportHangUp(int fd) const {
  pollfd port{fd, 0, 0};
  if (poll(&port, 1, 0) <= 0 || (port.revents & (POLLHUP | POLLERR)) == 0) return false;
  if (!owner_.is_ready || !owner_.is_ready() || !owner_.catch_exception) return false;
  owner_.catch_exception(BqrErrorCode::kHosHcitH4TxError, "Host HCI H4 TX Error: the port has hung up");
  return true;
}

// Kept apart from the walk, so that bytes in the middle of a packet do not pay for what the walk needs.
void H4Protocol::OnBytes(const uint8_t* data, size_t length) {
  if (!hci_packetizer_.TakeMiddle(data, length)) Walk(data, length);
}

void H4Protocol::Walk(const uint8_t* data, size_t length) {
  const uint8_t* const end = data + length;
  TellMoreToCome(true);
  while (data != end) {
    if (hci_packet_type_ != HciPacketType::kUnknown) {
      data += hci_packetizer_.OnDataReady(hci_packet_type_, data, end - data);
    } else if (data = DeliverWhole(data, end); data != end) {
      hci_packet_type_ = static_cast<HciPacketType>(*data);
      // The report has torn the transport down, so that nothing behind this byte is trusted. The code stays the type in
      // progress: the rest of the stream is taken for one such packet, or swallowed where none exists.
      if (!CarriesReceivedData(hci_packet_type_)) ReportUnimplementedType(data, end - data);
      ++data;
    }
  }
  TellMoreToCome(false);
}

void H4Protocol::TellMoreToCome(bool more) const {
  if (consumers_.more_to_come_cb) consumers_.more_to_come_cb(more);
}

const uint8_t* H4Protocol::DeliverWhole(const uint8_t* data, const uint8_t* end) {
  HciPacket packet;
  // Then every header is whole, and there is something behind it.
  while (end - data > kLargestHeaderWithType) {
    const HciPacketCallback* consumer = nullptr;
    size_t size = 0;
    switch (static_cast<HciPacketType>(*data)) {
      case HciPacketType::kEvent:
        consumer = &consumers_.event_cb;
        size = SizeWithType(HciPacketType::kEvent, data);
        break;
      case HciPacketType::kAclData:
        consumer = &consumers_.acl_cb;
        size = SizeWithType(HciPacketType::kAclData, data);
        break;
      case HciPacketType::kScoData:
        consumer = &consumers_.sco_cb;
        size = SizeWithType(HciPacketType::kScoData, data);
        break;
      case HciPacketType::kIsoData:
        consumer = &consumers_.iso_cb;
        size = SizeWithType(HciPacketType::kIsoData, data);
        break;
      case HciPacketType::kThreadData:
        consumer = &consumers_.thread_cb;
        size = SizeWithType(HciPacketType::kThreadData, data);
        break;
      default:
        return data;
    }
    if (const size_t left = end - data; size > left) {
      hci_packet_type_ = static_cast<HciPacketType>(*data);
      hci_packetizer_.TakeBeginning(data + 1, left - 1, size - 1);
      return end;
    }
    packet.setToExternal(const_cast<uint8_t*>(data) + 1, size - 1);
    (*consumer)(packet);
    data += size;
  }
  return data;
}

void H4Protocol::ReportUnimplementedType(const uint8_t* data, size_t length) {
  TellMoreToCome(false);
  const int code = data[0];
  LOG(ERROR) << StringPrintf("%s: Unimplemented Packet Type: %d detected!", "OnDataReady", code);
  std::array<uint8_t, kReportedBytes> shown{};
  std::copy_n(data, std::min(length, shown.size()), shown.begin());
  if (!owner_.catch_exception) return;
  owner_.catch_exception(
      BqrErrorCode::kHostUnimplementedPacketType,
      StringPrintf("Host Received Unimplemented Packet Type: %d, bytes_read: %zd, packet: "
                   "%02x, %02x, %02x, %02x, %02x, %02x, %02x",
                   code, length, shown[0], shown[1], shown[2], shown[3], shown[4], shown[5], shown[6]));
}

void H4Protocol::OnPacketReady() {
  const HciPacket& packet = hci_packetizer_.GetPacket();
  switch (hci_packet_type_) {
    case HciPacketType::kEvent:
      consumers_.event_cb(packet);
      break;
    case HciPacketType::kAclData:
      consumers_.acl_cb(packet);
      break;
    case HciPacketType::kScoData:
      consumers_.sco_cb(packet);
      break;
    case HciPacketType::kIsoData:
      consumers_.iso_cb(packet);
      break;
    case HciPacketType::kThreadData:
      consumers_.thread_cb(packet);
      break;
    default:
      DieOfType(hci_packet_type_);
  }
  hci_packet_type_ = HciPacketType::kUnknown;
}

}  // namespace android::hardware::bluetooth::hci
