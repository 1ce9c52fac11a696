#include "debug_central/anchor_type.h"
#include "debug_central/catalogue.h"

#include "os/process_setup.h"
#include "support/test.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using namespace ::bthal::test;

// The kinds as crash reports know them.
const struct {
  int code;
  const char* name;
} kKinds[] = {
    {0x01, "UartParsing"},
    {0x02, "UartIncompletePacket"},
    {0x03, "FirmwareChecksum"},
    {0x10, "FirmwareHardFault"},
    {0x11, "FirmwareMemManageFault"},
    {0x12, "FirmwareBusFault"},
    {0x13, "FirmwareFirmwareUsageFault"},
    {0x14, "FirmwareWatchdogTimeout"},
    {0x15, "FirmwareAssertionFailure"},
    {0x16, "FirmwareMiscellaneous"},
    {0x20, "FirmwareMiscellaneousMajorFault"},
    {0x21, "FirmwareMiscellaneousCriticalFault"},
    {0x7F, "SocBigHammerFault"},
    {0x80, "HostRxThreadStuck"},
    {0x81, "HostHciCommandTimeout"},
    {0x82, "HostInvalidHciEvent"},
    {0x83, "HostUnimplementedPacketType"},
    {0x84, "HosHcitH4TxError"},
    {0x90, "HostOpenUserial"},
    {0x91, "HostPowerUpController"},
    {0x92, "HostChangeBaudrate"},
    {0x93, "HostResetBeforeFw"},
    {0x94, "HostDownloadFw"},
    {0x95, "HostResetAfterFw"},
    {0x96, "HostBdaddrFault"},
    {0x97, "HostCoexDeviceOpenError"},
    {0x98, "HostAccelatedBtInitFailed"},
    {0x99, "HostAccelatedBtShutdownFailed"},
    {0xC0, "ChreUsfTransportPrepareError"},
    {0xC1, "ChreUsfUnknownError"},
    {0xC2, "ChreUsfOperationFailed"},
    {0xC3, "ChreUsfValueTooBigError"},
    {0xC4, "ChreUsfSystemServiceError"},
    {0xC5, "ChreUsfBufferError"},
    {0xC6, "ChreUsfMemoryAllocationError"},
    {0xC7, "ChreUsfNotFoundError"},
    {0xC8, "ChreUsfNotSupportedError"},
    {0xC9, "ChreUsfBadValueError"},
    {0xCA, "ChreUsfOperationCanceledError"},
    {0xCB, "ChreUsfServiceNotAvailableError"},
    {0xCC, "ChreUsfNotReadyPerformOperationError"},
    {0xCD, "ChreUsfAllocationError"},
    {0xCE, "ChreUsfErrorIo"},
    {0xCF, "ChreUsfInvalidValueError"},
    {0xD0, "ChreUsfOperationTimedOutError"},
    {0xD1, "ChreUsfContainerFullError"},
    {0xD2, "ChreUsfValueTooSmallError"},
    {0xD3, "ChreUsfItemAlreadyExistsError"},
    {0xD4, "ChreUsfValueOutOfRangeError"},
    {0xD5, "ChreUsfUnimplementedPacketTypeError"},
    {0xD6, "ChreUsfHandleConnectionEventError"},
    {0xE0, "ChreArbitratorUnimplementedPacket"},
    {0xE1, "ChreArbitratorInvalidPacketSize"},
};

void Die(int code, const std::string& info) {
  os::SetUpProcess();
  LogFatal(static_cast<BqrErrorCode>(code), info);
}

std::string MessageFor(int code) {
  return "Bluetooth HAL crash with error code 0, vendor error code " + std::to_string(code);
}

// The trace names the kind and no other: neither one that the compiler folded it into, nor one of a wrong frame.
TEST(DebugCatalogueTest, EveryKindDiesInItsOwnFunctionWithItsOwnMessage) {
  for (const auto& kind : kKinds) {
    const auto died_in_this_one = [&](const std::string& output) {
      for (const auto& other : kKinds) {
        const bool named = output.find(std::string("debug::") + other.name + "(") != std::string::npos;
        if (named != (other.code == kind.code)) return false;
      }
      return output.find("Abort message: '" + MessageFor(kind.code) + "'\n") != std::string::npos;
    };
    EXPECT_EXIT(Die(kind.code, ""), KilledBySignal(SIGABRT), ::testing::Truly(died_in_this_one)) << kind.name;
  }
}

TEST(DebugCatalogueTest, ACodeWithoutAKindDiesAllTheSame) {
  for (const int code : {0x00, 0x30, 0xDF, 0xFF}) {
    EXPECT_EXIT(Die(code, "unheard of"), KilledBySignal(SIGABRT),
                "Abort message: '" + MessageFor(code) + ", extra info: unheard of'\n(.|\n)*debug::LogFatal\\(");
  }
}

// From `number` on, `apart` from one to the next.
template <typename... Steps>
void ExpectNumbered(int number, int apart, Steps... steps) {
  for (const AnchorType step : {steps...}) EXPECT_EQ(static_cast<int>(step), std::exchange(number, number + apart));
}

// Those who read records know the kinds of steps by number, too.
TEST(DebugCatalogueTest, StepsKeepTheirNumbers) {
  using enum AnchorType;
  ExpectNumbered(0, 2, kInitializeImpl, kPerformInit, kSendHciCommand, kSendAclData, kSendScoData, kSendIsoData);
  ExpectNumbered(14, 2, kCallbackHciEvent, kCallbackAclData, kCallbackScoData, kCallbackIsoData, kCallbackThreadData,
                 kUserialOpen, kUserialClose, kPowerControl, kBtqnlReset, kBaudrateChange, kFirmwareDownload,
                 kReadLocalName);
  ExpectNumbered(40, 1, kUnlinkSkipped, kServiceThread);
  ExpectNumbered(43, 1, kClose, kPerformClose, kBigHammer, kExtensionStart, kControllerReady, kCallbackFailed);
  ExpectNumbered(50, 1, kProtocolInitialize, kUserialReady);
  ExpectNumbered(53, 1, kUserialTtyOpen);
  ExpectNumbered(55, 1, kUserialAutoInit, kRfkillState, kBaudrateChangeFailed, kLocalNameMissing, kFastDownload,
                 kFirmwareDownloadFailed, kFirmwareFile, kFirmwareDownloadDone, kChipId, kCommandFailed,
                 kLpmTimerFailed, kWakelockSkipped, kWakelockAcquire, kWakelockRelease, kWakeLineFailed,
                 kWakeLineAssert, kWakeLineDeassert, kLpmWakeTimeout, kLpmSetupFailed, kLpmEnabling, kLpmDisabling,
                 kLpmDisableFailed, kProtocolShutdown, kUartTransmit, kUartReceive);
  ExpectNumbered(82, 1, kErrorReport, kHardwareErrorEvent, kDebugInfoCommand, kCoexDeviceOpen, kCoexSocketPairFailed,
                 kCoexCloseFirstSocket, kCoexCloseSecondSocket, kCoexSocketEvent, kCoexThreadDone, kCoexThreadStuck);
  ExpectNumbered(96, 1, kUsfTransportDead);
}

}  // namespace
}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
