#include "support/uart_transport.h"

#include <signal.h>

#include "hci_flow_control/hci_channel.h"
#include "os/kill_self.h"

namespace bthal::test {
namespace {

namespace hci = android::hardware::bluetooth::hci;
namespace os = android::hardware::bluetooth::os;

std::atomic<int> g_deaths{0};

}  // namespace

UartTransport::UartTransport() {
  // As the service's process does: a node whose reader has just gone is no reason to die.
  signal(SIGPIPE, SIG_IGN);
  os::SetKillSelfForTest([] { ++g_deaths; });
  const auto nothing = [](const hci::HciPacket&) {};
  const auto on_event = [this](const hci::HciPacket& event) {
    const std::lock_guard lock(mutex_);
    events_.emplace_back(event.begin(), event.end());
  };
  flow_ = hci::channel::InitializeHciHandle({on_event, nothing, nothing, nothing, nothing});
  if (flow_ == nullptr) throw std::runtime_error("cannot open the transport");
}

UartTransport::~UartTransport() {
  Close();
  os::SetKillSelfForTest(nullptr);
}

void UartTransport::Close() {
  flow_ = nullptr;
  hci::channel::Deinitialize();
}

std::vector<Bytes> UartTransport::Events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

int UartTransport::Deaths() { return g_deaths; }

}  // namespace bthal::test
