// What becomes of the controller's vendor events: which of them the stack sees, and which files they leave.
#include <sys/resource.h>

#include "bluetooth_bqr.h"
#include "conf/conf.h"
#include "support/diagnostics.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

using hci::HciPacket;
using ::testing::EndsWith;

constexpr char kSnoop[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
constexpr char kBackup[] = "/data/vendor/bluetooth/backup_btsnoop_hci_vnd.log";

HciPacket VendorEvent(const Bytes& payload) { return Joined({{0xFF, static_cast<uint8_t>(payload.size())}, payload}); }

HciPacket RootInflammation(uint8_t vendor_error) { return VendorEvent({0x58, 0x05, 0x00, vendor_error}); }

// A piece of a dump: 0x57, or 0x58 with report id 19 or 20; `last` lies at byte 5.
HciPacket Fragment(std::vector<uint8_t> head, uint8_t last, size_t size, uint8_t fill) {
  head.resize(size - 2, fill);
  head[3] = last;
  return VendorEvent(std::move(head));
}

std::string Text(const HciPacket& packet) { return std::string(packet.begin(), packet.end()); }

// Fragments are written synchronously, so a disk under the root would decide how long the tests take.
struct RootInMemory {
  RootInMemory() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  }
};

class VendorEventsTest : public RootInMemory, public MonitoredTest {
 protected:
  VendorEventsTest() {
    MakeFolders();
    central_.HasClientConnectWith(true);
  }

  std::string ReadOnly(const std::string& prefix) {
    const auto names = CoreDumps(root_, prefix);
    EXPECT_EQ(names.size(), 1u) << prefix;
    return names.empty() ? "" : root_.Read(kCoreDumpDir + names[0]);
  }
  std::string Reason() { return root_.Read(kCrashInfoDir + CrashInfos(root_).at(0)); }
};

TEST_F(VendorEventsTest, OnlyWhatIsTheStacksReachesIt) {
  const std::vector<Bytes> hidden = {{0x1B}, {0x1B, 1, 2, 3}, {0x6A, 1}, {0x57, 0, 0, 0, 0, 0}, {0x58, 0x06, 1, 2},
                                     {0x57}};  // too short, and still not the stack's
  std::vector<Bytes> seen = {
      {}, {0x58}, {0x59, 0x05, 0x00, 0x15}, {0x58, 0x05}, {0x58, 0x05, 0x00}};  // too short for codes
  for (const uint8_t id : {0, 1, 2, 3, 4, 7, 8, 0x10, 0x20, 0x21, 0xFF}) seen.push_back({0x58, id, 1, 2});
  for (const auto& [payloads, reaches] : {std::pair(hidden, false), std::pair(seen, true)}) {
    for (const Bytes& payload : payloads) {
      EXPECT_EQ(Reaches(VendorEvent(payload)), reaches) << ::testing::PrintToString(payload);
      EXPECT_TRUE(Reaches({0xFF, 0x01, 0x99})) << "hidden after " << ::testing::PrintToString(payload);
    }
  }
  EXPECT_EQ(CoreDumps(root_).size(), 0u);
  EXPECT_EQ(CrashInfos(root_).size(), 0u);
  EXPECT_FALSE(central_.HandleVendorEvent({0xFF}));
  EXPECT_EQ(log_.Count("HandleVendorEvent: Invalid length of VS event!"), 1u);
  EXPECT_EQ(log_.Count("Invalid length of BQR event!"), 3u);
  EXPECT_EQ(log_.Count("Invalid length of debug info event!"), 2u);
  const std::string kept = BluetoothBqr::Get().Report();
  for (const int id : {1, 2, 3, 4, 7, 16, 32}) {
    const std::string report =
        std::to_string(id) + ": 1, the latest [6]{255, 4, 88, " + std::to_string(id) + ", 1, 2}\n";
    EXPECT_THAT(kept, HasSubstr("Quality report " + report));
  }
}

