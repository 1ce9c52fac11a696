// What the reading commands print fits the terminal; elsewhere nothing is cut, and nothing is there but text.
#include <android-base/strings.h>

#include <nlohmann/json.hpp>

#include "bthal/hci/dictionary.h"
#include "bthal/hci/words.h"
#include "bthal/run/conversation.h"
#include "bthal/show/snoop/capture_format.h"
#include "bthal/show/snoop/snoop_filter.h"
#include "bthal/show/terminal.h"
#include "bthal/show/time_column.h"
#include "support/board_session.h"
#include "support/run_program.h"
#include "support/terminal/screen.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

tool::SnoopRecord Record(bool from_controller, uint8_t kind, const Bytes& packet, int64_t unix_us = 0) {
  return {unix_us, from_controller, kind, static_cast<uint32_t>(packet.size() + 1), packet};
}

std::string LogOf(const std::vector<tool::SnoopRecord>& records) {
  std::string log = tool::CaptureHeader(tool::CaptureFormat::kBtsnoop);
  for (const auto& record : records) log += tool::CaptureRecord(tool::CaptureFormat::kBtsnoop, record);
  return log;
}

// Answers whose names and statuses are the longest there are, and a long packet.
std::vector<tool::SnoopRecord> LongPackets() {
  std::vector<tool::SnoopRecord> records;
  for (const tool::Entry& command : tool::CommandEntries()) {
    if (command.opcode() == 0) continue;  // answers nothing
    records.push_back(Record(true, 4, {0x0E, 4, 1, command.code[0], command.code[1], 0x11}));
  }
  Bytes acl(1021, 0xAB);
  acl[0] = 0x42;
  acl[1] = 0x20;
  acl[2] = 0xF9;
  acl[3] = 0x03;
  records.push_back(Record(false, 2, acl));
  return records;
}

class ReadingCommandsTest : public BoardSessionTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SetProperty("persist.bluetooth.vendor.btsnoop", "true"));
    ASSERT_TRUE(SetProperty("persist.bluetooth.btsnooplogmode", "full"));
    ASSERT_TRUE(SetProperty("persist.bluetooth.a.property.with.a.long.name", std::string(91, 'x')));
    ASSERT_NO_FATAL_FAILURE(StartBoard(SmallBoard({})));
    StartService("error");
    ASSERT_EQ(Bthal({"hci", "reset"}).status, 0);
    ASSERT_EQ(Bthal({"dump", "-o", root_.path() + "/report"}).status, 0);
    root_.Write("/long.log", LogOf(LongPackets()));
  }

  std::vector<std::vector<std::string>> Commands() const {
    return {{"hci", "help"},
            {"hci", "list"},
            {"hci", "-v", "read_local_supported_commands", "read_local_version", "le_scan 0.1", "help le_create_cis"},
            {"hci", "--time", "wall", "-x", "le_set_advertising_data 0201060416414243"},
            {"snoop", "--once"},
            {"snoop", "--once", "-v", "-x", "--time", "relative"},
            {"decode", root_.path() + "/long.log"},
            {"decode", "-v", "-x", root_.path() + "/long.log"},
            {"decode", "3e 0c 02 01 00 01 01 02 03 04 05 c6 00 c4"},
            {"timeline", root_.path() + "/report"},
            {"services"},
            {"dump"},
            {"prop", "list"},
            {"prop", "list", "--known"},
            {"conf"},
            {"conf", "--explain"}};
  }
};

