#include "conf/conf.h"
#include "conf/properties.h"

#include "shim/shim.h"
#include "support/test.h"

namespace android::hardware::bluetooth::conf {
namespace {

using namespace ::bthal::test;

constexpr char kOffloadCap[] = "persist.bluetooth.a2dp_offload.cap";
constexpr char kEventMask[] = "persist.bluetooth.bqr.event_mask";

class ConfTest : public LoggedTest {
 protected:
  static ConfigSetting Setting(const Config& config, const std::string& key) {
    const auto settings = config.Settings();
    const auto found = std::find_if(settings.begin(), settings.end(),
                                    [&](const ConfigSetting& setting) { return setting.key == key; });
    return found == settings.end() ? ConfigSetting{} : *found;
  }

  static std::string Shown(const Config& config) {
    std::string text = "\n";
    for (const ConfigSetting& setting : config.Settings()) text += setting.key + "=" + setting.value + "\n";
    return text;
  }

  // What the vendor file `text` alone makes of the settings.
  Config Read(const std::string& text) {
    root_.Write(kVendorConfPath, text);
    return Config::Preview();
  }
};

TEST_F(ConfTest, WithoutFilesEverythingIsDefault) {
  const Config config = Config::Preview();
  EXPECT_EQ(Shown(config), R"(
FastDownloadDisable=false
SarBackOffHighResolution=false
BigHammerBtRegOnDelay=100
UartPort=/dev/ttySAC16
UserialType=1
AccelBtDisable=false
ThreadDispatcherEnabled=false
AocPowerPinCtrlCheckEnable=false
HwStageDoesNotCtrlPowerPinFromAoc=
HwStageWithOldChipFwNoLongerSupport=
UserialTypeFallback=1
MaxUsfRecoveryTimeInSeconds=15
MinUsfDisconnectionIntervalInSeconds=3600
ApmUartSkipSuspend=false
BqrEnergyReportLogging=false
BtA2dpOffloadCap=
BtOpusEnabled=
POFEnable=
BqrEventMaskValueUpdate=
)");
  EXPECT_EQ(log_.Text(), R"(
I is_user_debug_or_eng_build: build_type : 
I Attempt to load conf from /vendor/etc/bluetooth/bt_vendor.conf
I config file >/vendor/etc/bluetooth/bt_vendor.conf< not found
I Attempt to load conf from /vendor/etc/bluetooth/bt_vendor_overlay.conf
I config file >/vendor/etc/bluetooth/bt_vendor_overlay.conf< not found
)");
  EXPECT_FALSE(config.is_user_debug_or_eng_build);
  EXPECT_TRUE(config.GetFastDownloadState());
  EXPECT_TRUE(config.IsAcceleratedBtOnSupported());
  for (const ConfigSetting& setting : config.Settings()) EXPECT_EQ(setting.source, "default") << setting.key;
}

TEST_F(ConfTest, ReadsEveryKindOfLine) {
  const Config config = Read(
      "# UartPort = /dev/commented\n"
      " # UartPort = /dev/not a comment, but no key either\n"
      "\n"
      "   \t \n"
      "\tUartPort\t=  /dev/tty with blanks \t\r\n"
      "FastDownloadDisable=1\n"
      "AccelBtDisable true\n"
      "AocPowerPinCtrlCheckEnable = yes\n"
      "ApmUartSkipSuspend = True\n"
      "BqrEnergyReportLogging = 1 = 0\n"
      "uartport = /dev/wrong/case\n"
      "BigHammerBtRegOnDelay = -250 ms\n"
      "UserialType = tty\n"
      "UserialTypeFallback = 99999999999\n"
      "MaxUsfRecoveryTimeInSeconds = 077\n"
      "HwStageDoesNotCtrlPowerPinFromAoc = EVT1.0-PROTO 2\n"
      "HwStageWithOldChipFwNoLongerSupport = DEV--EVT-\n"
      "MinUsfDisconnectionIntervalInSeconds = 60");  // the last line of a file may lack its end
  EXPECT_EQ(Shown(config), R"(
FastDownloadDisable=true
SarBackOffHighResolution=false
BigHammerBtRegOnDelay=-250
UartPort=/dev/tty with blanks
UserialType=0
AccelBtDisable=true
ThreadDispatcherEnabled=false
AocPowerPinCtrlCheckEnable=false
HwStageDoesNotCtrlPowerPinFromAoc=EVT1.0-PROTO 2
HwStageWithOldChipFwNoLongerSupport=DEV--EVT-
UserialTypeFallback=2147483647
MaxUsfRecoveryTimeInSeconds=77
MinUsfDisconnectionIntervalInSeconds=60
ApmUartSkipSuspend=false
BqrEnergyReportLogging=true
BtA2dpOffloadCap=
BtOpusEnabled=
POFEnable=
BqrEventMaskValueUpdate=
)");
  EXPECT_FALSE(config.GetFastDownloadState());
  EXPECT_FALSE(config.DoNeedAocPowerPinCtrlCheck());
  EXPECT_THAT(config.hw_stages_not_controlling_power_pin_from_aoc, ElementsAre("EVT1.0", "PROTO 2"));
  EXPECT_THAT(config.hw_stages_with_old_chip_fw_no_longer_supported, ElementsAre("DEV", "", "EVT", ""));
}

TEST_F(ConfTest, HighResolutionTakesOnlyTheWordTrue) {
  EXPECT_FALSE(Read("SarBackOffHighResolution = 1\n").sar_back_off_high_resolution);
  EXPECT_TRUE(Read("SarBackOffHighResolution = true\n").sar_back_off_high_resolution);
}

TEST_F(ConfTest, NameWithoutValueWarnsAndKeepsTheDefault) {
  const Config config = Read("UartPort=\nUserialType\nFastDownloadDisable = true\n");
  EXPECT_TRUE(log_.Has("vnd_load_conf: missing value for name: UartPort"));
  EXPECT_TRUE(log_.Has("vnd_load_conf: missing value for name: UserialType"));
  EXPECT_EQ(config.uart_port, "/dev/ttySAC16");
  EXPECT_FALSE(config.GetFastDownloadState());  // and reading goes on
}

TEST_F(ConfTest, LongLineIsReadInPiecesOf255) {
  // The comment mark is seen on the first piece only: the rest of the line counts as lines of its own.
  const std::string comment = "#" + std::string(254, 'x');
  EXPECT_EQ(Read(comment + "UartPort=/dev/second/piece\n").uart_port, "/dev/second/piece");
  const std::string name = "UartPort=/";
  EXPECT_EQ(Read(name + std::string(1000, 'p') + "\n").uart_port, "/" + std::string(255 - name.size(), 'p'));
  EXPECT_EQ(Read(std::string("UartPort=/dev/zero\0byte\nUserialType=0\n", 38)).uart_port, "/dev/zero");
}

TEST_F(ConfTest, OverlayWinsAndSourcesAreTold) {
  root_.Write(kVendorConfPath, "UartPort=/dev/first\nUserialType=5\nBtOpusEnabled=true\n");
  root_.Write(kVendorOverlayConfPath, "UartPort=/dev/second\n");
  const Config config = Config::Preview();
  EXPECT_EQ(config.uart_port, "/dev/second");
  EXPECT_EQ(config.userial_type, 5u);
  EXPECT_EQ(Setting(config, "UartPort").value, "/dev/second");
  EXPECT_EQ(Setting(config, "UartPort").source, kVendorOverlayConfPath);
  EXPECT_EQ(Setting(config, "UserialType").source, kVendorConfPath);
  EXPECT_EQ(Setting(config, "BtOpusEnabled").source, kVendorConfPath);
  EXPECT_EQ(Setting(config, "AccelBtDisable").source, "default");
}

TEST_F(ConfTest, WhatIsTooLongForAConfigurationIsReadInPart) {
  const std::string comment = "#" + std::string(62, 'x') + "\n";
  std::string text = "UartPort=/dev/first\n";
  while (text.size() <= size_t{1} << 20) text += comment;
  EXPECT_EQ(Read(text + "UartPort=/dev/second\n").uart_port, "/dev/first");
  EXPECT_TRUE(log_.Has(std::string(kVendorConfPath) + " has more than 1048576 bytes, the rest is not read"));
}

TEST_F(ConfTest, NothingHangsOnAFolderOrAFifoInTheFilesPlace) {
  std::filesystem::create_directories(root_.Below(kVendorConfPath));
  ASSERT_EQ(mkfifo(root_.Below(kVendorOverlayConfPath).c_str(), 0600), 0);
  EXPECT_EQ(Config::Preview().uart_port, "/dev/ttySAC16");
}

TEST_F(ConfTest, PropertyKeysAreCopiedByTheServiceOnly) {
  root_.Write(kVendorConfPath, "BtA2dpOffloadCap = sbc-aac\nBtA2dpOffloadCap = sbc-aac-ldac\n");
  Config::Preview();
  EXPECT_EQ(GetProperty(kOffloadCap, ""), "");
  Config::GetInstance().LoadConfig(kVendorConfPath);
  EXPECT_EQ(GetProperty(kOffloadCap, ""), "sbc-aac-ldac");
  EXPECT_TRUE(log_.Has("StoreConfigValue: set persist.bluetooth.a2dp_offload.cap: sbc-aac-ldac"));
  EXPECT_EQ(Setting(Config::GetInstance(), "BtA2dpOffloadCap").value, "sbc-aac-ldac");

  Config::GetInstance().StoreConfigValue("BtOpusEnabled", "true");
  Config::GetInstance().StoreConfigValue("POFEnable", "1");
  EXPECT_EQ(GetProperty("persist.bluetooth.opus.enabled", ""), "true");
  EXPECT_EQ(GetProperty("persist.bluetooth.finder.enable", ""), "1");
}

TEST_F(ConfTest, EventMaskFollowsTheFileOnDeveloperBuildsOnly) {
  Config& config = Config::GetInstance();
  SetProperty(kEventMask, "0x1f");
  config.is_user_debug_or_eng_build = false;
  config.StoreConfigValue("BqrEventMaskValueUpdate", "0x3f");
  EXPECT_EQ(GetProperty(kEventMask, ""), "0x1f");

  config.is_user_debug_or_eng_build = true;
  config.StoreConfigValue("BqrEventMaskValueUpdate", "0x3f");
  EXPECT_EQ(GetProperty(kEventMask, ""), "0x3f");
  EXPECT_TRUE(log_.Has("StoreConfigValue: bqr.event_mask: 0x1f is not default value!"));
  EXPECT_TRUE(log_.Has("StoreConfigValue: set to default bqr.event_mask: 0x3f"));

  log_.Clear();
  config.StoreConfigValue("BqrEventMaskValueUpdate", "0x3f");
  EXPECT_FALSE(log_.Has("event_mask"));
}

TEST_F(ConfTest, BuildTypeIsTakenFromItsProperty) {
  ASSERT_TRUE(SetProperty("ro.build.type", "userdebug"));
  EXPECT_TRUE(Config::Preview().is_user_debug_or_eng_build);
  EXPECT_TRUE(log_.Has("is_user_debug_or_eng_build: build_type : userdebug"));
}

TEST_F(ConfTest, AValueThatTheSystemDoesNotTakeIsNamed) {
  Config& config = Config::GetInstance();
  config.is_user_debug_or_eng_build = true;
  config.StoreConfigValue("BtOpusEnabled", std::string(92, '1'));
  config.StoreConfigValue("BqrEventMaskValueUpdate", std::string(92, '2'));
  EXPECT_TRUE(log_.Has("StoreConfigValue: the system does not take the value of persist.bluetooth.opus.enabled"));
  EXPECT_TRUE(log_.Has("StoreConfigValue: the system does not take the value of " + std::string(kEventMask)));
}

TEST_F(ConfTest, SwitchesCombineFileAndPropertyAtEveryCall) {
  const Config config = Read("ThreadDispatcherEnabled = 1\nUserialType = 2\nUserialTypeFallback = 0\n");
  log_.Clear();
  EXPECT_FALSE(config.IsThreadDispatcherEnabled());
  SetProperty("persist.bluetooth.thread_dispatcher.enabled", "true");
  EXPECT_TRUE(config.IsThreadDispatcherEnabled());
  EXPECT_FALSE(Read("").IsThreadDispatcherEnabled());

  EXPECT_EQ(config.GetUserialType(), 2u);
  EXPECT_TRUE(config.IsAcceleratedBtOnSupported());
  hci::shim::EnableBtUartFallback();
  EXPECT_EQ(config.GetUserialType(), 0u);
  EXPECT_FALSE(config.IsAcceleratedBtOnSupported());
  EXPECT_EQ(log_.Text(), R"(
I IsThreadDispatcherEnabled: is_thread_dispatcher_enabled_prop: 0
I IsThreadDispatcherEnabled: is_thread_dispatcher_enabled_prop: 1
I is_user_debug_or_eng_build: build_type : 
I Attempt to load conf from /vendor/etc/bluetooth/bt_vendor.conf
I Attempt to load conf from /vendor/etc/bluetooth/bt_vendor_overlay.conf
I config file >/vendor/etc/bluetooth/bt_vendor_overlay.conf< not found
I IsThreadDispatcherEnabled: is_thread_dispatcher_enabled_prop: 1
I IsAcceleratedBtOnSupported: accel_bt_on_disable_prop: false
W EnableBtUartFallback
I GetUserialType: BT UART fallback to 0
I IsAcceleratedBtOnSupported: accel_bt_on_disable_prop: true
)");
  EXPECT_EQ(Read("UserialType = 2\nUserialTypeFallback = 3\n").GetUserialType(), 2u);

  SetProperty(kDisableAccelerateBtOnProperty, "0");  // only the word "false" is none
  EXPECT_FALSE(config.IsAcceleratedBtOnSupported());
  SetProperty(kDisableAccelerateBtOnProperty, "false");
  EXPECT_TRUE(config.IsAcceleratedBtOnSupported());
  EXPECT_FALSE(Read("AccelBtDisable = 1\n").IsAcceleratedBtOnSupported());
}

}  // namespace
}  // namespace android::hardware::bluetooth::conf