TEST_F(VendorEventsTest, EnergyReportsAreHiddenAndGoToTheirLogWhereThatIsWanted) {
  const std::string log = "/data/vendor/bluetooth/bqr_energy_report.log";
  const HciPacket report = VendorEvent({0x58, 0x06, 1, 2});
  BtBqrEnergyRecoder& recorder = BtBqrEnergyRecoder::Get();
  std::filesystem::create_directories(root_.path() + "/data/vendor/bluetooth");
  recorder.StartLogging();
  EXPECT_FALSE(Reaches(report));
  EXPECT_FALSE(std::filesystem::exists(root_.Below(log)));

  conf::Config::GetInstance().bqr_energy_report_logging = true;
  recorder.StartLogging();
  recorder.StartLogging();  // once more: the same log
  EXPECT_FALSE(Reaches(report));
  EXPECT_THAT(root_.Read(log), MatchesRegex("20[^\n]*\n\\[6\\]\\{255, 4, 88, 6, 1, 2\\}\n"));
  EXPECT_FALSE(std::filesystem::exists(root_.Below(log + ".last")));
  recorder.StopLogging();
  EXPECT_FALSE(Reaches(report));
  EXPECT_THAT(root_.Read(log), EndsWith("2}\n"));

  // A full disk.
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, SIG_IGN);
  recorder.StartLogging();
  const rlimit nothing = {1, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &nothing);
  for (int i = 0; i < 3; ++i) Reaches(report);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(log_.HasThrottled("OnEnergyReport: unable to write to " + log));
  recorder.StopLogging();
}

TEST_F(VendorEventsTest, TheCapabilityAnswerIsKeptAndScanAnswersAreLogged) {
  EXPECT_TRUE(Reaches({0x0E, 0x06, 0x01, 0x53, 0xFD, 0x00, 0x60, 0x01}));
  EXPECT_THAT(BluetoothBqr::Get().Report(), HasSubstr("Controller capability: [8]{14, 6, 1, 83, 253, 0, 96, 1}"));
  EXPECT_TRUE(Reaches({0x0E, 0x04, 0x01, 0x42, 0x20, 0x00}));
  EXPECT_TRUE(log_.Has("Command Complete Event of LE_SET_EXTENDED_SCAN_ENABLE, opcode:2042"));
}

TEST_F(VendorEventsTest, ARootInflammationDumpsBacksUpAndReachesTheStack) {
  root_.Write(kSnoop, "packets");
  root_.Write(std::string(kSnoop) + ".last", "older packets");
  std::filesystem::permissions(root_.Below(kSnoop), std::filesystem::perms(0640));
  EXPECT_TRUE(Reaches(RootInflammation(0x15)));
  EXPECT_TRUE(log_.Has("Received Root Inflammation event! (0x0015)"));
  ASSERT_EQ(CoreDumps(root_).size(), 1u);
  const std::string reason =
      "ControllerRootInflammed: error_code: 0x00, vendor_error: 0x15, Firmware Crash due to Assertion failure";
  EXPECT_THAT(ReadOnly("coredump_bt_2"), StartsWith("DUMP REASON: " + reason + " - occurred at "));
  EXPECT_THAT(Reason(), HasSubstr("crash_reason: " + reason + "\ncrash_count: 1\n"));
  const std::string suffix = CrashInfos(root_).at(0).substr(13, 19);
  EXPECT_EQ(root_.Read(kBackup + suffix), "packets");
  EXPECT_EQ(root_.Read(std::string(kBackup) + ".last" + suffix), "older packets");
  EXPECT_EQ(root_.ModeOf(kBackup + suffix), 0640u);
  EXPECT_EQ(root_.Read(kSnoop), "packets");

  // The next one takes no second dump, but is the stack's to see.
  EXPECT_TRUE(Reaches(RootInflammation(0x16)));
  EXPECT_EQ(CoreDumps(root_).size(), 1u);
  EXPECT_EQ(log_.Count("start_crash_dump: reason"), 1u);
  // And a quiet one is hidden, dump or not.
  EXPECT_FALSE(Reaches(RootInflammation(0x20)));
}

TEST_F(VendorEventsTest, QuietRootInflammationsLeaveNoTrace) {
  EXPECT_FALSE(Reaches(RootInflammation(0x20)));
  EXPECT_FALSE(Reaches(RootInflammation(0x7F)));
  central_.HasClientConnectWith(false);
  EXPECT_FALSE(Reaches(RootInflammation(0x15)));
  central_.HasClientConnectWith(true);
  EXPECT_EQ(log_.Count("Received Root Inflammation event!"), 3u);
  EXPECT_EQ(CoreDumps(root_).size() + CrashInfos(root_).size(), 0u);
}