TEST_F(ReadingCommandsTest, FitTheTerminalAndNothingElse) {
  for (const std::vector<std::string>& arguments : Commands()) {
    const std::vector<std::string> command = BthalCommand(arguments);
    const std::string shown = ::testing::PrintToString(command);
    for (const size_t columns : {80, 120}) {
      TerminalProgram program(command, columns);
      ASSERT_EQ(program.End(), 0) << shown << program.raw();
      size_t lines = 0;
      for (const std::string& line : ::android::base::Split(tool::WithoutColours(program.raw()), "\n")) {
        const size_t width = line.size() - (line.ends_with('\r') ? 1 : 0);
        EXPECT_LE(width, columns) << shown << line;
        lines += width > 0 ? 1 : 0;
      }
      EXPECT_GT(lines, 0u) << shown;
    }
    setenv("TERM", "xterm", 1);
    setenv("COLUMNS", "60", 1);
    const ProgramResult piped = RunProgram(command);
    EXPECT_EQ(piped.out.find('\033'), std::string::npos) << shown;
  }
}

// Also where the column of values is beyond it.
TEST_F(ReadingCommandsTest, FitANarrowTerminal) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"decode", "-v", root_.path() + "/long.log"},
                                             {"hci", "help", "le_set_scan_parameters"},
                                             {"conf"},
                                             {"check"}}) {
    TerminalProgram program(BthalCommand(arguments), 40);
    EXPECT_THAT(program.End(), ::testing::AnyOf(0, 1)) << program.raw();  // the machine may lack something
    for (const std::string& line : ::android::base::Split(tool::WithoutColours(program.raw()), "\n")) {
      EXPECT_LE(line.size() - (line.ends_with('\r') ? 1 : 0), 40u) << arguments[0] << line;
    }
  }
}

// Name and status can be read of every answer, in whatever number of lines; bytes and parameters come last.
TEST_F(ReadingCommandsTest, WhatIsCutIsNeverNameOrStatus) {
  TerminalProgram program({BTHAL_PROGRAM, "decode", root_.path() + "/long.log"}, 80);
  ASSERT_EQ(program.End(), 0);
  std::string text = tool::WithoutColours(program.raw());
  for (const char* blank : {"\r", "\n"}) text = ::android::base::StringReplace(text, blank, "", true);
  std::string words;
  std::ranges::unique_copy(text, std::back_inserter(words), [](char a, char b) { return a == ' ' && b == ' '; });
  for (const auto& record : LongPackets()) {
    const std::string whole = tool::PacketWords(record.kind, record.packet);
    EXPECT_THAT(words, HasSubstr(whole.substr(0, whole.find(" (")))) << whole;
  }
  EXPECT_THAT(words, HasSubstr("< acl handle 0x042, 1017 bytes"));
  const ProgramResult piped = Bthal({"decode", root_.path() + "/long.log"});
  EXPECT_EQ(CountIn(piped.out, " AB"), 1017);
  EXPECT_EQ(CountIn(Bthal({"decode", "--json", root_.path() + "/long.log"}).out, " AB"), 1017);
}

