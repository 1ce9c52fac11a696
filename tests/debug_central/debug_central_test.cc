#include "debug_central/debug_central.h"
#include "aidl/bluetooth_hci/diagnostics.h"

#include <malloc.h>

#include <condition_variable>

#include "os/kill_self.h"
#include "support/diagnostics.h"
#include "support/pty.h"
#include "support/test.h"

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

constexpr char kLastAppear[] = "Anchors' Last Appear";
constexpr char kHistory[] = "Anchors' History";
constexpr size_t kTimeSize = 12;  // 09:05:07:042

// The text of a history line, once its time has been checked.
std::string TextOf(const std::string& line) {
  EXPECT_THAT(line.substr(0, kTimeSize + 2),
              MatchesRegex("([01][0-9]|2[0-3]):[0-5][0-9]:[0-6][0-9]:[0-9][0-9][0-9]: "));
  return line.substr(kTimeSize + 2);
}

class DebugCentralTest : public LoggedTest {
 protected:
  DebugCentralTest() { aidl::qnlbtlinux::RegisterDiagnostics(); }

  DebugCentral& central_ = DebugCentral::Get();
};

TEST_F(DebugCentralTest, The401stRecordDropsTheFirst) {
  for (int i = 0; i <= 400; ++i) central_.UpdateRecord(AnchorType::kPerformInit, "record " + std::to_string(i));
  const auto lines = DumpSection(kHistory);
  ASSERT_GE(lines.size(), 400u);
  for (size_t i = 0; i < 400; ++i) ASSERT_EQ(TextOf(lines[i]), "record " + std::to_string(i + 1));
}

TEST_F(DebugCentralTest, TheLastAppearancesAreInTypeOrderWithTheirNewestText) {
  central_.UpdateRecord(static_cast<AnchorType>(255), "highest");
  central_.UpdateRecord(AnchorType::kUartReceive, "seventy-nine, old");
  central_.UpdateRecord(static_cast<AnchorType>(0), "lowest");
  central_.UpdateRecord(AnchorType::kUartReceive, "seventy-nine, new");
  for (int i = 0; i < 400; ++i) central_.UpdateRecord(AnchorType::kSendAclData, "fills the history");
  const auto lines = DumpSection(kLastAppear);
  ASSERT_EQ(lines.size(), 4u);
  const char* const kTexts[] = {"lowest", "fills the history", "seventy-nine, new", "highest"};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_THAT(lines[i], MatchesRegex(std::string("Timestamp of ") + kTexts[i] + ": ..:..:..:..."));
  }
}

TEST_F(DebugCentralTest, AnAnchorMarksBothEndsOfItsScope) {
  {
    const DebugAnchor outer(AnchorType::kPerformInit, "perform_init");
    const DebugAnchor inner(AnchorType::kBtqnlReset, "btqnl_reset: a text that is longer than a string keeps inside");
    central_.UpdateRecord(AnchorType::kChipId, "chip");
  }
  std::vector<std::string> texts;
  for (const auto& line : DumpSection(kHistory)) texts.push_back(TextOf(line).substr(0, 68));
  texts.resize(5);
  EXPECT_THAT(
      texts,
      ElementsAre("perform_init [ IN]", "btqnl_reset: a text that is longer than a string keeps inside [ IN]", "chip",
                  "btqnl_reset: a text that is longer than a string keeps inside [OUT]", "perform_init [OUT]"));
}

TEST_F(DebugCentralTest, EightThreadsTearNoLine) {
  constexpr int kThreads = 8;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      // Lines of one letter and of very different lengths, so that a torn one shows.
      for (size_t i = 0; !stop; ++i) {
        central_.UpdateRecord(static_cast<AnchorType>(t), std::string(1 + i % 700, static_cast<char>('a' + t)));
      }
    });
  }
  size_t read = 0;
  while (read < 4000) {
    for (const auto& line : DumpSection(kHistory)) {
      if (line.size() > kTimeSize && line[2] == ':') {
        const std::string text = TextOf(line);
        ASSERT_EQ(text.find_first_not_of(text[0]), std::string::npos) << line;
        ++read;
      }
    }
  }
  stop = true;
  for (auto& thread : threads) thread.join();
}

