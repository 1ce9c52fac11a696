// What the service has dropped stands in its report.
#include "aidl/bluetooth_hci/diagnostics.h"

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "hci_flow_control/hci_flow_control.h"
#include "support/diagnostics.h"
#include "support/pty.h"
#include "support/test.h"
#include "support/uart_transport.h"
#include "thread/thread_dispatcher.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using namespace ::bthal::test;

TEST(DiagnosticsTest, TheReportHoldsWhatWasDroppedOnAnyWay) {
  const TempRoot root;
  const LogCapture log;
  const Pty line;
  std::filesystem::create_symlink(line.host_path(), root.Below("/dev/ttySAC16"));
  UartTransport transport;
  RegisterDiagnostics();
  const std::vector<uint8_t> acl = {0x40, 0x00, 0x01, 0x00, 0x77};
  EXPECT_THAT(DumpText(), HasSubstr("No awake period of the link has ended\n"
                                    "Sends without a client: 0\n"
                                    "Sends that flow control has refused: 0\n"
                                    "Bytes received out of step: 0\n"
                                    "Thread frames dropped: 0\n"));

  const auto hal = ndk::SharedRefBase::make<BluetoothHci>();
  EXPECT_TRUE(hal->sendAclData(acl).isOk());
  hci::ThreadDispatcher dispatcher;
  for (int i = 0; i < 3; ++i) dispatcher.SendThreadPacket({0x00, 0x00, 0x01, 0x00, 0x55});
  // An unknown type ends the channel. What is behind it is swallowed, and whoever sends all the same is refused.
  const auto flow = transport.flow()->shared_from_this();
  line.Write({0x09, 1, 2, 3, 4});
  EXPECT_TRUE(WaitFor([] { return UartTransport::Deaths() == 1; }));
  EXPECT_TRUE(WaitFor([] { return DumpText().find("Bytes received out of step: 4\n") != std::string::npos; }));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(flow->Send(0x02, acl.data(), acl.size()), 0u);
  EXPECT_THAT(DumpText(), HasSubstr("Sends without a client: 1\n"
                                    "Sends that flow control has refused: 2\n"
                                    "Bytes received out of step: 4\n"
                                    "Thread frames dropped: 3\n"));
}

}  // namespace
}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
