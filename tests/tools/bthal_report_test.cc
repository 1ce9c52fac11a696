// What bthal makes of a service's report and of its packet log.
#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <thread>

#include "bthal/show/record_dump.h"
#include "bthal/show/snoop/btsnoop_reader.h"
#include "bthal/show/snoop/snoop_follower.h"
#include "bthal/show/time_column.h"
#include "bthal/show/trace_json.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal::tool {
namespace {

using namespace ::bthal::test;

const std::string kRule(45, '=');

std::string Report(const std::string& history) {
  return kRule + "\nAnchors' Last Appear\n" + kRule + "\nTimestamp of perform_init [OUT]: 09:05:07:042\n" + kRule +
         "\nAnchors' History\n" + kRule + "\n" + history;
}

std::vector<DumpRecord> Parsed(const std::string& dump) {
  std::string error;
  std::vector<DumpRecord> records = ParseRecordDump(dump, &error);
  EXPECT_EQ(records.empty(), !error.empty()) << error;
  return records;
}

const Span& Named(const std::vector<Span>& spans, const std::string& name) {
  const auto found = std::ranges::find(spans, name, &Span::name);
  if (found == spans.end()) throw std::runtime_error("no span " + name);
  return *found;
}

TEST(RecordDumpTest, ReadsTheHistoryAndNothingElse) {
  const std::vector<DumpRecord> records =
      Parsed(Report("09:05:07:042: perform_init [ IN]\n"
                    "09:05:07:045: of two\nlines: really\n"
                    "09:05:08:000: perform_init [OUT]\n" +
                    kRule + "\nDebugfs:/dev/logbuffer\n" + kRule +
                    "\n"
                    "09:05:09:000: somebody else's line\n"));
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].ms, ((9 * 60 + 5) * 60 + 7) * 1000 + 42);
  EXPECT_EQ(records[1].text, "of two\nlines: really");
  EXPECT_EQ(records[2].text, "perform_init [OUT]");
}

TEST(RecordDumpTest, SaysWhyThereIsNone) {
  std::string error;
  EXPECT_TRUE(ParseRecordDump("hello", &error).empty());
  EXPECT_THAT(error, HasSubstr("no \"Anchors' History\""));
  EXPECT_TRUE(ParseRecordDump(Report(""), &error).empty());
  EXPECT_THAT(error, HasSubstr("is empty"));
  EXPECT_TRUE(ParseRecordDump(Report("99:05:07:042: no time\nnor: this\n"), &error).empty());
}

TEST(RecordDumpTest, MidnightPassesAndASetClockHolds) {
  const std::vector<DumpRecord> records =
      Parsed(Report("23:59:59:900: a [ IN]\n00:00:00:100: a [OUT]\n"
                    "00:00:00:050: the clock was set back\n"));
  EXPECT_EQ(records[1].ms - records[0].ms, 200);
  EXPECT_EQ(records[2].ms, records[1].ms);
  EXPECT_EQ(Named(PairRecords(records), "a").end_ms - Named(PairRecords(records), "a").begin_ms, 200);
}

TEST(SpanTest, PairsInnermostFirstAndKnowsWhatEncloses) {
  const std::vector<Span> spans =
      PairRecords(Parsed(Report("00:00:00:000: outer [ IN]\n"
                                "00:00:00:010: same [ IN]\n"
                                "00:00:00:020: same [ IN]\n"
                                "00:00:00:020: a moment\n"
                                "00:00:00:030: same [OUT]\n"
                                "00:00:00:090: same [OUT]\n"
                                "00:00:00:090: outer [OUT]\n"
                                "00:00:00:090: next [ IN]\n"
                                "00:00:00:090: next [OUT]\n")));
  ASSERT_EQ(spans.size(), 5u);
  EXPECT_EQ(spans[0].name, "outer");
  EXPECT_EQ(spans[1].end_ms, 90);
  EXPECT_EQ(spans[2].end_ms, 30);
  EXPECT_TRUE(spans[3].moment);
  EXPECT_EQ(spans[3].depth, 3u);
  // In the same millisecond, but after it.
  EXPECT_EQ(spans[4].name, "next");
  EXPECT_EQ(spans[4].depth, 0u);
  for (const Span& span : spans) EXPECT_EQ(span.lane, 0u) << span.name;
}