// A hundred thousand characters are kept whole, cost what they are, and are given back when their records are dropped.
TEST_F(DebugCentralTest, LongTextsPinNoMemory) {
  const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const auto fill = [this](const std::string& text, int rounds) {
    for (int i = 0; i < rounds; ++i) {
      for (int type = 0; type < 256; ++type) central_.UpdateRecord(static_cast<AnchorType>(type), text);
    }
  };
  fill("a record as they mostly are", 2);
  const size_t before = in_use();
  const std::string big(100 * 1000, 'x');
  fill(big, 2);
  const size_t full = in_use();
  EXPECT_EQ(TextOf(DumpSection(kHistory).front()), big);
  fill(big, 20);
  EXPECT_LE(in_use(), full + 1000 * 1000);
  fill("a record as they mostly are", 2);
  EXPECT_LE(in_use(), before + 1000 * 1000);
}

TEST_F(DebugCentralTest, RecognisesTheStacksDebugRequest) {
  EXPECT_TRUE(central_.IsControllerDebugDumpOpcode({0x5B, 0xFD, 0x00}));
  EXPECT_TRUE(log_.Has("IsControllerDebugDumpOpcode: Sending Controller Debug Info command!"));
  EXPECT_EQ(DumpSection(kLastAppear).size(), 1u);
  EXPECT_FALSE(central_.IsControllerDebugDumpOpcode({0xFD, 0x5B, 0x00}));
  EXPECT_FALSE(central_.IsControllerDebugDumpOpcode({0x5B}));
  EXPECT_FALSE(central_.IsControllerDebugDumpOpcode({}));
  EXPECT_EQ(log_.Count("Sending Controller Debug Info command!"), 1u);
}

TEST_F(DebugCentralTest, FindsTheKernelsLogOfTheUart) {
  root_.Write("/dev/logbuffer_ttySAC16", "uart history");
  central_.SetBtUartDebugPort("");
  EXPECT_TRUE(log_.Has("SetBtUartDebugPort: uart port is empty!"));
  central_.SetBtUartDebugPort("/dev/serial0");
  EXPECT_TRUE(log_.Has("SetBtUartDebugPort: cannot found uart port!"));
  for (const char* port : {"/dev/tty/by-name/ttySAC16", "/dev/ttySAC16"}) {
    log_.Clear();
    central_.SetBtUartDebugPort(port);
    EXPECT_TRUE(log_.Has("SetBtUartDebugPort: serial debug port: /dev/logbuffer_ttySAC16")) << port;
  }
  EXPECT_THAT(DumpText(), HasSubstr("Debugfs:/dev/logbuffer_ttySAC16\n"));
}

// How a report ends. The process really dies; what the stack was told and the files are looked at afterwards.
TEST_F(DebugCentralTest, AReportThatNobodyReadsIsGivenUp) {
  central_.UpdateRecord(AnchorType::kClose, std::string(200 * 1024, 'x'));
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  central_.Dump(pipe_ends[1]);
  EXPECT_TRUE(log_.Has("Dump: the reader takes nothing, giving up"));

  // A reader that has gone is no fault.
  signal(SIGPIPE, SIG_IGN);
  close(pipe_ends[0]);
  central_.Dump(pipe_ends[1]);
  close(pipe_ends[1]);
  EXPECT_EQ(log_.Count("giving up"), 1u);
  EXPECT_FALSE(log_.Has("Failed to write the report"));
}

