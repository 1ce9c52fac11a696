// Status and event codes.
#pragma once

#include <cstdint>

namespace bthal::sim {

inline constexpr uint8_t kSuccess = 0x00;
inline constexpr uint8_t kUnknownCommand = 0x01;
inline constexpr uint8_t kUnknownConnection = 0x02;
inline constexpr uint8_t kHardwareFailure = 0x03;
inline constexpr uint8_t kPageTimeout = 0x04;
inline constexpr uint8_t kAuthenticationFailure = 0x05;
inline constexpr uint8_t kKeyMissing = 0x06;
inline constexpr uint8_t kMemoryExceeded = 0x07;
inline constexpr uint8_t kConnectionExists = 0x0B;
inline constexpr uint8_t kCommandDisallowed = 0x0C;
inline constexpr uint8_t kInvalidParameters = 0x12;
inline constexpr uint8_t kRemoteUserTerminated = 0x13;
inline constexpr uint8_t kLocalHostTerminated = 0x16;
inline constexpr uint8_t kInsufficientSecurity = 0x2F;
inline constexpr uint8_t kAdvertisingTimeout = 0x3C;
inline constexpr uint8_t kIntegrityFailure = 0x3D;
inline constexpr uint8_t kUnknownAdvertisingSet = 0x42;

inline constexpr uint8_t kInquiryCompleteEvent = 0x01;
inline constexpr uint8_t kInquiryResultEvent = 0x02;
inline constexpr uint8_t kConnectionCompleteEvent = 0x03;
inline constexpr uint8_t kDisconnectionCompleteEvent = 0x05;
inline constexpr uint8_t kAuthenticationCompleteEvent = 0x06;
inline constexpr uint8_t kRemoteNameEvent = 0x07;
inline constexpr uint8_t kEncryptionChangeEvent = 0x08;
inline constexpr uint8_t kRemoteFeaturesEvent = 0x0B;
inline constexpr uint8_t kRemoteVersionEvent = 0x0C;
inline constexpr uint8_t kCommandCompleteEvent = 0x0E;
inline constexpr uint8_t kCommandStatusEvent = 0x0F;
inline constexpr uint8_t kHardwareErrorEvent = 0x10;
inline constexpr uint8_t kRoleChangeEvent = 0x12;
inline constexpr uint8_t kCompletedPacketsEvent = 0x13;
inline constexpr uint8_t kModeChangeEvent = 0x14;
inline constexpr uint8_t kPinCodeRequestEvent = 0x16;
inline constexpr uint8_t kLinkKeyRequestEvent = 0x17;
inline constexpr uint8_t kLinkKeyNotificationEvent = 0x18;
inline constexpr uint8_t kLoopbackCommandEvent = 0x19;
inline constexpr uint8_t kClockOffsetEvent = 0x1C;
inline constexpr uint8_t kPacketTypeEvent = 0x1D;
inline constexpr uint8_t kInquiryResultWithRssiEvent = 0x22;
inline constexpr uint8_t kRemoteExtendedFeaturesEvent = 0x23;
inline constexpr uint8_t kSynchronousConnectionEvent = 0x2C;
inline constexpr uint8_t kExtendedInquiryResultEvent = 0x2F;
inline constexpr uint8_t kEncryptionRefreshEvent = 0x30;
inline constexpr uint8_t kIoCapabilityRequestEvent = 0x31;
inline constexpr uint8_t kIoCapabilityResponseEvent = 0x32;
inline constexpr uint8_t kUserConfirmationRequestEvent = 0x33;
inline constexpr uint8_t kSimplePairingCompleteEvent = 0x36;
inline constexpr uint8_t kLeMetaEvent = 0x3E;
inline constexpr uint8_t kVendorEvent = 0xFF;

// The first parameter of a low-energy event.
inline constexpr uint8_t kLeConnectionComplete = 0x01;
inline constexpr uint8_t kLeAdvertisingReport = 0x02;
inline constexpr uint8_t kLeConnectionUpdateComplete = 0x03;
inline constexpr uint8_t kLeRemoteFeaturesComplete = 0x04;
inline constexpr uint8_t kLeLongTermKeyRequest = 0x05;
inline constexpr uint8_t kLeRemoteParametersRequest = 0x06;
inline constexpr uint8_t kLeDataLengthChange = 0x07;
inline constexpr uint8_t kLeP256PublicKey = 0x08;
inline constexpr uint8_t kLeDhKey = 0x09;
inline constexpr uint8_t kLeEnhancedConnectionComplete = 0x0A;
inline constexpr uint8_t kLePhyUpdateComplete = 0x0C;
inline constexpr uint8_t kLeExtendedAdvertisingReport = 0x0D;
inline constexpr uint8_t kLeScanTimeout = 0x11;
inline constexpr uint8_t kLeAdvertisingSetTerminated = 0x12;
inline constexpr uint8_t kLeChannelSelection = 0x14;

// The first parameter of one of the maker's.
inline constexpr uint8_t kDebugInfoReport = 0x57;
inline constexpr uint8_t kQualityReport = 0x58;

}  // namespace bthal::sim
