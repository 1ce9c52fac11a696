// Packets in words, commands by name, scripts, and hex: everything about HCI that bthal says or understands.
#include "bthal/hci/words.h"

#include "bthal/hci/dictionary.h"
#include "bthal/hci/encode.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/lines/script.h"
#include "bthal/hci/tell_packet.h"
#include "bthal/hci/values.h"
#include "bthal/show/packet_line.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal::tool {
namespace {

using namespace ::bthal::test;

std::string EventText(const Bytes& event) { return PacketWords(kEvent, event); }

// The packet that a command line stands for; empty when it is refused.
Bytes Built(const std::string& name, const std::vector<std::string>& arguments) {
  std::string error;
  return BuildCommand(*FindCommand(name), arguments, &error).value_or(Bytes{});
}

std::string Refusal(const std::string& line) {
  std::string error;
  EXPECT_FALSE(ParseScriptLine(line, &error)) << line;
  EXPECT_THAT(error, Not(HasSubstr("\n"))) << line;
  return error;
}

ScriptAction Parsed(const std::string& line) {
  std::string error;
  const std::optional<ScriptAction> action = ParseScriptLine(line, &error);
  EXPECT_TRUE(action) << line << ": " << error;
  return action.value_or(ScriptAction{});
}

TEST(HexTest, ReadsWhatPeopleWriteAndNothingElse) {
  EXPECT_THAT(ParseHex("030c00"), ::testing::Optional(ElementsAre(0x03, 0x0C, 0x00)));
  EXPECT_THAT(ParseHex("0x03 0C:00"), ::testing::Optional(ElementsAre(0x03, 0x0C, 0x00)));
  EXPECT_THAT(ParseHex(""), ::testing::Optional(ElementsAre()));
  for (const char* bad : {"0", "0g", "03 0", "03-0c", "0 3"}) EXPECT_FALSE(ParseHex(bad)) << bad;
}

TEST(HexTest, CutsLongPacketsAndCountsTheRest) {
  const Bytes bytes(30, 0xAB);
  EXPECT_EQ(Hex(std::span(bytes).first(3)), "AB AB AB");
  EXPECT_EQ(Hex(bytes, 2), "AB AB ... (+28)");
  EXPECT_EQ(Hex(bytes, 30).size(), 30u * 3 - 1);
}

TEST(NumberTest, TakesDecimalAndHexWithinBounds) {
  EXPECT_EQ(ParseNumber("255", 255), 255u);
  EXPECT_EQ(ParseNumber("0xff", 255), 255u);
  for (const char* bad : {"256", "0x100", "-1", "", "0x", "1.5", "7 ", "seven"})
    EXPECT_FALSE(ParseNumber(bad, 255)) << bad;
  EXPECT_EQ(ParseSeconds("0.25"), 0.25);
  for (const char* bad : {"-1", "", "nan", "inf", "1e9", "86401", "1s"}) EXPECT_FALSE(ParseSeconds(bad)) << bad;
}

// A name comes from the air: what it may say is said as it is, and what could do something is not.
TEST(QuotedTextTest, ShowsCharactersAndADotForAnyOtherByte) {
  const auto quoted = [](const std::string& text) { return QuotedText(Bytes(text.begin(), text.end())); };
  for (const std::string text :
       {"Bäckerei", "£", "\xDF\xBF", "\xE0\xA0\x80", "日本", "\xED\x9F\xBF", "\xEE\x80\x80", "😀", "\xF4\x8F\xBF\xBF",
        "\xC2\xA0", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\xA5", "\xE2\x81\xAA"}) {
    EXPECT_EQ(quoted(text), '"' + text + '"');
  }
  for (const std::string text : {"\033",
                                 "\r",
                                 "\x7F",
                                 "\x9B",
                                 "\xC2\x80",
                                 "\xC2\x9B",
                                 "\xC2\x9F",
                                 "\xC0\xAF",
                                 "\xC1\xBF",
                                 "\xE0\x9F\xBF",
                                 "\xF0\x8F\xBF\xBF",
                                 "\xED\xA0\x80",
                                 "\xED\xBF\xBF",
                                 "\xF4\x90\x80\x80",
                                 "\xF5\x80\x80\x80",
                                 "\xFF",
                                 "\xC3",
                                 "\xE2\x82",
                                 "\xF0\x9F\x98",
                                 "\xE2\x80\xAA",
                                 "\xE2\x80\xAE",
                                 "\xE2\x81\xA6",
                                 "\xE2\x81\xA9"}) {
    EXPECT_EQ(quoted("a" + text + "ü"), "\"a" + std::string(text.size(), '.') + "ü\"");
    EXPECT_EQ(quoted(text), '"' + std::string(text.size(), '.') + '"') << "at the end";
  }
  EXPECT_EQ(quoted(std::string("ü\0x", 4)), "\"ü\"");
}

// The bytes stand in their column behind any name, and a line is not broken within a character.
TEST(QuotedTextTest, KeepsColumnsAndCharacters) {
  const auto line = [](const std::string& name) {
    return PacketText({}, "", Direction::kToController, kCommand, Built("write_local_name", {name}));
  };
  const size_t column = line("Backerei").find("13 0C");
  ASSERT_NE(column, std::string::npos);
  EXPECT_EQ(line("Bäckerei").find("13 0C"), column + 1) << "a letter of two bytes";
  const std::string wide = [] {
    std::string name;
    for (int i = 0; i < 120; ++i) name += "ä";
    return name;
  }();
  for (const char* columns : {"40", "41", "42"}) {
    const ProgramResult folded =
        RunProgram({"/bin/sh", "-c",
                    "CLICOLOR_FORCE=1 NO_COLOR=1 COLUMNS=" + std::string(columns) +
                        " exec " BTHAL_PROGRAM " decode -v " + Hex(Built("write_local_name", {wide}))});
    EXPECT_EQ(folded.status, 0) << folded.error;
    EXPECT_EQ(std::ranges::count(folded.out, '\xC3'), 240);
    EXPECT_THAT(folded.out, Not(HasSubstr("\\x"))) << columns;
  }
}

// Every command that needs nothing to be typed has a parameter block of the length its opcode asks for.
TEST(CommandTableTest, DefaultsMakeWholePackets) {
  std::istringstream lengths(
      "reset 0 set_event_mask 8 inquiry 5 le_scan_parameters 7 le_scan_enable 2 le_advertising_parameters 15 "
      "le_extended_scan_enable 6 vnd_set_sleep_mode 12 vnd_check_otp 10 vnd_launch_ram 4 vnd_set_download_config 2");
  std::string name;
  for (size_t length = 0; lengths >> name >> length;) {
    const Bytes packet = Built(name, {});
    ASSERT_EQ(packet.size(), 3 + length) << name;
    EXPECT_EQ(packet[2], length) << name;
  }
}

TEST(CommandTableTest, ParametersAreLittleEndianAndAddressesReversed) {
  EXPECT_THAT(Built("le_scan_parameters", {"0", "0x0102"}), ElementsAre(0x0B, 0x20, 7, 0, 0x02, 0x01, 0x10, 0, 0, 0));
  EXPECT_THAT(Built("vnd_write_bd_addr", {"AA:BB:CC:DD:EE:FF"}),
              ElementsAre(0x01, 0xFC, 6, 0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA));
  EXPECT_THAT(Built("vnd_update_baud_rate", {"0", "4000000"}),
              ElementsAre(0x18, 0xFC, 6, 0, 0, 0x00, 0x09, 0x3D, 0x00));
  // Fewer bytes than the field has are filled up.
  EXPECT_EQ(Built("le_advertising_data", {"3", "020106"}).size(), 3u + 32);
}

TEST(CommandTableTest, ParametersAreWrittenAsPeopleKnowThem) {
  EXPECT_EQ(Built("le_scan_parameters", {"window=10ms", "scan_type=passive"}), Built("le_scan_parameters", {"0"}));
  EXPECT_THAT(Built("le_set_default_phy", {"tx_phys=le_1m+le_coded", "rx_phys=2"}),
              ElementsAre(0x31, 0x20, 3, 0, 0x05, 0x02));
  EXPECT_THAT(Built("le_write_rf_path_compensation", {"-1.5dB", "0x10"}),
              ElementsAre(0x4D, 0x20, 4, 0xF1, 0xFF, 0x10, 0x00));
  EXPECT_EQ(Built("write_local_name", {"Bench", "3"})[8], ' ');
  // Elements and bytes are counted, and those of a mask are as many as it has bits.
  EXPECT_THAT(Built("le_set_extended_advertising_enable", {"on", "sets=1/100ms,2"}),
              ElementsAre(0x39, 0x20, 10, 1, 2, 1, 10, 0, 0, 2, 0, 0, 0));
  EXPECT_EQ(Built("le_set_extended_scan_parameters", {"scanning_phys=5"}).size(), 3u + 3 + 2 * 5);
  EXPECT_EQ(Built("le_advertising_data", {"020106"}), Built("le_advertising_data", {"3", "020106"}));
  EXPECT_EQ(Built("le_advertising_data", {"020106", "data_length=31"})[3], 31);
  // Out of range, for those who want to see it refused by the controller.
  EXPECT_THAT(Refusal("le_scan_parameters interval=2"), HasSubstr("0x0004 to 0x4000 (2.5 ms to 10240 ms)"));
  EXPECT_EQ(Built("le_scan_parameters", {"interval=!2"})[4], 2);
}

TEST(CommandTableTest, RefusesWhatDoesNotFit) {
  EXPECT_THAT(Refusal("le_scan_enable enabled=1"), HasSubstr("there is no parameter 'enabled'"));
  EXPECT_THAT(Refusal("le_scan_enable 1 enable=1"), HasSubstr("enable is given twice"));
  EXPECT_THAT(Refusal("le_scan_parameters window=1ms"), HasSubstr("window cannot be '1ms'"));
  EXPECT_THAT(Refusal("le_set_extended_scan_parameters scanning_phys=5 scans=1"), HasSubstr("1 elements, but"));
  EXPECT_THAT(Refusal("le_create_cis"), HasSubstr("cises is missing"));
  EXPECT_THAT(Refusal("le_create_cis 1"), HasSubstr("cises: acl_connection_handle is missing"));

  EXPECT_THAT(Refusal("le_scan_enable 256"), HasSubstr("enable cannot be '256'; it takes 1 byte: 0=off, 1=on"));
  EXPECT_THAT(Refusal("le_scan_enable 1 0 0"), HasSubstr("too many parameters (see 'help le_set_scan_enable')"));
  EXPECT_THAT(Refusal("disconnect"), HasSubstr("handle is missing"));
  EXPECT_THAT(Refusal("vnd_write_bd_addr AA:BB"), HasSubstr("it takes an address"));
  EXPECT_THAT(Refusal("vnd_write_ram 0 " + std::string(2 * 252, 'a')), HasSubstr("carries at most 255"));
}

TEST(PacketWordsTest, CommandsAndTheirAnswers) {
  EXPECT_EQ(PacketWords(kCommand, Bytes{0x03, 0x0C, 0x00}), "Reset");
  EXPECT_EQ(PacketWords(kCommand, Bytes{0x18, 0xFC, 0x06, 0, 0, 0x00, 0x09, 0x3D, 0x00}),
            "Update Baud Rate, 4000000 bit/s");
  EXPECT_EQ(PacketWords(kCommand, Bytes{0x99, 0xFC, 0x00}), "opcode 0xFC99");
  EXPECT_EQ(PacketWords(kCommand, Bytes{0x03, 0x0C, 0x02, 0xAA}),
            "Reset (the length says 2, 1 there; 1 more than it has: AA)");
  EXPECT_EQ(EventText({0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00}), "Command Complete: Reset, success");
  EXPECT_EQ(EventText({0x0E, 0x04, 0x01, 0x03, 0x0C, 0x0C}), "Command Complete: Reset, command disallowed (0x0C)");
  EXPECT_EQ(EventText({0x0F, 0x04, 0x00, 0x01, 0x05, 0x04}), "Command Status: Create Connection, accepted");
  // Return parameters are only read behind a success.
  const Bytes address = {0x0E, 0x0A, 0x01, 0x09, 0x10, 0x00, 0x33, 0x22, 0x11, 0xCC, 0xBB, 0xAA};
  EXPECT_EQ(EventText(address), "Command Complete: Read BD_ADDR, success, AA:BB:CC:11:22:33");
  Bytes failed = address;
  failed[5] = 0x01;
  EXPECT_EQ(EventText(failed), "Command Complete: Read BD_ADDR, unknown HCI command (0x01)");
}

TEST(PacketWordsTest, AdvertisingReportsNameTheirSender) {
  const Bytes report = {0x3E, 0x14, 0x02, 0x01,              // LE Meta, Advertising Report, one report
                        0x00, 0x01,                          // connectable, random address
                        0x01, 0x02, 0x03, 0x04, 0x05, 0xC6,  // C6:05:04:03:02:01
                        0x08, 0x02, 0x01, 0x06, 0x04, 0x09, 'a', '\x1b', 'b',  // flags, a name with an escape in it
                        0xC4};                                                 // -60 dBm
  EXPECT_EQ(EventText(report), "LE Advertising Report, C6:05:04:03:02:01 random, \"a.b\", -60 dBm");
  // Cut anywhere, it is told as cut and never read past its end.
  for (size_t length = 2; length < report.size(); ++length) {
    const Bytes cut(report.begin(), report.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_THAT(EventText(cut), StartsWith("LE ")) << length;
  }
}

TEST(PacketWordsTest, OtherEventsAndData) {
  EXPECT_EQ(EventText({0x10, 0x01, 0x42}), "Hardware Error, hardware code 0x42");
  EXPECT_EQ(EventText({0x13, 0x05, 0x01, 0x01, 0x20, 0x02, 0x00}),
            "Number Of Completed Packets, handle 0x001 flags 0x2, num packets 2");
  EXPECT_EQ(EventText({0xFF, 0x04, 0x58, 0x05, 0x00, 0x93}),
            "Quality Report: Root Inflammation, error code 0x00, Host HCI Reset Error Before FW Download (0x93)");
  EXPECT_EQ(EventText({0x77, 0x00}), "event 0x77");
  EXPECT_EQ(EventText({0x3E, 0x01, 0x66}), "LE Meta, subevent 0x66");
  EXPECT_EQ(PacketWords(kAclData, Bytes{0x01, 0x20, 0x02, 0x00, 0xAA, 0xBB}), "handle 0x001, 2 bytes");
  EXPECT_EQ(PacketWords(kThreadData, Bytes{0, 0, 1, 0, 0xAA}), "frame of 1 bytes");
  EXPECT_EQ(PacketWords(0x09, Bytes{1, 2}), "2 bytes");
  for (const uint8_t kind : {kCommand, kAclData, kScoData, kIsoData, kEvent, kThreadData}) {
    EXPECT_THAT(PacketWords(kind, Bytes{}), StartsWith("cut ")) << int{kind};
  }
}

TEST(PacketWordsTest, FieldsAndWhatIsWrongWithThem) {
  const Bytes iq = {0x3E, 15, 0x15, 1, 0, 5, 0x38, 0xFF, 0, 0, 1, 0, 7, 0, 1, 0xFF, 2};
  EXPECT_THAT(PacketFields(kEvent, iq),
              ::testing::IsSupersetOf({HasSubstr("-200 (-20 dBm)"), HasSubstr("samples[0]")}));
  EXPECT_EQ(PacketProblem(kEvent, iq), "");
  EXPECT_EQ(PacketProblem(kEvent, Bytes(iq.begin(), iq.end() - 1)),
            "the length says 15, 14 there; samples[0]: cut in q: 1 byte needed, 0 there");
  EXPECT_EQ(PacketProblem(kCommand, Bytes{0x08, 0x20, 2, 32, 0}), "cut in data: 31 bytes needed, 1 there");
  EXPECT_THAT(PacketFields(kAclData, Bytes{0x01, 0x20, 0x01, 0x00, 0xAA}), ::testing::Contains(HasSubstr("0x001")));
  // A failed command may return its status alone, a successful one may not.
  EXPECT_EQ(PacketProblem(kEvent, Bytes{0x0E, 4, 1, 0x09, 0x10, 0x0C}), "");
  EXPECT_EQ(PacketProblem(kEvent, Bytes{0x0E, 4, 1, 0x09, 0x10, 0}), "cut in bd_addr: 6 bytes needed, 0 there");
}

TEST(PacketWordsTest, BytesTellWhatTheyAre) {
  const auto told = [](const Bytes& bytes) {
    const std::optional<ToldPacket> packet = TellPacket(bytes);
    return packet ? KindWord(packet->kind) + " of " + std::to_string(packet->bytes.size()) : "nothing";
  };
  EXPECT_EQ(told({0x04, 0x0E, 4, 1, 0x03, 0x0C, 0}), "event of 6");
  EXPECT_EQ(told({0x0E, 4, 1, 0x03, 0x0C, 0}), "event of 6");
  EXPECT_EQ(told({0x01, 0x03, 0x0C, 0}), "command of 3");
  EXPECT_EQ(told({0x03, 0x0C, 0}), "command of 3");
  EXPECT_EQ(told({0x02, 1, 0x20, 1, 0, 0xAA}), "acl of 5");
  EXPECT_EQ(told({0x01, 0x03, 0x0C, 2, 0xAA}), "command of 4");  // malformed, but whole in no other way either
  EXPECT_EQ(told({0x0E, 9, 1, 0x03}), "event of 4");
  EXPECT_EQ(told({0x99, 0xFC, 0}), "command of 3");
  EXPECT_EQ(told({0x77, 1}), "nothing");
  EXPECT_EQ(told({}), "nothing");
}

TEST(ScriptTest, EveryVerb) {
  using Verb = ScriptAction::Verb;
  EXPECT_EQ(Parsed("   # only a comment").verb, Verb::kNothing);
  EXPECT_EQ(Parsed("").verb, Verb::kNothing);

  const ScriptAction reset = Parsed("reset   # behind it too");
  EXPECT_EQ(reset.verb, Verb::kSend);
  EXPECT_THAT(reset.packet, ElementsAre(0x03, 0x0C, 0x00));
  EXPECT_TRUE(reset.await_answer);
  EXPECT_FALSE(Parsed("nowait reset").await_answer);
  EXPECT_THAT(Parsed("cmd 03 0c 00").packet, ElementsAre(0x03, 0x0C, 0x00));
  EXPECT_EQ(Parsed("acl 01200100aa").kind, kAclData);
  EXPECT_FALSE(Parsed("iso 01000100aa").await_answer);

  const ScriptAction wait = Parsed("wait le_advertising_report 0.5");
  EXPECT_EQ(wait.verb, Verb::kWait);
  EXPECT_EQ(wait.text, "le_advertising_report");
  EXPECT_EQ(wait.seconds, 0.5);
  EXPECT_EQ(Parsed("expect command disallowed").text, "command disallowed");
  EXPECT_THAT(Parsed("expect_bytes 0e .. 01").pattern, ElementsAre(0x0E, std::nullopt, 0x01));
  EXPECT_EQ(Parsed("sleep 2").seconds, 2);
  EXPECT_EQ(Parsed("le_scan").verb, Verb::kScan);
  EXPECT_EQ(Parsed("exit").verb, Verb::kQuit);
}

TEST(ScriptTest, RefusesWithOneLineThatTeaches) {
  EXPECT_THAT(Refusal("resett"), HasSubstr("'resett' is no command ('list' shows them"));
  EXPECT_THAT(Refusal("cmd"), HasSubstr("as in 'cmd 03 0c 00'"));
  EXPECT_THAT(Refusal("acl 0"), HasSubstr("acl: expected the packet's bytes in hex"));
  EXPECT_THAT(Refusal("wait"), HasSubstr("as in 'wait le_advertising_report 2'"));
  EXPECT_THAT(Refusal("wait any soon"), HasSubstr("a number of seconds, not 'soon'"));
  EXPECT_THAT(Refusal("sleep"), HasSubstr("as in 'sleep 0.5'"));
  EXPECT_THAT(Refusal("expect"), HasSubstr("as in 'expect success'"));
  EXPECT_THAT(Refusal("expect_bytes 0e.0"), HasSubstr("pairs of hex digits"));
  EXPECT_THAT(Refusal("nowait sleep 1"), HasSubstr("only a command"));
  EXPECT_THAT(Refusal("close now"), HasSubstr("takes nothing behind it"));
}

TEST(ScriptTest, NamesMatchPackets) {
  const Bytes report = {0x3E, 0x03, 0x02, 0x00, 0x00};
  const Bytes hardware_error = {0x10, 0x01, 0x00};
  EXPECT_TRUE(MatchesName("le_advertising_report", kEvent, report));
  EXPECT_TRUE(MatchesName("le_meta", kEvent, report));
  EXPECT_TRUE(MatchesName("0x3e", kEvent, report));
  EXPECT_TRUE(MatchesName("any", kAclData, report));
  EXPECT_TRUE(MatchesName("acl", kAclData, report));
  EXPECT_TRUE(MatchesName("hardware_error", kEvent, hardware_error));
  EXPECT_FALSE(MatchesName("le_advertising_report", kEvent, hardware_error));
  EXPECT_FALSE(MatchesName("le_advertising_report", kAclData, report));
  EXPECT_FALSE(MatchesName("0x10", kEvent, report));
}

}  // namespace
}  // namespace bthal::tool
