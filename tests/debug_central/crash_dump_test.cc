// Crash dumps as the hardware-error watcher takes them, and the saved files in the service's report.
#include "debug_central/saved_dumps.h"
#include "support/diagnostics.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

const hci::HciPacket kHardwareError = {0x10, 0x01, 0x2A};

using CrashDumpTest = MonitoredTest;

TEST_F(CrashDumpTest, AHardwareErrorLeavesBothFilesAndReachesTheStack) {
  MakeFolders();
  root_.Write("/dev/logbuffer_ttySAC16", "uart history");
  root_.Write("/dev/logbuffer_btlpm", "lpm history");
  central_.SetBtUartDebugPort("/dev/ttySAC16");
  const mode_t mask = umask(077);
  EXPECT_TRUE(Reaches(kHardwareError));
  umask(mask);

  ASSERT_EQ(CoreDumps(root_).size(), 1u);
  const std::string core = CoreDumps(root_)[0];
  ASSERT_THAT(core,
              MatchesRegex("coredump_bt_20[0-9][0-9]-[01][0-9]-[0-3][0-9]_[0-2][0-9]-[0-5][0-9]-[0-6][0-9][.]bin"));
  const std::string time = core.substr(std::string("coredump_bt_").size(), 19);
  const std::string info = kCrashInfoDir + ("crashinfo_bt_" + time + ".txt");
  const std::string rule(45, '=');
  EXPECT_EQ(root_.Read(kCoreDumpDir + core), "DUMP REASON: ControllerHwError - occurred at " + time + rule +
                                                 "\nDebugfs:/dev/logbuffer_ttySAC16\n" + rule + "\nuart history\n\n" +
                                                 rule + "\nDebugfs:dev/logbuffer_btlpm\n" + rule + "\nlpm history\n\n");
  EXPECT_EQ(root_.Read(info), "crash_reason: ControllerHwError\ncrash_count: 1\ntimestamp: " + time + "\n");
  EXPECT_EQ(root_.ModeOf(kCoreDumpDir + core), 0644u);
  EXPECT_EQ(root_.ModeOf(info), 0644u);

  EXPECT_TRUE(log_.Has("Received Hardware error event!"));
  EXPECT_TRUE(log_.Has("Error code=2A"));
  EXPECT_TRUE(log_.Has("start_crash_dump: reason: ControllerHwError, slient_report:0"));
  EXPECT_TRUE(
      log_.Has("start_crash_dump: Starting to generate Bluetooth ssrdump files: "
               "/data/vendor/ssrdump/coredump/" +
               core));
  EXPECT_TRUE(log_.Has("start_crash_dump: Request to get Transport Layer Debug Dump"));
  EXPECT_THAT(DumpSection("Anchors' Last Appear").at(0), HasSubstr("operator(): Received Hardware error event!"));

  EXPECT_TRUE(Reaches({0x10, 0x00}));  // without a code, and no second dump
  EXPECT_EQ(log_.Count("Error code="), 1u);
  EXPECT_EQ(log_.Count("start_crash_dump: reason"), 1u);
  EXPECT_EQ(CrashInfos(root_).size(), 1u);
}

TEST_F(CrashDumpTest, WithoutItsFoldersADumpIsToldAndTakenOnce) {
  EXPECT_TRUE(Reaches(kHardwareError));
  EXPECT_TRUE(log_.Has("start_crash_dump: Failed to open coredump file: /data/vendor/ssrdump/coredump/coredump_bt_"));
  EXPECT_TRUE(log_.Has("start_crash_dump: Failed to open crashinfo file: /data/vendor/ssrdump/crashinfo_bt_"));
  EXPECT_EQ(log_.Count("failed: No such file or directory (2)"), 2u);
  MakeFolders();
  Reaches(kHardwareError);
  EXPECT_EQ(CrashInfos(root_).size(), 0u);
}