TEST(SpanTest, KeepsWhatLostItsPartner) {
  const std::vector<Span> spans =
      PairRecords(Parsed(Report("00:00:01:000: moment\n"
                                "00:00:02:000: early [OUT]\n"
                                "00:00:03:000: late [ IN]\n"
                                "00:00:05:000: moment\n")));
  EXPECT_TRUE(Named(spans, "early").began_earlier);
  EXPECT_EQ(Named(spans, "early").begin_ms, 1000);
  EXPECT_EQ(Named(spans, "early").end_ms, 2000);
  EXPECT_TRUE(Named(spans, "late").unfinished);
  EXPECT_EQ(Named(spans, "late").end_ms, 5000);
  const std::string chart = BarChart(spans, 80, 0);
  EXPECT_THAT(chart, AllOf(HasSubstr("(began earlier)"), HasSubstr("(still going on)")));
  for (const std::string& line : android::base::Split(chart, "\n")) EXPECT_LE(line.size(), 80u) << line;
}

// Two threads whose scopes cross must not be drawn inside one another.
TEST(SpanTest, CrossingScopesGetLanesOfTheirOwn) {
  const std::vector<Span> spans =
      PairRecords(Parsed(Report("00:00:00:000: a [ IN]\n"
                                "00:00:00:010: b [ IN]\n"
                                "00:00:00:020: a [OUT]\n"
                                "00:00:00:025: c [ IN]\n"
                                "00:00:00:026: c [OUT]\n"
                                "00:00:00:030: b [OUT]\n")));
  EXPECT_EQ(Named(spans, "a").lane, 0u);
  EXPECT_EQ(Named(spans, "b").lane, 1u);
  EXPECT_EQ(Named(spans, "b").depth, 0u);
  EXPECT_EQ(Named(spans, "c").lane, 0u);
  const auto events = nlohmann::json::parse(TraceJson(spans)).at("traceEvents");
  EXPECT_EQ(events.back(), nlohmann::json::parse(R"({"name": "thread_name", "ph": "M", "pid": 1, "tid": 1,
                                                     "args": {"name": "thread 2"}})"));
}

// Within a millisecond the table has an order, but no times.
TEST(SpanTest, ScopesOfOneMillisecondStayInsideOneAnother) {
  const std::vector<Span> spans =
      PairRecords(Parsed(Report("00:00:00:001: outer [ IN]\n00:00:00:001: inner [ IN]\n"
                                "00:00:00:001: inner [OUT]\n00:00:00:002: outer [OUT]\n")));
  EXPECT_EQ(Named(spans, "outer").begin_us, 1000);
  EXPECT_EQ(Named(spans, "inner").begin_us, 1001);
  EXPECT_EQ(Named(spans, "inner").end_us, 1002);
  EXPECT_EQ(Named(spans, "outer").end_us, 2000);
}