TEST_F(VendorEventsTest, ARootInflammationOfTheSensorHubsKindsHasNoCrashInfo) {
  EXPECT_TRUE(Reaches(RootInflammation(0xC0)));
  EXPECT_EQ(CoreDumps(root_).size(), 1u);
  EXPECT_EQ(CrashInfos(root_).size(), 0u);
}

TEST_F(VendorEventsTest, AnUnsupportedHardwareStageTakesNoDump) {
  root_.Write("/vendor/etc/bluetooth/bt_vendor.conf", "HwStageWithOldChipFwNoLongerSupport = EVT1.0-PROTO1.0\n");
  SetProperty("ro.boot.hardware.revision", "EVT1.0");
  EXPECT_TRUE(central_.hw_stage_firmware_no_longer_supported());
  EXPECT_FALSE(Reaches(RootInflammation(0x15)));
  EXPECT_EQ(CoreDumps(root_).size() + CrashInfos(root_).size(), 0u);
}

TEST_F(VendorEventsTest, DebugInformationIsGatheredInOneFileAndStartsADump) {
  const HciPacket first = Fragment({0x57, 0x10, 0x20, 0}, 0, 9, 1);
  const HciPacket second = Fragment({0x57, 0x10, 0x20, 0}, 1, 257, 2);
  EXPECT_FALSE(Reaches(Fragment({0x57, 0, 0, 0}, 1, 8, 0)));
  EXPECT_TRUE(log_.Has("Invalid length of debug info event!"));
  EXPECT_FALSE(log_.Has("Last soc dump fragment has been received"));
  EXPECT_EQ(CoreDumps(root_).size(), 0u);

  EXPECT_FALSE(Reaches(first));
  EXPECT_TRUE(log_.Has("Received Debug Info event!"));
  EXPECT_FALSE(log_.Has("Last soc dump fragment has been received"));
  EXPECT_FALSE(Reaches(second));
  EXPECT_TRUE(log_.Has("Last soc dump fragment has been received"));
  EXPECT_EQ(ReadOnly("coredump_bt_socdump_"), Text(first) + Text(second));
  EXPECT_THAT(Reason(), HasSubstr("crash_reason: Debug Info Event\n"));
  EXPECT_EQ(CoreDumps(root_, "coredump_bt_socdump_")[0],
            "coredump_bt_socdump_" + CrashInfos(root_)[0].substr(13, 19) + ".bin");
  EXPECT_EQ(root_.ModeOf(kCoreDumpDir + CoreDumps(root_, "coredump_bt_socdump_")[0]), 0640u);
}

TEST_F(VendorEventsTest, FragmentsWithoutARootInflammationStartTheDumpThemselves) {
  const HciPacket shortest = VendorEvent({0x58, 0x13});
  EXPECT_FALSE(Reaches(shortest));
  EXPECT_TRUE(log_.Has("did not receive Root Inflammation event before FW Dump!"));
  EXPECT_THAT(Reason(), HasSubstr("crash_reason: ControllerDebugInfoDataDumpWithoutRootInflammed\n"));
  EXPECT_FALSE(Reaches(shortest));
  EXPECT_EQ(log_.Count("did not receive Root Inflammation"), 1u);
  EXPECT_EQ(ReadOnly("coredump_bt_socdump_"), Text(shortest) + Text(shortest));

  const HciPacket chre = Fragment({0x58, 0x14, 0x00, 0}, 1, 100, 3);
  EXPECT_FALSE(Reaches(chre));
  EXPECT_EQ(log_.Count("did not receive Root Inflammation"), 1u);
  EXPECT_TRUE(log_.Has("total written 100 bytes"));
  EXPECT_TRUE(log_.Has("Last Chre dump packet has been received"));
  EXPECT_EQ(ReadOnly("coredump_bt_chredump_"), Text(chre));
}