// The disk of a service that dies again and again holds its newest dumps, each with all that belongs to it.
TEST_F(CrashDumpTest, TheOldestDumpsMakeRoomForTheNewest) {
  MakeFolders();
  const std::string backup = "/data/vendor/bluetooth/backup_btsnoop_hci_vnd.log";
  const auto time = [](int day) { return "2024-03-0" + std::to_string(day) + "_09-05-12"; };
  const auto files = [&](const std::string& suffix) {
    return std::vector<std::string>{std::string(kCrashInfoDir) + "crashinfo_bt_" + suffix + ".txt",
                                    std::string(kCoreDumpDir) + "coredump_bt_" + suffix + ".bin",
                                    std::string(kCoreDumpDir) + "coredump_bt_socdump_" + suffix + ".bin",
                                    std::string(kCoreDumpDir) + "coredump_bt_chredump_" + suffix + ".bin",
                                    backup + suffix,
                                    backup + ".last" + suffix};
  };
  for (int day = 1; day <= 9; ++day) {
    for (const std::string& file : files(time(day))) root_.Write(file, "dump");
  }
  const std::string foreign = std::string(kCoreDumpDir) + "coredump_bt_1.bin";
  root_.Write(foreign, "not a dump's name");
  Reaches(kHardwareError);
  EXPECT_EQ(CrashInfos(root_).size(), 8u);
  for (int day = 1; day <= 9; ++day) {
    for (const std::string& file : files(time(day))) EXPECT_EQ(root_.Read(file), day <= 2 ? "" : "dump") << file;
  }
  EXPECT_EQ(root_.Read(foreign), "not a dump's name");
  EXPECT_TRUE(log_.Has("start_crash_dump: the dump of 2024-03-02_09-05-12 makes room for a newer one"));

  // A second dump of a second gets a name of its own, whichever file the first one has left.
  using V1_1::qnlbtlinux::debug::UnusedSuffix;
  const std::vector<V1_1::qnlbtlinux::debug::DumpFiles> kinds = {{kCrashInfoDir, "crashinfo_bt_", ".txt"},
                                                                 {"/data/vendor/bluetooth/", "backup", ""}};
  EXPECT_EQ(UnusedSuffix(kinds, "2024-03-01_09-05-12"), "2024-03-01_09-05-12");
  EXPECT_EQ(UnusedSuffix(kinds, "2024-03-09_09-05-12"), "2024-03-09_09-05-12_2");
  root_.Write("/data/vendor/bluetooth/backup2024-03-09_09-05-12_2", "");
  EXPECT_EQ(UnusedSuffix(kinds, "2024-03-09_09-05-12"), "2024-03-09_09-05-12_3");
}

// A service that dies again and again on a full disk would else leave eight dumps of which none says anything.
TEST_F(CrashDumpTest, DumpsThatHoldNothingMakeRoomFirst) {
  MakeFolders();
  const auto crash_info = [](int day) {
    return std::string(kCrashInfoDir) + "crashinfo_bt_2024-03-0" + std::to_string(day) + "_09-05-12.txt";
  };
  for (int day = 1; day <= 9; ++day) {
    const bool empty = day == 5 || day == 7;
    root_.Write(crash_info(day), empty || day == 6 ? "" : "dump");
    root_.Write(std::string(kCoreDumpDir) + "coredump_bt_2024-03-0" + std::to_string(day) + "_09-05-12.bin",
                empty ? "" : "dump");
  }
  Reaches(kHardwareError);
  for (int day = 1; day <= 9; ++day) {
    EXPECT_EQ(std::filesystem::exists(root_.Below(crash_info(day))), day != 5 && day != 7) << day;
  }
}

// A FIFO where a dump looks for the packet log, or would write, keeps a dying service no longer than a missing file.
TEST_F(CrashDumpTest, ADumpWaitsForNoFileThatIsNone) {
  MakeFolders();
  ASSERT_EQ(mkfifo(root_.Below("/data/vendor/bluetooth/btsnoop_hci_vnd.log").c_str(), 0600), 0);
  central_.HasClientConnectWith(true);
  Reaches({0xFF, 0x04, 0x58, 0x05, 0x00, 0x15});
  EXPECT_TRUE(log_.Has("/data/vendor/bluetooth/btsnoop_hci_vnd.log: No such device or address (6)"));
  EXPECT_EQ(CoreDumps(root_).size(), 1u);
}

