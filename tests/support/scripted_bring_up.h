// The bring-up of a controller that says what the test tells it to.
#pragma once

#include "btqnl_protocol/btqnl_protocol.h"
#include "support/test.h"
#include "support/uart_transport.h"

namespace bthal::test {

inline constexpr uint16_t kReset = 0x0C03;
inline constexpr uint16_t kLocalName = 0x0C14;
inline constexpr uint16_t kBaudRate = 0xFC18;
inline constexpr uint16_t kSleepMode = 0xFC27;
inline constexpr uint16_t kMinidriver = 0xFC2E;
inline constexpr uint16_t kWriteRam = 0xFC4C;
inline constexpr uint16_t kLaunchRam = 0xFC4E;
inline constexpr uint16_t kVerboseConfig = 0xFC79;
inline constexpr uint16_t kDebugInformation = 0xFD5B;
inline constexpr uint16_t kCheckOtp = 0xFE2F;
inline constexpr uint16_t kDownloadConfig = 0xFE72;

inline constexpr uint8_t kDisallowed = 0x0C;  // a status
inline constexpr uint8_t kPlainChip = 12;     // neither OTP nor fast download nor a patch of its own

class ScriptedBringUpTest : public TransportTest {
 protected:
  using StatusOf = std::function<uint8_t(uint16_t opcode)>;

  static std::future<bool> Start(std::function<bool()> step) { return std::async(std::launch::async, std::move(step)); }

  // With no other patch than the generic one, which is nothing but its launch.
  std::future<bool> Initialize() {
    root_.Write("/vendor/firmware/qnlr/QNL.hcd", std::string("\x4E\xFC\x04\xFF\xFF\xFF\xFF", 7));
    return Start([this] { return protocol_.Initialize(transport_.flow()); });
  }

  // Answers every command of a running step until it is over. Returns the opcodes.
  std::vector<uint16_t> Play(
      std::future<bool>& step, const StatusOf& status_of = [](uint16_t) { return uint8_t{0}; },
      const Bytes& parameters = {kPlainChip, 'n', 'a', 'm', 'e', 0}) {
    return controller_.CompleteAll([&] { return step.wait_for(seconds(0)) == std::future_status::ready; }, status_of,
                                   parameters);
  }
  // Refuses the `nth` (from 1) of `opcode`, and nothing else.
  static StatusOf Refusal(uint16_t opcode, int nth = 1) {
    return [=](uint16_t seen) mutable { return seen == opcode && --nth == 0 ? kDisallowed : uint8_t{0}; };
  }

  android::hardware::bluetooth::BtQnlProtocol& protocol_ = android::hardware::bluetooth::BtQnlProtocol::GetInstacne();
};

}  // namespace bthal::test
