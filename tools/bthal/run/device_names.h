// Names by which the device's parts are known to someone outside the service.
#pragma once

namespace bthal::tool {

inline constexpr char kServiceProgram[] = "android.hardware.bluetooth-service.qnlbtlinux";
inline constexpr char kRootVariable[] = "BTHAL_ROOT";

inline constexpr char kSnoopLog[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
inline constexpr char kThreadSocket[] = "/data/vendor/bluetooth/thread_dispatcher_socket";
inline constexpr char kWakeLockName[] = "bthal_wakelock";

inline constexpr char kSnoopProperty[] = "persist.bluetooth.vendor.btsnoop";
inline constexpr char kSnoopLogModeProperty[] = "persist.bluetooth.btsnooplogmode";
inline constexpr char kAccelerateDisableProperty[] = "persist.bluetooth.disable.accelerate.bt.on";
inline constexpr char kBuildTypeProperty[] = "ro.build.type";

inline constexpr char kHciService[] = "android.hardware.bluetooth.IBluetoothHci/default";

}  // namespace bthal::tool