TEST_F(CrashDumpTest, TheMonitorEndsWithStop) {
  MakeFolders();
  Monitor::Get().StartMonitor(nullptr);
  EXPECT_TRUE(log_.Has("StartMonitor: Invalid handle!"));
  Monitor::Get().StopMonitor();
  Monitor::Get().StopMonitor();
  EXPECT_TRUE(Reaches(kHardwareError));
  EXPECT_FALSE(log_.Has("Received Hardware error event!"));

  // A flow control that goes while it is monitored, and its successor.
  Monitor::Get().StartMonitor(flow_.get());
  hci::HciFlowControl::Halt();
  flow_.reset();
  flow_ = MakeFlow();
  Monitor::Get().StartMonitor(flow_.get());
  Reaches(kHardwareError);
  EXPECT_EQ(log_.Count("Received Hardware error event!"), 1u);
}

TEST_F(CrashDumpTest, TheReportHoldsRecordsSavedFilesAndStatisticsInThisOrder) {
  const std::string rule = std::string(45, '=') + "\n";
  const std::string stars = std::string(45, '*') + "\n";
  MakeFolders();
  root_.Write(std::string(kCrashInfoDir) + "crashinfo_bt_2024-03-07_09-05-13.txt", "second\n");
  root_.Write(std::string(kCrashInfoDir) + "crashinfo_bt_2024-03-07_09-05-12.txt", "first\n");
  root_.Write(std::string(kCrashInfoDir) + "crashinfo_wifi.txt", "not ours");
  root_.Write(std::string(kCoreDumpDir) + "coredump_bt_x.bin", std::string("\0\xFF\n", 3));
  std::filesystem::create_symlink("gone", root_.path() + kCoreDumpDir + "coredump_bt_y.bin");
  central_.UpdateRecord(AnchorType::kClose, "close");
  const std::string report = DumpText();

  EXPECT_THAT(
      report.substr(0, report.find(": close\n")),
      MatchesRegex(rule + "Controller Firmware Information\n" + rule + ".*\n" + rule + "Anchors' Last Appear\n" + rule +
                   "Timestamp of close: ..:..:..:...\n" + rule + "Anchors' History\n" + rule + "..:..:..:..."));
  const auto entry = [&](const std::string& name, const std::string& content) {
    return stars + "BEGIN of LogFile: " + name + "\n" + content + "\nEND of LogFile: " + name + "\n" + stars;
  };
  const size_t kernel = report.find("Debugfs:dev/logbuffer_btlpm\n");
  const size_t saved = report.find(entry("crashinfo_bt_2024-03-07_09-05-12.txt", "first\n") +
                                   entry("crashinfo_bt_2024-03-07_09-05-13.txt", "second\n") +
                                   entry("coredump_bt_x.bin", std::string("\0\xFF\n", 3)) +
                                   entry("coredump_bt_y.bin", "File open failed: coredump_bt_y.bin"));
  const size_t statistics = report.find("Bluetooth is ");
  EXPECT_LT(kernel, saved);
  EXPECT_LT(saved, statistics);
  EXPECT_LT(statistics, report.size());
  EXPECT_EQ(report.find("wifi"), std::string::npos);
  EXPECT_TRUE(log_.Has("Dump: Dumping coredump_bt_x.bin"));
  EXPECT_TRUE(log_.Has("Dump: write bt coredump files to IBluetoothHci_default.txt"));

  std::filesystem::remove_all(root_.path() + kCrashInfoDir);
  DumpText();
  EXPECT_TRUE(log_.Has("Dump: Failed to open directory, skip /data/vendor/ssrdump/"));
  EXPECT_TRUE(log_.Has("Dump: Failed to open directory, skip /data/vendor/ssrdump/coredump/"));
}

}  // namespace
}  // namespace android::hardware::bluetooth