// A terminal says that it takes something when it takes little.
TEST_F(DebugCentralTest, ATerminalThatNobodyReadsIsGivenUpToo) {
  central_.UpdateRecord(AnchorType::kClose, std::string(200 * 1024, 'x'));
  std::optional<Pty> terminal(std::in_place);
  const unique_fd shown(open(terminal->host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  const std::string shown_before(3000, 'x');  // so that the room for the rest ends inside a piece
  ASSERT_EQ(write(shown.get(), shown_before.data(), shown_before.size()), 3000);
  auto dumped = std::async(std::launch::async, [&] { central_.Dump(shown.get()); });
  EXPECT_EQ(dumped.wait_for(seconds(20)), std::future_status::ready);
  terminal->HangUp();
  dumped.get();
  EXPECT_TRUE(log_.Has("Dump: the reader takes nothing, giving up"));
}

class ReportTest : public DebugCentralTest {
 protected:
  ReportTest() {
    std::filesystem::create_directories(root_.path() + "/data/vendor/ssrdump/coredump");
    std::filesystem::create_directories(root_.path() + "/data/vendor/bluetooth");
    ::android::base::SetLogger(::android::base::StderrLogger);
  }

  // Reports with a stack that notes what it is told in a file, as its own process would survive to do.
  void Report(uint8_t code, const std::string& info, bool has_client) {
    central_.HasClientConnectWith(has_client);
    central_.SetNotifyCallback([this](const hci::HciPacket& event) { root_.Write("/told", toString(event)); });
    central_.ReportBqrError(static_cast<BqrErrorCode>(code), info);
  }

  std::string OnlyCrashInfo() { return root_.Read("/data/vendor/ssrdump/" + CrashInfos(root_).at(0)); }
};

TEST_F(ReportTest, WithAClientItDumpsAndAbortsInTheKindsName) {
  root_.Write("/data/vendor/bluetooth/btsnoop_hci_vnd.log", "packets");
  EXPECT_EXIT(Report(0x81, "opcode 0xFC18", true), KilledBySignal(SIGABRT),
              "ReportBqrError: root inflamed event with error_code: \\(129\\), error_info: opcode 0xFC18"
              "(.|\n)*ReportBqrError: notify_cb_\\(bqr_event\\)"
              "(.|\n)*start_crash_dump: reason: Host HCI Command Timeout, slient_report:0"
              "(.|\n)*Bluetooth HAL crash with error code 0, vendor error code 129, extra info: opcode 0xFC18");
  EXPECT_EQ(root_.Read("/told"), "[6]{255, 4, 88, 5, 0, 129}");
  ASSERT_EQ(CoreDumps(root_).size(), 1u);
  ASSERT_EQ(CrashInfos(root_).size(), 1u);
  EXPECT_THAT(OnlyCrashInfo(), HasSubstr("crash_reason: Host HCI Command Timeout\ncrash_count: 1\ntimestamp: "));
  const std::string suffix = CrashInfos(root_)[0].substr(std::string("crashinfo_bt_").size(), 19);
  EXPECT_EQ(root_.Read("/data/vendor/bluetooth/backup_btsnoop_hci_vnd.log" + suffix), "packets");
}

TEST_F(ReportTest, OnlySensorHubErrorsHaveNoCrashInfo) {
  const struct {
    uint8_t code;
    const char* reason;
    bool silent;
  } kCases[] = {{0xBF, "vendor error 0xBF", false},
                {0x97, "HostCoexDeviceOpenError", false},
                {0xC0, "Usf Transport Prepare Failed", true},
                {0xC5, "Usf Buffer Error", true},
                {0xDF, "vendor error 0xDF", true},
                {0xE0, "Arbitrator Detected Unimaplemented Packet Type Error", false},
                {0xE1, "Arbitrator Detected Invalid Packet Size", false}};
  for (const auto& one : kCases) {
    EXPECT_EXIT(Report(one.code, "", true), KilledBySignal(SIGABRT),
                std::string("reason: ") + one.reason + ", slient_report:" + (one.silent ? "1" : "0") +
                    "(.|\n)*vendor error code " + std::to_string(one.code) + "\n");
    EXPECT_EQ(CoreDumps(root_).size(), 1u);
    EXPECT_EQ(CrashInfos(root_).size(), one.silent ? 0u : 1u);
    std::filesystem::remove_all(root_.path() + "/data/vendor/ssrdump");
    std::filesystem::create_directories(root_.path() + "/data/vendor/ssrdump/coredump");
  }
}

TEST_F(ReportTest, QuietKindsNoClientAndUnsupportedStagesDieWithoutADump) {
  for (const auto& [code, has_client] : {std::pair<uint8_t, bool>{0x20, true}, {0x7F, true}, {0x81, false}}) {
    EXPECT_EXIT(Report(code, "", has_client), KilledBySignal(SIGKILL), "ReportBqrError: slient recover!");
    EXPECT_EQ(root_.Read("/told"), "[6]{255, 4, 88, 5, 0, " + std::to_string(code) + "}");
  }
  root_.Write("/vendor/etc/bluetooth/bt_vendor.conf", "HwStageWithOldChipFwNoLongerSupport = EVT1.0-PROTO1.0\n");
  SetProperty("ro.boot.hardware.revision", "PROTO1.0");
  EXPECT_EXIT(Report(0x81, "", true), KilledBySignal(SIGKILL), "ReportBqrError: slient recover!");
  EXPECT_EQ(CoreDumps(root_).size(), 0u);
  EXPECT_EQ(CrashInfos(root_).size(), 0u);
}

TEST_F(ReportTest, ABlockedClientDoesNotKeepItAlive) {
  EXPECT_EXIT(
      {
        central_.HasClientConnectWith(true);
        central_.SetNotifyCallback([](const hci::HciPacket&) {
          while (true) pause();
        });
        central_.ReportBqrError(BqrErrorCode::kHostOpenUserial, "");
      },
      KilledBySignal(SIGABRT), "the client does not take the event(.|\n)*vendor error code 144");
}

TEST_F(ReportTest, TheFirstReporterWins) {
  EXPECT_EXIT(
      {
        std::atomic<bool> reporting{false};
        central_.HasClientConnectWith(true);
        central_.SetNotifyCallback([&](const hci::HciPacket&) { reporting = true; });
        std::thread second([&] {
          while (!reporting) std::this_thread::yield();
          central_.ReportBqrError(BqrErrorCode::kHostOpenUserial, "the second");
        });
        central_.ReportBqrError(BqrErrorCode::kHostDownloadFw, "the first");
        second.join();
      },
      KilledBySignal(SIGABRT), "vendor error code 148, extra info: the first");
}

// With both endings replaced a report returns, as its callers' texts expect of it, and the next one may begin.
class ReplacedEndingTest : public ReportTest {
 protected:
  ReplacedEndingTest() {
    ::android::base::SetAborter([](const char* message) { fatal_ = message; });
    os::SetKillSelfForTest([] { ++killed_; });
  }
  ~ReplacedEndingTest() override { os::SetKillSelfForTest(nullptr); }

  LogCapture here_;  // where ReportTest leaves the log to the process that dies
  static inline std::string fatal_;
  static inline std::atomic<int> killed_{0};
};

TEST_F(ReplacedEndingTest, TheRecordKeeps127CharactersAndTheFatalMessageAll) {
  const std::string info = std::string(126, 'i') + "jk" + std::string(72, 'l');
  central_.HasClientConnectWith(true);
  central_.ReportBqrError(BqrErrorCode::kUartParsing, info);
  EXPECT_EQ(fatal_, "Bluetooth HAL crash with error code 0, vendor error code 1, extra info: " + info);
  EXPECT_EQ(TextOf(DumpSection(kHistory).at(0)), std::string(126, 'i') + "j");

  central_.ReportBqrError(BqrErrorCode::kUartIncompletePacket, "");
  EXPECT_EQ(fatal_, "Bluetooth HAL crash with error code 0, vendor error code 2");
  EXPECT_EQ(CoreDumps(root_).size(), 1u);  // one dump a process
  central_.HasClientConnectWith(false);
  central_.ReportBqrError(BqrErrorCode::kUartIncompletePacket, "");
  EXPECT_EQ(killed_, 1);
}

TEST_F(ReplacedEndingTest, AStepOfAReportThatFailsDoesNotReportAnew) {
  V1_1::qnlbtlinux::debug::DebugHooks hooks;
  hooks.transport_dump = [this](int) { central_.ReportBqrError(BqrErrorCode::kHostOpenUserial, "inner"); };
  central_.SetHooks(hooks);
  central_.HasClientConnectWith(true);
  central_.ReportBqrError(BqrErrorCode::kUartParsing, "outer");
  EXPECT_TRUE(here_.Has("ReportBqrError: error_code (144) while reporting, error_info: inner"));
  EXPECT_THAT(fatal_, HasSubstr("extra info: outer"));
}

TEST_F(ReplacedEndingTest, LaterReportersWaitForTheFirstToEnd) {
  std::mutex mutex;
  std::condition_variable changed;
  bool first_tells = false;
  bool second_begins = false;
  std::vector<uint8_t> told;
  central_.SetNotifyCallback([&](const hci::HciPacket& event) {
    std::unique_lock lock(mutex);
    told.push_back(event[5]);
    first_tells = true;
    changed.notify_all();
    changed.wait(lock, [&] { return second_begins; });
  });
  std::thread first([&] { central_.ReportBqrError(BqrErrorCode::kHostDownloadFw, "first"); });
  std::thread second([&] {
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] { return first_tells; });
      second_begins = true;
    }
    changed.notify_all();
    central_.ReportBqrError(BqrErrorCode::kHostOpenUserial, "second");
  });
  first.join();
  second.join();
  EXPECT_THAT(told, ElementsAre(0x94, 0x90));
  EXPECT_EQ(killed_, 2);
  std::string logged;
  for (const auto& line : here_.Lines()) logged += line.text;
  EXPECT_LT(logged.find("slient recover!"), logged.find("error_info: second"));
}

}  // namespace
}  // namespace android::hardware::bluetooth