TEST(TraceTest, IsJsonWhateverTheRecordsHold) {
  const std::vector<Span> spans =
      PairRecords(Parsed(Report("00:00:00:001: quote \" and \\ [ IN]\n"
                                "00:00:00:002: \x01 tab\t and \xC3\xBC and \xFF\xC0\x80\n"
                                "00:00:00:004: quote \" and \\ [OUT]\n"
                                "00:00:00:005: open [ IN]\n")));
  const auto events = nlohmann::json::parse(TraceJson(spans)).at("traceEvents");
  EXPECT_EQ(events[1],
            nlohmann::json::parse(R"({"name": "quote \" and \\", "cat": "record", "pid": 1, "tid": 0, "ts": 0,
                                                 "ph": "X", "dur": 3000})"));
  EXPECT_EQ(events[2]["name"], "\x01 tab\t and \xC3\xBC and \uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(events[2]["ph"], "i");
  EXPECT_EQ(events[3]["args"]["unfinished"], true);
  EXPECT_EQ(nlohmann::json::parse(TraceJson({})).at("traceEvents").size(), 1u);
}

TEST(ChartTest, BarsShareOneScale) {
  const std::vector<Span> spans =
      PairRecords(Parsed(Report("00:00:00:000: whole [ IN]\n"
                                "00:00:00:050: half [ IN]\n"
                                "00:00:00:100: half [OUT]\n"
                                "00:00:00:100: whole [OUT]\n"
                                "00:00:00:100: nothing [ IN]\n"
                                "00:00:00:100: nothing [OUT]\n")));
  const std::string chart = BarChart(spans, 94, 0);  // 40 columns are left for the bars
  EXPECT_THAT(chart, HasSubstr("       0      100  " + std::string(40, '#') + "\n"));
  EXPECT_THAT(chart, HasSubstr("      50       50  " + std::string(20, ' ') + std::string(20, '#') + "\n"));
  EXPECT_THAT(BarChart(spans, 94, 60), Not(HasSubstr("half")));
  EXPECT_EQ(BarChart({}, 80, 0), "no scoped record\n");
}

TEST(ChartTest, ABringUpIsSeenWhateverCameAfterIt) {
  const std::string bring_up = "01:00:00:000: perform_init [ IN]\n01:00:00:400: perform_init [OUT]\n";
  const std::string later = "09:00:00:000: initialize_impl [ IN]\n09:00:00:010: initialize_impl [OUT]\n";
  const auto remark = [](const std::string& history) {
    return MissingBringUp(PairRecords(Parsed(Report(history))), Report(history));
  };
  EXPECT_THAT(BarChart(PairRecords(Parsed(Report(bring_up + later))), 94, 0), HasSubstr(std::string(39, '#') + "\n"));
  EXPECT_EQ(remark(bring_up + later), "");
  EXPECT_THAT(remark(later), HasSubstr("that ended at 09:05:07 has left the table"));
  EXPECT_THAT(remark(bring_up.substr(bring_up.find('\n') + 1)), HasSubstr("the beginning of the bring-up has left"));
}

// --- the packet log ---

std::string Big(uint64_t value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i));
  return text;
}

const std::string kHeader = std::string("btsnoop\0", 8) + Big(1, 4) + Big(1002, 4);

std::string Record(uint32_t flags, uint8_t kind, const Bytes& packet, uint64_t time = 0x00DCDDB30F2F8000) {
  const uint32_t length = static_cast<uint32_t>(packet.size()) + 1;
  return Big(length, 4) + Big(length, 4) + Big(flags, 4) + Big(0, 4) + Big(time, 8) + static_cast<char>(kind) +
         std::string(packet.begin(), packet.end());
}

