// What the real service's report tells of a session, step by step.
#include <android-base/strings.h>

#include <regex>

#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using Steps = std::vector<std::string>;

class SessionRecordTest : public BoardSessionTest {
 protected:
  // The report's lines between two headings, without times. Numbers that are this run's own become N.
  static Steps Section(const std::string& report, const std::string& from, const std::string& to) {
    const size_t begin = report.find(from);
    Steps steps;
    for (std::string line : ::android::base::Split(report.substr(begin, report.find(to, begin) - begin), "\n")) {
      line = std::regex_replace(line, std::regex("^Timestamp of (.*): \\d\\d:\\d\\d:\\d\\d:\\d\\d\\d$"), "$1");
      line = std::regex_replace(line, std::regex("^\\d\\d:\\d\\d:\\d\\d:\\d\\d\\d: "), "");
      line = std::regex_replace(line, std::regex("FD: <\\d+>"), "FD: <N>");
      if (!line.empty() && line[0] != '=' && line != from) steps.push_back(line);
    }
    return steps;
  }

  static bool IsOfLink(const std::string& step) {
    return step.starts_with("LpmWakeUp") || step.starts_with("LpmSuspend") || step.starts_with("wakelock");
  }
};

TEST_F(SessionRecordTest, EveryStepLeavesItsLine) {
  Accelerate(true);
  StartBoard(SmallBoard());
  ASSERT_NO_FATAL_FAILURE(OpenSession());
  ASSERT_TRUE(Exchange({0x03, 0x0C, 0x00}));
  ASSERT_TRUE(WaitFor([&] { return Count(*board_, WireEvent::kWakeLine, 0) > 0; }));
  ASSERT_TRUE(Exchange({0x09, 0x10, 0x00}));
  ASSERT_TRUE(hal_->close().isOk());
  const std::string report = ReportOf(*hal_);

  Steps bring_up = Section(report, "Anchors' History", "Debugfs");
  Steps later(std::ranges::find(bring_up, "perform_init [OUT]"), bring_up.end());
  bring_up.resize(bring_up.size() - later.size());
  // The client's thread waits for the bring-up's somewhere on its way.
  std::erase(bring_up, "initialize_impl [ IN]");
  EXPECT_THAT(
      bring_up,
      ElementsAre("thread_perform_init", "perform_init [ IN]", "open_coex_dev, open the coex device (Success), count:0",
                  "PowerControl [ IN]", "PowerControl: Disabling, state_path: /sys/class/rfkill/rfkill0/state",
                  "PowerControl [OUT]", "PowerControl [ IN]",
                  "PowerControl: Enabling, state_path: /sys/class/rfkill/rfkill0/state", "PowerControl [OUT]",
                  "UserialOpen [ IN]", "userial_tty_open: open /dev/ttySAC16", "USERIAL Ready FD: <N>, type: <1>",
                  "UserialOpen [OUT]", "Initialize", "btqnl_reset [ IN]", "read_btqnl_chip_id, chip_id: 188",
                  "btqnl_reset [OUT]", "baudrate_change [ IN]", "baudrate_change [OUT]", "firmware_download [ IN]",
                  "firmware_download: firmware file [/vendor/firmware/qnlr/QNL_188_U.hcd] be used",
                  "enable_fast_download: Set Download Config command returned: 0x 0",
                  "firmware_download: fast download is supported", "baudrate_change [ IN]", "baudrate_change [OUT]",
                  "firmware_download: Done", "firmware_download [OUT]", "btqnl_reset [ IN]",
                  "read_btqnl_chip_id, chip_id: 188", "btqnl_reset [OUT]", "baudrate_change [ IN]",
                  "baudrate_change [OUT]", "read_local_name [ IN]", "read_local_name [OUT]", "LpmSetup: LPM enabling",
                  "LpmWakeUp", "wakelock_acquire", "LpmWakeUp: Assert", "perform_init: BTQNL controller is ready"));

  // The link falls asleep once at least, oftener where the machine stands still.
  std::string link;
  for (const std::string& step : later) {
    if (IsOfLink(step)) link += step + ";";
  }
  EXPECT_THAT(link, MatchesRegex("(LpmWakeUpTimeout;LpmSuspend: Deassert;wakelock_release;"
                                 "LpmWakeUp;wakelock_acquire;LpmWakeUp: Assert;)+"));
  std::erase_if(later, IsOfLink);
  for (const char* step : {"sendHciCommand: 0x0C03 - 4 bytes", "cb->hciEventReceived: 6 bytes",
                           "sendHciCommand: 0x1009 - 4 bytes", "cb->hciEventReceived: 12 bytes"}) {
    for (const char* end : {" [ IN]", " [OUT]"}) EXPECT_THAT(later, Contains(std::string(step) + end));
  }
  EXPECT_EQ(Steps(std::ranges::find(later, "close"), later.end()),
            (Steps{"close", "btqnl_reset [ IN]", "read_btqnl_chip_id, chip_id: 188", "btqnl_reset [OUT]"}));

  // In the order of the kinds' numbers.
  EXPECT_THAT(
      Section(report, "Anchors' Last Appear", "Anchors' History"),
      ElementsAre("initialize_impl [OUT]", "perform_init [OUT]", "sendHciCommand: 0x1009 - 4 bytes [OUT]",
                  "cb->hciEventReceived: 12 bytes [OUT]", "UserialOpen [OUT]", "PowerControl [OUT]",
                  "btqnl_reset [OUT]", "baudrate_change [OUT]", "firmware_download [OUT]", "read_local_name [OUT]",
                  "thread_perform_init", "close", "perform_init: BTQNL controller is ready", "Initialize",
                  "USERIAL Ready FD: <N>, type: <1>", "userial_tty_open: open /dev/ttySAC16",
                  "PowerControl: Enabling, state_path: /sys/class/rfkill/rfkill0/state",
                  "firmware_download: fast download is supported",
                  "firmware_download: firmware file [/vendor/firmware/qnlr/QNL_188_U.hcd] be used",
                  "firmware_download: Done", "read_btqnl_chip_id, chip_id: 188", "wakelock_acquire", "wakelock_release",
                  "LpmWakeUp: Assert", "LpmSuspend: Deassert", "LpmWakeUpTimeout", "LpmSetup: LPM enabling",
                  "open_coex_dev, open the coex device (Success), count:0"));
  EXPECT_THAT(report, HasSubstr("\nBluetooth is off, enabled 1 times, packets are counted\n"
                                "Commands to the controller: 2 packets, 6 bytes\n"
                                "Events from the controller: 2 packets, 18 bytes\n"
                                "ACL data to the controller: 0 packets, 0 bytes\n"));
}

}  // namespace
}  // namespace bthal::test
