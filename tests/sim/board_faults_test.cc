// What goes wrong on the virtual board on purpose.
#include "sim/controller/faults/faults.h"
#include "sim/hub/hub_faults.h"
#include "support/board_host.h"
#include "support/test.h"

namespace bthal::test {
namespace {

using sim::Fault;
using sim::FaultKind;
using sim::ParseFault;

std::string WhyNot(const std::string& text) {
  Fault fault;
  std::string error;
  EXPECT_FALSE(ParseFault(text, &fault, &error)) << text;
  return error;
}

TEST(FaultLanguage, IsUnderstood) {
  Fault fault;
  std::string error;
  ASSERT_TRUE(ParseFault("wrong-status,opcode=speed,status=0x1F,after=2,count=always", &fault, &error)) << error;
  EXPECT_EQ(FaultKind::kWrongStatus, fault.kind);
  EXPECT_EQ(0xFC18, fault.opcode);
  EXPECT_EQ(0x1Fu, fault.keys["status"]);
  EXPECT_EQ(2u, fault.after);
  EXPECT_FALSE(fault.count.has_value());
  ASSERT_TRUE(ParseFault(" late-answer  opcode=0x1009 count=7 ", &fault, &error)) << error;
  EXPECT_EQ(0x1009, fault.opcode);
  EXPECT_EQ(7u, fault.count);
  EXPECT_EQ(1000u, fault.keys["ms"]) << "the default";
}

TEST(FaultLanguage, SaysWhatItDoesNotUnderstand) {
  EXPECT_THAT(WhyNot(" ,"), HasSubstr("begins with its kind"));
  EXPECT_THAT(WhyNot("rain"), HasSubstr("no fault is called 'rain'; there are: no-answer late-answer"));
  EXPECT_THAT(WhyNot("no-answer,ms=5"), HasSubstr("no-answer takes no 'ms', but opcode, after, count"));
  EXPECT_THAT(WhyNot("no-answer,opcode=often"),
              HasSubstr("is no opcode; give a number such as 0x0C03, or one of: reset"));
  EXPECT_THAT(WhyNot("no-answer,opcode=0x10000"), HasSubstr("is no opcode"));
  EXPECT_THAT(WhyNot("no-answer,count=-1"), HasSubstr("'-1' is no number for count"));
  EXPECT_THAT(WhyNot("no-answer,count=0"), HasSubstr("count=0 never strikes; count is at least 1, or always"));
  EXPECT_THAT(WhyNot("wrong-status,status=0x12,status=0x13"), HasSubstr("'status' is given twice"));
  EXPECT_THAT(WhyNot("no-answer,opcode=reset,opcode=0x0C03"), HasSubstr("'opcode' is given twice"));
  EXPECT_THAT(WhyNot("no-answer,count=always,count=2"), HasSubstr("'count' is given twice"));
  EXPECT_THAT(WhyNot("hardware-error,now,now"), HasSubstr("'now' is given twice"));
  EXPECT_THAT(WhyNot("no-answer,count"), HasSubstr("write count=VALUE"));
  EXPECT_THAT(WhyNot("no-answer,now"), HasSubstr("cannot strike now"));
  EXPECT_THAT(WhyNot("stray-byte,value=256"), HasSubstr("value is at most 255"));
}

TEST(FaultLanguage, OfTheHubSaysWhatItDoesNotUnderstand) {
  for (const auto& [text, why] : std::initializer_list<std::pair<const char*, const char*>>{
           {"hub-rain", "no fault of the hub is called 'hub-rain'"},
           {"hub-late,ms", "write ms=VALUE"},
           {"hub-late,hours=1", "takes no 'hours'"},
           {"hub-never,count=0", "count=0 never strikes; count is at least 1, or always"},
           {"hub-late,ms=1,ms=2", "'ms' is given twice"},
           {"hub-never,request=port,request=speed", "'request' is given twice"}}) {
    sim::HubFault fault;
    std::string error;
    EXPECT_FALSE(sim::ParseHubFault(text, &fault, &error)) << text;
    EXPECT_THAT(error, HasSubstr(why));
  }
}

TEST(FaultLanguage, HelpTellsOfEveryKindAndItsExamplesWork) {
  const std::string help = sim::FaultHelp();
  const std::string kinds = WhyNot("?");
  std::istringstream names(kinds.substr(kinds.find(':') + 1));
  for (std::string name; names >> name;) EXPECT_THAT(help, HasSubstr("\n  " + name)) << name;
  std::istringstream examples(help.substr(help.find("Examples:\n") + 10));
  for (std::string line; std::getline(examples, line);) {
    Fault fault;
    std::string error;
    std::istringstream words(line);
    std::string text;
    words >> text;
    EXPECT_TRUE(ParseFault(text, &fault, &error)) << error;
  }
}

class BoardFaultsTest : public BoardTest {
 protected:
  Board& StartWith(std::vector<std::string> faults) {
    sim::BoardOptions options = SmallBoard(root_);
    options.faults = std::move(faults);
    Start(options);
    host_.PowerOn();
    return *board_;
  }
  void Add(const std::string& fault) {
    std::string error;
    ASSERT_TRUE(board_->AddFault(fault, &error)) << error;
  }
};

TEST_F(BoardFaultsTest, ARecordRefusedInFastModeShowsAtTheLaunch) {
  StartWith({"wrong-status,opcode=record,after=3"});
  host_.Command(0xFE72, {0, 1});
  host_.Command(0xFC2E);
  const std::vector<Packet> records = Records(root_.Read("/vendor/firmware/qnlr/QNL_188_U.hcd"));
  for (const Packet& record : records) host_.Write(record);
  EXPECT_EQ(Complete(0xFC4E, {0x0C}), host_.Read());
}

TEST_F(BoardFaultsTest, ZeroCreditsAreMadeGoodLater) {
  StartWith({"zero-credits,opcode=reset,ms=1", "zero-credits,opcode=version"});
  EXPECT_EQ((Packet{0x04, 0x0E, 4, 0, 0x03, 0x0C, 0}), host_.Command(kReset));
  EXPECT_EQ((Packet{0x04, 0x0E, 3, 1, 0, 0}), host_.Read());
  EXPECT_EQ(0, host_.Command(kVersion).at(3));
  EXPECT_THAT(host_.Read(kSoonMs), IsEmpty());
}

TEST_F(BoardFaultsTest, SplitPacketsArriveInPiecesAndMergedOnesTogether) {
  StartWith({"split,opcode=reset,size=3,packets=2", "merge,opcode=version,packets=3,ms=3600000"});
  for (int i = 0; i < 2; ++i) {
    host_.Send(kReset);
    EXPECT_EQ((Packet{0x04, 0x0E, 0x04}), host_.ReadRaw());
    EXPECT_EQ((Packet{0x01, 0x03, 0x0C}), host_.ReadRaw());
    EXPECT_EQ((Packet{0x00}), host_.ReadRaw());
  }
  host_.Send(kVersion);
  EXPECT_THAT(host_.ReadRaw(kSoonMs), IsEmpty());
  board_->SendPacket(0x04, {0x10, 0x01, 0x01});
  board_->SendPacket(0x04, {0x10, 0x01, 0x02});
  EXPECT_EQ(13u + 4u + 4u, host_.ReadRaw().size());
}

TEST_F(BoardFaultsTest, SpoilTheStream) {
  StartWith({"stray-byte,opcode=reset,value=0x99", "lost-byte,opcode=version,index=3", "unknown-type,opcode=0x1009"});
  host_.Send(kReset);
  Packet bytes;
  while (bytes.size() < 8) {
    const Packet more = host_.ReadRaw();
    ASSERT_FALSE(more.empty());
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  EXPECT_EQ((Packet{0x99, 0x04, 0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00}), bytes);
  host_.Send(kVersion);
  EXPECT_EQ((Packet{0x04, 0x0E, 0x0A, 0x79, 0xFC, 0, 188, 0, 0, 0, 0, 0}), host_.ReadRaw()) << "without its credits";
  host_.Send(0x1009);
  EXPECT_EQ(0x06, host_.ReadRaw().at(0));
}

TEST_F(BoardFaultsTest, SendWhatADyingControllerSends) {
  StartWith({"hardware-error,opcode=reset,code=0x07", "root-inflammation,opcode=reset,error=1,vendor=0xC5"});
  host_.Send(kReset);
  EXPECT_EQ((Packet{0x04, 0x10, 1, 0x07}), host_.Read());
  EXPECT_EQ((Packet{0x04, 0xFF, 4, 0x58, 5, 1, 0xC5}), host_.Read());
  EXPECT_EQ(Complete(kReset, {0}), host_.Read());

  Add("soc-dump,now,fragments=2,size=3");
  EXPECT_EQ((Packet{0x04, 0xFF, 9, 0x58, 19, 0, 0, 0, 0, 0, 1, 2}), host_.Read());
  EXPECT_EQ((Packet{0x04, 0xFF, 9, 0x58, 19, 0, 1, 1, 0, 1, 2, 3}), host_.Read());
  Add("debug-info,now,fragments=2,size=1,reversed=1");
  EXPECT_EQ((Packet{0x04, 0xFF, 7, 0x57, 0, 0, 1, 1, 0, 1}), host_.Read());
  EXPECT_EQ((Packet{0x04, 0xFF, 7, 0x57, 0, 0, 0, 0, 0, 0}), host_.Read());
  Add("chre-dump,now,short=1");
  EXPECT_EQ((Packet{0x04, 0xFF, 1, 0x58}), host_.Read());
}

// A board without the right to hang a terminal up closes it, and a quick reader sees an error before the end of file.
ssize_t ReadToEnd(int fd, Packet* bytes) {
  for (;;) {
    const ssize_t count = read(fd, bytes->data(), bytes->size());
    if (count >= 0 || errno != EIO || geteuid() == 0) return count;
  }
}

TEST_F(BoardFaultsTest, HangUpsReadAsEndOfFileAndTheDeviceComesBack) {
  Board& board = StartWith({"hang-up,opcode=reset", "big-hammer,opcode=version,value=0x43"});
  // A read that already waits, as well as one that comes later.
  host_.Send(kReset);
  Packet bytes(16);
  ssize_t count = 1;
  while (count > 0) count = ReadToEnd(host_.fd(), &bytes);
  EXPECT_EQ(0, count) << "end of file, no error";
  EXPECT_EQ(0, read(host_.fd(), bytes.data(), bytes.size()));
  host_.PowerOff();
  host_.PowerOn();
  EXPECT_EQ(Complete(kReset, {0}), host_.Command(kReset));

  const int coex = open((root_.path() + "/dev/wbrc").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  host_.Command(kVersion);
  ASSERT_EQ(4, read(coex, bytes.data(), bytes.size()));
  EXPECT_EQ((Packet{1, 0, 1, 0x43}), Packet(bytes.begin(), bytes.begin() + 4));
  Add("coex-hang-up,now");
  EXPECT_EQ(0, ReadToEnd(coex, &bytes));
  close(coex);
  EXPECT_EQ(3u, Count(board, WireEvent::kFault));
}

}  // namespace
}  // namespace bthal::test
