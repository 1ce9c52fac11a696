// The numbered kinds of fatal errors.
#pragma once

#include <cstdint>

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// One number space with the vendor error codes of the controller's root-inflammation events, so that the stack sees
// host-side failures in the same form. 0x01 to 0x7F are the controller's own, 0x80 and up are raised by the host, 0xC0
// to 0xE1 belong to the sensor-hub transport. The names reach crash reports and do not change from release
// to release, misspellings included.
enum class BqrErrorCode : uint8_t {
  kUartParsing = 0x01,
  kUartIncompletePacket = 0x02,
  kFirmwareChecksum = 0x03,
  kFirmwareHardFault = 0x10,
  kFirmwareMemManageFault = 0x11,
  kFirmwareBusFault = 0x12,
  kFirmwareFirmwareUsageFault = 0x13,
  kFirmwareWatchdogTimeout = 0x14,
  kFirmwareAssertionFailure = 0x15,
  kFirmwareMiscellaneous = 0x16,
  kFirmwareMiscellaneousMajorFault = 0x20,
  kFirmwareMiscellaneousCriticalFault = 0x21,
  kSocBigHammerFault = 0x7F,
  kHostRxThreadStuck = 0x80,
  kHostHciCommandTimeout = 0x81,
  kHostInvalidHciEvent = 0x82,
  kHostUnimplementedPacketType = 0x83,
  kHosHcitH4TxError = 0x84,
  kHostOpenUserial = 0x90,
  kHostPowerUpController = 0x91,
  kHostChangeBaudrate = 0x92,
  kHostResetBeforeFw = 0x93,
  kHostDownloadFw = 0x94,
  kHostResetAfterFw = 0x95,
  kHostBdaddrFault = 0x96,
  kHostCoexDeviceOpenError = 0x97,
  kHostAccelatedBtInitFailed = 0x98,
  kHostAccelatedBtShutdownFailed = 0x99,
  kChreUsfTransportPrepareError = 0xC0,
  kChreUsfUnknownError = 0xC1,
  kChreUsfOperationFailed = 0xC2,
  kChreUsfValueTooBigError = 0xC3,
  kChreUsfSystemServiceError = 0xC4,
  kChreUsfBufferError = 0xC5,
  kChreUsfMemoryAllocationError = 0xC6,
  kChreUsfNotFoundError = 0xC7,
  kChreUsfNotSupportedError = 0xC8,
  kChreUsfBadValueError = 0xC9,
  kChreUsfOperationCanceledError = 0xCA,
  kChreUsfServiceNotAvailableError = 0xCB,
  kChreUsfNotReadyPerformOperationError = 0xCC,
  kChreUsfAllocationError = 0xCD,
  kChreUsfErrorIo = 0xCE,
  kChreUsfInvalidValueError = 0xCF,
  kChreUsfOperationTimedOutError = 0xD0,
  kChreUsfContainerFullError = 0xD1,
  kChreUsfValueTooSmallError = 0xD2,
  kChreUsfItemAlreadyExistsError = 0xD3,
  kChreUsfValueOutOfRangeError = 0xD4,
  kChreUsfUnimplementedPacketTypeError = 0xD5,
  kChreUsfHandleConnectionEventError = 0xD6,
  kChreArbitratorUnimplementedPacket = 0xE0,
  kChreArbitratorInvalidPacketSize = 0xE1,
};

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
