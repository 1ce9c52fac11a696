// The vendor settings, read once from two text files, and the questions that combine them with system properties.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace android::hardware::bluetooth::conf {

inline constexpr char kVendorConfPath[] = "/vendor/etc/bluetooth/bt_vendor.conf";
inline constexpr char kVendorOverlayConfPath[] = "/vendor/etc/bluetooth/bt_vendor_overlay.conf";

// One setting as `bthal conf` shows it.
struct ConfigSetting {
  std::string key;     // as it stands in the file
  std::string value;   // the value in force; of a key that sets a property, the property's
  std::string source;  // "default", or the device path of the file that set it last
};

// Members are written during construction only and then read from any thread. Configuration never fails: what cannot be
// read or understood is logged at most.
class Config {
 public:
  // Built on the first call, which the process entry makes before any thread exists. Never destroyed.
  static Config& GetInstance();
  // Reads the same files into an object of its own and leaves the properties alone: for those who only look.
  static Config Preview();

  // Reads one file of "name = value" lines; `path` as the device knows it.
  void LoadConfig(const std::string& path);
  // Applies one pair; an unknown name is ignored.
  void StoreConfigValue(const std::string& name, const std::string& value);
  // Cuts `value` at every `delimiter`, keeping empty pieces.
  static std::vector<std::string> Split(const std::string& value, char delimiter);

  bool GetFastDownloadState() const { return !fast_download_disabled; }
  bool IsAcceleratedBtOnSupported() const;
  bool IsThreadDispatcherEnabled() const;
  bool DoNeedAocPowerPinCtrlCheck() const { return aoc_power_pin_ctrl_check_enabled; }
  // The configured serial type, or the fallback type while the UART fallback is in force.
  uint32_t GetUserialType() const;

  // Every key that the files may hold, in a fixed order.
  std::vector<ConfigSetting> Settings() const;

  bool fast_download_disabled = false;
  bool sar_back_off_high_resolution = false;
  int32_t big_hammer_bt_reg_on_delay_ms = 100;
  std::string uart_port = "/dev/ttySAC16";
  uint32_t userial_type = 1;
  bool accel_bt_disabled = false;
  bool thread_dispatcher_enabled = false;
  bool aoc_power_pin_ctrl_check_enabled = false;
  std::vector<std::string> hw_stages_not_controlling_power_pin_from_aoc;
  std::vector<std::string> hw_stages_with_old_chip_fw_no_longer_supported;
  uint32_t userial_type_fallback = 1;
  int32_t max_usf_recovery_time_s = 15;
  int32_t min_usf_disconnection_interval_s = 3600;
  bool is_user_debug_or_eng_build = false;
  bool apm_uart_skip_suspend = false;
  bool bqr_energy_report_logging = false;

 private:
  enum class Properties { kSet, kLeaveAlone };

  explicit Config(Properties properties);
  void SetPropertyFromFile(const char* property, const std::string& value) const;
  void UpdateBqrEventMask(const std::string& value) const;

  Properties properties_;
  std::string loading_path_;
  std::map<std::string, std::string> sources_;  // key, file that set it last
};

}  // namespace android::hardware::bluetooth::conf