TEST_F(VendorEventsTest, AFullDiskIsToldAndCostsNoEvent) {
  root_.Write(kSnoop, "packets");
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, SIG_IGN);
  const rlimit nothing = {1, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &nothing);
  EXPECT_TRUE(Reaches(RootInflammation(0x15)));
  for (const uint8_t id : {0x13, 0x14}) EXPECT_FALSE(Reaches(Fragment({0x58, id, 0x00, 0}, 0, 100, 3)));
  setrlimit(RLIMIT_FSIZE, &before);
  for (const char* line :
       {"start_crash_dump: Failed to write to /data/vendor/ssrdump/coredump/coredump_bt_",
        "start_crash_dump: Failed to write to /data/vendor/ssrdump/crashinfo_bt_",
        "GetFsDebugDump: Unable to write the dump of dev/logbuffer_btlpm: File too large (27)",
        "backup_logging_files_before_crash: Error copying file",
        "backup_logging_files_before_crash: /data/vendor/bluetooth/btsnoop_hci_vnd.log: File too large (27)",
        ".bin misses the rest of a fragment: File too large (27)",
        "AppendToChreDump: actual write (1 bytes) is not the same with expected write (100 bytes) size.",
        "AppendToChreDump: total written 1 bytes", "AppendToChreDump: there are 1 segments not be saved"}) {
    EXPECT_TRUE(log_.Has(line)) << line;
  }
}

TEST_F(VendorEventsTest, SensorHubFragmentsThatCannotBeSavedAreCounted) {
  std::filesystem::remove_all(root_.path() + kCoreDumpDir);
  const HciPacket chre = Fragment({0x58, 0x14, 0x00, 0}, 0, 100, 3);
  EXPECT_FALSE(Reaches(chre));
  EXPECT_TRUE(log_.Has("did not receive Root Inflammation event before CHRE Dump!"));
  EXPECT_FALSE(Reaches(chre));
  EXPECT_TRUE(log_.HasThrottled("Failed to open chredump file: /data/vendor/ssrdump/coredump/coredump_bt_chredump_"));
  EXPECT_TRUE(log_.Has("failed: No such file or directory (2)"));
  EXPECT_TRUE(log_.Has("there are 1 segments not be saved"));
  EXPECT_TRUE(log_.HasThrottled("segments not be saved"));
  EXPECT_FALSE(Reaches(Fragment({0x58, 0x13, 0x00, 0}, 0, 100, 3)));
  EXPECT_TRUE(log_.Has("Failed to open socdump file: "));

  std::filesystem::create_directories(root_.path() + kCoreDumpDir);
  EXPECT_FALSE(Reaches(chre));
  EXPECT_EQ(ReadOnly("coredump_bt_chredump_"), Text(chre));
}

TEST_F(VendorEventsTest, FourMegabytesOfBothKindsInTurnAreKeptByteForByte) {
  EXPECT_TRUE(Reaches(RootInflammation(0x10)));
  // No snoop log: told, and nothing is left behind.
  EXPECT_EQ(log_.Count("backup_logging_files_before_crash: Error opening source file"), 2u);
  EXPECT_EQ(NamesIn(root_.path() + "/data/vendor/bluetooth").size(), 0u);
  constexpr size_t kEach = 4 * 1024 * 1024 / 257;
  std::string soc;
  std::string chre;
  for (size_t i = 0; i < kEach; ++i) {
    const uint8_t last = i + 1 == kEach ? 1 : 0;
    const HciPacket one = Fragment({0x58, 0x13, static_cast<uint8_t>(i), 0}, last, 257, static_cast<uint8_t>(i >> 8));
    const HciPacket two = Fragment({0x58, 0x14, static_cast<uint8_t>(i), 0}, last, 257, static_cast<uint8_t>(i >> 8));
    ASSERT_FALSE(Reaches(one));
    ASSERT_FALSE(Reaches(two));
    soc += Text(one);
    chre += Text(two);
    log_.Clear();
  }
  EXPECT_TRUE(ReadOnly("coredump_bt_socdump_") == soc);
  EXPECT_TRUE(ReadOnly("coredump_bt_chredump_") == chre);
}

}  // namespace
}  // namespace android::hardware::bluetooth
