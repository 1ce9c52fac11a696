#include "support/uart_transport.h"

#include <stdexcept>

#include "os/kill_self.h"
#include "shim/shim.h"

namespace bthal::test {
namespace {

namespace hci = android::hardware::bluetooth::hci;
namespace os = android::hardware::bluetooth::os;

std::atomic<int> g_deaths{0};

}  // namespace

UartTransport::UartTransport() {
  os::SetKillSelfForTest([] { ++g_deaths; });
  const auto nothing = [](const hci::HciPacket&) {};
  flow_ = hci::shim::InitializeHciHandle(
      [this](const hci::HciPacket& event) {
        const std::lock_guard lock(mutex_);
        events_.emplace_back(event.begin(), event.end());
      },
      nothing, nothing, nothing, nothing);
  if (flow_ == nullptr) throw std::runtime_error("cannot open the transport");
}

UartTransport::~UartTransport() {
  Close();
  os::SetKillSelfForTest(nullptr);
}

void UartTransport::Close() {
  flow_ = nullptr;
  hci::shim::Deinitialize();
}

std::vector<std::vector<uint8_t>> UartTransport::Events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

int UartTransport::Deaths() { return g_deaths; }

}  // namespace bthal::test