void Feed(BtsnoopReader& reader, const std::string& bytes) {
  reader.Feed({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

TEST(BtsnoopReaderTest, ReadsRecordsHoweverTheyArrive) {
  const std::string file = kHeader + Record(2, 1, {0x03, 0x0C, 0x00}) +
                           Record(3, 4, {0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00}, 0x00DCDDB30F2F8000 + 1500000) +
                           Record(0, 2, {0x01, 0x20, 0x00, 0x00});
  for (const size_t piece : {size_t{1}, size_t{7}, file.size()}) {
    BtsnoopReader reader;
    std::vector<SnoopRecord> records;
    for (size_t at = 0; at < file.size(); at += piece) {
      Feed(reader, file.substr(at, piece));
      while (std::optional<SnoopRecord> record = reader.Next()) records.push_back(*record);
    }
    ASSERT_EQ(records.size(), 3u) << piece << " " << reader.error();
    EXPECT_EQ(reader.pending(), 0u);
    EXPECT_EQ(records[0].packet, (Bytes{0x03, 0x0C, 0x00}));
    EXPECT_FALSE(records[0].from_controller);
    EXPECT_EQ(records[0].unix_us, 0);
    EXPECT_TRUE(records[1].from_controller);
    EXPECT_EQ(records[1].unix_us, 1500000);
    EXPECT_EQ(records[2].kind, 2);
    EXPECT_EQ(CountWords(records), "1 command, 1 event, 1 acl packet");
  }
}

TEST(BtsnoopReaderTest, StopsAtWhatIsNoRecord) {
  BtsnoopReader wrong_type;
  Feed(wrong_type, std::string("btsnoop\0", 8) + Big(1, 4) + Big(1001, 4));
  EXPECT_FALSE(wrong_type.Next());
  EXPECT_THAT(wrong_type.error(), HasSubstr("not a btsnoop log"));

  BtsnoopReader garbage;
  Feed(garbage, kHeader + Record(2, 1, {0x03, 0x0C, 0x00}) + std::string(24, '\xFF'));
  EXPECT_TRUE(garbage.Next());
  EXPECT_FALSE(garbage.Next());
  EXPECT_THAT(garbage.error(), HasSubstr("no record at offset 44"));
}

TEST(BtsnoopReaderTest, AnyTimeReadsAsATimeOfDay) {
  constexpr uint64_t kEpoch = 0x00DCDDB30F2F8000;
  for (const uint64_t time : {uint64_t{0}, kEpoch - 1, uint64_t{1} << 63, kEpoch + (uint64_t{1} << 63), ~uint64_t{0}}) {
    BtsnoopReader reader;
    Feed(reader, kHeader + Record(2, 1, {0x03, 0x0C, 0x00}, time));
    const std::optional<SnoopRecord> record = reader.Next();
    ASSERT_TRUE(record);
    EXPECT_THAT(WallTime(record->unix_us), ContainsRegex("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}$"));
  }
}

TEST(BtsnoopReaderTest, RunsOfOneCommandAreFolded) {
  std::vector<SnoopRecord> records(5, {.kind = 1, .packet = {0x4C, 0xFC, 0x00}});
  records.push_back({.kind = 1, .packet = {0x4E, 0xFC, 0x00}});
  records.insert(records.end(), 3, {.from_controller = true, .kind = 4, .packet = {0x10, 0x01, 0x00}});
  const std::vector<std::string> lines = FoldedSnoopLines(records);
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_THAT(lines[1], HasSubstr("... and 4 more of them"));
  EXPECT_THAT(lines[2], HasSubstr("Launch RAM"));
}

// A log that grows, is rotated away and begun anew between two looks.
TEST(SnoopFollowerTest, FollowsThroughARotation) {
  const TempRoot root;
  const std::string path = root.path() + "/log";
  SnoopFollower follower(path);
  std::vector<Bytes> seen;
  const auto look = [&] {
    std::string error;
    EXPECT_TRUE(follower.Poll([&](const SnoopRecord& record) { seen.push_back(record.packet); }, &error)) << error;
  };
  look();
  EXPECT_FALSE(follower.opened());
  const std::string first = Record(2, 1, {1});
  std::ofstream(path, std::ios::binary) << kHeader << first.substr(0, 10);
  look();
  EXPECT_TRUE(follower.Cut());
  std::ofstream(path, std::ios::binary | std::ios::app) << first.substr(10) << Record(2, 1, {2});
  std::filesystem::rename(path, path + ".last");
  std::ofstream(path, std::ios::binary) << kHeader << Record(2, 1, {3});
  look();
  EXPECT_EQ(seen, (std::vector<Bytes>{{1}, {2}, {3}}));
  EXPECT_FALSE(follower.Cut());
}

// A log, rotated as the service does it, and what a follower sees of it: its packets by their one byte, and 0 where it
// tells of a gap.
class RotatedLogTest : public ::testing::Test {
 protected:
  void Begin(uint8_t packet) const { std::ofstream(path_, std::ios::binary) << kHeader << Record(2, 1, {packet}); }
  void Add(uint8_t packet) const { std::ofstream(path_, std::ios::binary | std::ios::app) << Record(2, 1, {packet}); }
  void Rotate(uint8_t packet) const {
    std::filesystem::rename(path_, path_ + ".last");
    Begin(packet);
  }
  Bytes Look() { return Look(follower_); }
  Bytes Look(SnoopFollower& follower) {
    seen_.clear();
    std::string error;
    EXPECT_TRUE(follower.Poll([&](const SnoopRecord& record) { seen_.push_back(record.packet.at(0)); }, &error))
        << error;
    return seen_;
  }

  const TempRoot root_;
  const std::string path_ = root_.path() + "/folder/log";
  Bytes seen_;
  SnoopFollower follower_{path_, [this] { seen_.push_back(0); }};
};

TEST_F(RotatedLogTest, IsFollowedThroughTheBackupAndTellsWhatIsGone) {
  EXPECT_THAT(Look(), IsEmpty());
  std::filesystem::create_directory(root_.path() + "/folder");
  Begin(1);
  EXPECT_THAT(Look(), ElementsAre(1));
  Add(2);
  Rotate(3);
  Rotate(4);
  EXPECT_THAT(Look(), ElementsAre(2, 3, 4));
  EXPECT_THAT(Look(), IsEmpty());
  Rotate(5);
  EXPECT_THAT(Look(), ElementsAre(5));
  Add(6);
  Rotate(7);
  Rotate(8);
  Rotate(9);
  EXPECT_THAT(Look(), ElementsAre(6, 0, 8, 9));
  for (uint8_t packet = 10; packet < 20; ++packet) Rotate(packet);
  EXPECT_THAT(Look(), ElementsAre(0, 18, 19)) << "one gap, however long";
  EXPECT_THAT(Look(), IsEmpty());

  // Between the rename and the new file; then after another rotation.
  std::filesystem::rename(path_, path_ + ".last");
  EXPECT_THAT(Look(), IsEmpty());
  Begin(20);
  Rotate(21);
  EXPECT_THAT(Look(), ElementsAre(20, 21));

  // What is begun anew without a rotation does not follow on the backup, which has been read.
  std::filesystem::remove(path_);
  EXPECT_THAT(Look(), IsEmpty());
  Begin(22);
  EXPECT_THAT(Look(), ElementsAre(22));
  std::filesystem::remove_all(root_.path() + "/folder");
  EXPECT_THAT(Look(), IsEmpty());
  std::filesystem::create_directory(root_.path() + "/folder");
  Begin(23);
  EXPECT_THAT(Look(), ElementsAre(23));
  Rotate(24);
  Rotate(25);
  EXPECT_THAT(Look(), ElementsAre(24, 25));
}

// It is the log that is rotated, not the link that it is called by.
TEST_F(RotatedLogTest, IsFollowedByALink) {
  const std::string link = root_.path() + "/link";
  std::filesystem::create_directory(root_.path() + "/folder");
  Begin(1);
  std::filesystem::create_symlink("folder/log", link);
  SnoopFollower follower(link, [this] { seen_.push_back(0); });
  EXPECT_THAT(Look(follower), ElementsAre(1));
  Rotate(2);
  Rotate(3);
  EXPECT_THAT(Look(follower), ElementsAre(2, 3));
  std::filesystem::rename(path_, path_ + ".last");
  EXPECT_THAT(Look(follower), IsEmpty());
  Begin(4);
  Rotate(5);
  EXPECT_THAT(Look(follower), ElementsAre(4, 5));
  for (const uint8_t packet : {6, 7, 8}) Rotate(packet);
  EXPECT_THAT(Look(follower), ElementsAre(0, 7, 8));
}

// Rotations that fall into the very moment of a look: each packet is seen once and in order, or its lack is told.
TEST_F(RotatedLogTest, LosesNothingSilentlyWhileItIsRotated) {
  std::filesystem::create_directory(root_.path() + "/folder");
  constexpr int kRotations = 1000;
  Begin(1);
  Bytes all = Look();
  std::atomic<bool> done = false;
  std::thread service([&] {
    for (int i = 1; i <= kRotations; ++i) Rotate(static_cast<uint8_t>(1 + i % 250));
    done = true;
  });
  const auto look = [&] {
    const Bytes seen = Look();
    all.insert(all.end(), seen.begin(), seen.end());
  };
  while (!done) look();
  service.join();
  look();
  EXPECT_EQ(all.back(), 1 + kRotations % 250);
  for (size_t i = 1; i < all.size(); ++i) {
    const bool next = all[i] == 1 + all[i - 1] % 250;
    ASSERT_TRUE(next || all[i] == 0 || all[i - 1] == 0) << +all[i] << " behind " << +all[i - 1] << " at " << i;
  }
}

TEST(SnoopTest, PrintsALogOneLineAPacketAndTellsACutOne) {
  const TempRoot root;
  const std::string whole = kHeader + Record(2, 1, {0x03, 0x0C, 0x00});
  root.Write("/data/vendor/bluetooth/btsnoop_hci_vnd.log", whole);
  const ProgramResult result = Bthal({"snoop", "--once"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_EQ(std::ranges::count(result.out, '\n'), 1);
  EXPECT_THAT(result.out, HasSubstr("< command  Reset "));
  EXPECT_THAT(result.out, HasSubstr("03 0C 00\n"));

  root.Write("/cut", whole.substr(0, whole.size() - 1));
  const ProgramResult cut = Bthal({"snoop", "--once", root.path() + "/cut"});
  EXPECT_EQ(cut.status, 1);
  EXPECT_THAT(cut.error, HasSubstr("ends within a record"));
}

TEST(SnoopTest, SaysWhatALogThatIsNotThereWaitsFor) {
  const TempRoot root;
  const std::string no_log = "bthal: no log at " + root.path() + "/data/vendor/bluetooth/btsnoop_hci_vnd.log; ";
  const auto told = [](const std::vector<std::string>& file = {}) {
    std::vector<std::string> arguments = {"snoop", "--once"};
    arguments.insert(arguments.end(), file.begin(), file.end());
    return Bthal(arguments).error;
  };
  EXPECT_EQ(told(), no_log + "switch it on: bthal prop set persist.bluetooth.vendor.btsnoop true\n");
  ASSERT_TRUE(SetProperty("persist.bluetooth.vendor.btsnoop", "true"));
  EXPECT_EQ(told(), no_log + "switch it on: bthal prop set persist.bluetooth.btsnooplogmode full\n");
  for (const char* name : {"persist.bluetooth.btsnooplogmode", "ro.build.type"}) {
    ASSERT_TRUE(SetProperty(name, "userdebug"));
    EXPECT_EQ(told(), no_log + "it is begun when a client takes the HAL, as bthal hci does\n");
    std::filesystem::remove(root.path() + "/var/lib/bthal/properties/persist.bluetooth.btsnooplogmode");
  }
  ASSERT_TRUE(SetProperty("persist.bluetooth.btsnooplogmode", "disabled"));
  EXPECT_EQ(told(), no_log + "switch it on: bthal prop set persist.bluetooth.btsnooplogmode full\n");
  root.Write("/kept", "kept");
  EXPECT_EQ(told({root.path() + "/saved.log", "-w", root.path() + "/kept"}),
            "bthal: no log at " + root.path() + "/saved.log\n");
  EXPECT_EQ(root.Read("/kept"), "kept");
}

// By whatever name the log is called, and also where there is none yet: what is read is not written over.
TEST(SnoopTest, DoesNotWriteOverWhatItReads) {
  const TempRoot root;
  const std::string content = kHeader + Record(2, 1, {0x03, 0x0C, 0x00});
  root.Write("/a.log", content);
  root.Write("/a.log.last", content);
  const std::string log = root.path() + "/a.log";
  std::filesystem::create_hard_link(log, root.path() + "/hard.log");
  std::filesystem::create_symlink("a.log", root.path() + "/soft.log");
  std::filesystem::create_symlink(".", root.path() + "/here");
  for (const std::string name : {"/a.log", "/hard.log", "/soft.log", "/./a.log", "/here/a.log", "/a.log.last"}) {
    const ProgramResult result = Bthal({"snoop", "--once", log, "-w", root.path() + name});
    EXPECT_EQ(result.status, 1) << name;
    EXPECT_THAT(result.error, AllOf(HasSubstr("bthal: -w "), HasSubstr("which is read; choose another name"))) << name;
    EXPECT_EQ(ContentOf(log), content) << name;
    EXPECT_EQ(ContentOf(log + ".last"), content) << name;
  }
  const ProgramResult behind_a_link = Bthal({"snoop", "--once", root.path() + "/soft.log", "-w", log + ".last"});
  EXPECT_THAT(behind_a_link.error, HasSubstr("which is read; choose another name"));
  EXPECT_EQ(ContentOf(log + ".last"), content);
  const ProgramResult appended =
      RunProgram({"/bin/sh", "-c", std::string(BTHAL_PROGRAM) + " snoop --once " + log + " -w - >> " + log});
  EXPECT_THAT(appended.error, HasSubstr("-w -: it is " + log));
  EXPECT_EQ(ContentOf(log), content);

  const ProgramResult copied = Bthal({"snoop", "--once", log, "-w", root.path() + "/b.log"});
  EXPECT_EQ(copied.status, 0) << copied.error;
  EXPECT_EQ(Bthal({"snoop", "--once", root.path() + "/b.log"}).out, Bthal({"snoop", "--once", log}).out);

  // The live log, which has still to come.
  const std::string folder = root.path() + "/data/vendor/bluetooth";
  std::filesystem::create_directories(folder);
  for (const std::string name : {"/btsnoop_hci_vnd.log", "/btsnoop_hci_vnd.log.last"}) {
    const ProgramResult live = Bthal({"snoop", "--once", "-w", folder + "/." + name});
    EXPECT_THAT(live.error, HasSubstr("which is read; choose another name")) << name;
    EXPECT_FALSE(std::filesystem::exists(folder + name));
  }
}

}  // namespace
}  // namespace bthal::tool
