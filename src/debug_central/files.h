// The files that debug central writes and reads. Paths are the device's own.
#pragma once

#include <cstdint>
#include <string>

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

inline constexpr char kCrashInfoDirectory[] = "/data/vendor/ssrdump/";
inline constexpr char kCoreDumpDirectory[] = "/data/vendor/ssrdump/coredump/";
inline constexpr char kCrashInfoPrefix[] = "crashinfo_bt_";
inline constexpr char kCoreDumpPrefix[] = "coredump_bt_";
inline constexpr char kSocDumpPrefix[] = "coredump_bt_socdump_";
inline constexpr char kChreDumpPrefix[] = "coredump_bt_chredump_";
inline constexpr char kDumpExtension[] = ".bin";
inline constexpr char kCrashInfoExtension[] = ".txt";

// The kernel's log of the low-power driver, without a leading slash as the platform's tools know it.
inline constexpr char kLpmDebugPort[] = "dev/logbuffer_btlpm";

// Why dumps are taken.
inline constexpr char kReasonHardwareError[] = "ControllerHwError";
inline constexpr char kReasonRootInflammation[] = "ControllerRootInflammed";
inline constexpr char kReasonFragmentWithoutRootInflammation[] = "ControllerDebugInfoDataDumpWithoutRootInflammed";
inline constexpr char kReasonDebugInfo[] = "Debug Info Event";

// Error numbers of the sensor hub, 0xC0 to 0xDF: their dumps are silent.
constexpr bool IsSilentError(uint8_t code) { return (code & 0xE0) == 0xC0; }
// Errors after which the service restarts without a dump and without alarming the stack's log: 0x20 and 0x7F.
constexpr bool IsQuietError(uint8_t code) { return code == 0x20 || code == 0x7F; }

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