TEST_F(ReadingCommandsTest, OnlyWhatIsAskedForIsShown) {
  constexpr int64_t kSecond = 1000000;
  const int64_t now = tool::UnixMicroseconds();
  const std::vector<tool::SnoopRecord> records = {
      Record(false, 1, {0x03, 0x0C, 0x00}, now - 3600 * kSecond),                       // Reset
      Record(true, 4, {0x0E, 4, 1, 0x03, 0x0C, 0}, now - 3600 * kSecond + 1500),        // its answer
      Record(false, 1, {0x06, 0x04, 3, 0x42, 0x00, 0x13}, now - 5 * kSecond),           // Disconnect 0x042
      Record(true, 4, {0x0F, 4, 0, 1, 0x06, 0x04}, now - 5 * kSecond),                  // its status
      Record(false, 2, {0x42, 0x20, 1, 0, 0xAA}, now - 5 * kSecond),                    // data on it
      Record(true, 4, {0x13, 9, 2, 0x41, 0, 1, 0, 0x42, 0, 1, 0}, now - 5 * kSecond)};  // credits for it and another
  const std::string log = root_.path() + "/a.log";
  root_.Write("/a.log", LogOf(records));
  const auto lines = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"snoop", "--once", log});
    const ProgramResult result = Bthal(options);
    EXPECT_EQ(result.status, 0) << result.error;
    return std::ranges::count(result.out, '\n');
  };
  EXPECT_EQ(lines({}), 6);
  EXPECT_EQ(lines({"--since", "1m"}), 4);
  EXPECT_EQ(lines({"--since", "2h"}), 6);
  EXPECT_EQ(lines({"--kind", "acl", "--kind", "command"}), 3);
  EXPECT_EQ(lines({"--opcode", "reset"}), 2);
  EXPECT_EQ(lines({"--opcode", "0x0406", "--since", "10s"}), 2);
  EXPECT_EQ(lines({"--handle", "0x042"}), 3);
  EXPECT_EQ(lines({"--handle", "0x41"}), 1);
  EXPECT_THAT(Bthal({"snoop", "--once", log, "--time", "relative"}).out,
              AllOf(StartsWith("    0.000000  < command  Reset"), HasSubstr("\n    0.001500  > event    Command Com")));
  const std::string first = Bthal({"snoop", "--once", log, "--json"}).out;
  EXPECT_EQ(nlohmann::json::parse(first.substr(0, first.find('\n'))), nlohmann::json({{"time_us", now - 3600 * kSecond},
                                                                                      {"direction", "to controller"},
                                                                                      {"kind", "command"},
                                                                                      {"words", "Reset"},
                                                                                      {"bytes", "03 0C 00"}}));
  for (const auto& wrong : std::vector<std::vector<std::string>>{
           {"--since", "yesterday"}, {"--opcode", "resett"}, {"--handle", "0x1000"}, {"--kind", "ev"}}) {
    EXPECT_THAT(Bthal({"snoop", "--once", log, wrong[0], wrong[1]}).error, HasSubstr(wrong[0]));
  }
}

TEST(MomentTest, IsReadAsPeopleWriteIt) {
  setenv("TZ", "UTC", 1);
  constexpr int64_t kNow = 1763717663812674;  // 2025-11-21 09:34:23.812674
  const std::vector<std::pair<const char*, int64_t>> moments = {{"10s", kNow - 10000000},
                                                                {"0.5m", kNow - 30000000},
                                                                {"09:34", 1763717640000000},
                                                                {"09:34:23", 1763717663000000},
                                                                {"09:34:24", 1763631264000000},  // yesterday's
                                                                {"2025-11-21 09:34", 1763717640000000},
                                                                {"2025-11-21T09:34:23", 1763717663000000}};
  for (const auto& [text, moment] : moments) EXPECT_EQ(tool::ParseMoment(text, kNow), moment) << text;
  for (const char* bad : {"", "s", "-5s", "5", "25:00", "09:34x", "2025-11-21"}) {
    EXPECT_FALSE(tool::ParseMoment(bad, kNow)) << bad;
  }
}

// The log, followed and passed on, as another program reads it while it grows; and all of it, as it is.
TEST_F(ReadingCommandsTest, AnotherProgramReadsTheLogWhileItGrows) {
  const std::string program = std::string(BTHAL_PROGRAM) + " snoop -w - ";
  tool::Conversation shark([](const std::string&) {});
  std::string error;
  ASSERT_TRUE(
      shark.Start({.arguments = {"/bin/sh", "-c", program + "--follow | tshark -l -i -"}, .environment = {}}, &error))
      << error;
  EXPECT_TRUE(shark.ReadUntil("Rcvd Command Complete (Reset)", seconds(60)));
  ASSERT_EQ(Bthal({"hci", "read_local_name"}).status, 0);
  EXPECT_TRUE(shark.ReadUntil("Rcvd Command Complete (Read Local Name)", seconds(60)));
  const ProgramResult whole = RunProgram({"/bin/sh", "-c", program + "--once --format btsnoop | tshark -r -"});
  EXPECT_THAT(whole.out, AllOf(HasSubstr("Sent Reset"), HasSubstr("Rcvd Command Complete (Read Local Name)")));
}

}  // namespace
}  // namespace bthal
