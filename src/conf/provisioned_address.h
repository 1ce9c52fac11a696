// The Bluetooth address that the device has been given, and where it stands.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace android::hardware::bluetooth::conf {

inline constexpr char kDeviceTreeAddressPath[] = "/proc/device-tree/chosen/config/bt_addr";
inline constexpr char kAddressProperty[] = "ro.vendor.bluetooth.evb_bdaddr";

// The six bytes of an address as HCI carries them, least significant first.
using AddressBytes = std::array<uint8_t, 6>;

struct AddressText {
  std::string text;
  bool from_device_tree = false;  // otherwise it is the property
};

// The first line of the device tree's entry, else the property; empty without either. Only a file can be the entry:
// what somebody else has put in its place must not hold up the bring-up.
AddressText ReadAddressText();

// Reads the text forms "AA:BB:CC:DD:EE:FF" and "AABBCCDDEEFF", either case, most significant byte first; blanks may
// stand before each pair. What follows the sixth pair is ignored. False, with `bytes` all zero, for any other text.
bool ParseBluetoothAddress(const std::string& text, AddressBytes* bytes);

}  // namespace android::hardware::bluetooth::conf
