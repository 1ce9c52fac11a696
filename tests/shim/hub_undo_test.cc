// What is undone, and in which order, where the sensor hub's path to the controller cannot be opened: against the
// board's hub, whose requests are the witness beside the host's own power switch.
#include "conf/conf.h"
#include "conf/userial_type.h"
#include "os/kill_self.h"
#include "shim/shim.h"
#include "support/board_journal.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci::shim {
namespace {

using namespace ::bthal::test;

using ::bthal::sim::BoardOptions;
using conf::Config;

struct Case {
  const char* name;
  bool hub_has_the_pin;
  const char* fault;
  bool host_power_fails;
  std::vector<std::string> asked;  // of the hub, once connected
  std::vector<WireEvent> host;     // the host's own switch
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class HubUndoTest : public LoggedTest, public ::testing::WithParamInterface<Case> {
 protected:
  HubUndoTest() {
    signal(SIGPIPE, SIG_IGN);
    os::SetKillSelfForTest([] {});
    BoardOptions options;
    options.root = root_.path();
    options.hub = true;
    if (*GetParam().fault != '\0') options.faults = {GetParam().fault};
    board_ = std::make_unique<Board>(options);
    std::string error;
    EXPECT_TRUE(board_->Start(&error)) << error;
    Config& config = Config::GetInstance();
    config.userial_type = conf::kUserialAoc;
    config.max_usf_recovery_time_s = 2;
    if (GetParam().hub_has_the_pin) return;
    config.aoc_power_pin_ctrl_check_enabled = true;
    config.hw_stages_not_controlling_power_pin_from_aoc = {"EVT1"};
    SetProperty("ro.boot.hardware.revision", "EVT1");
    SetProperty("ro.boot.hw.soc.rev", "2");
  }
  ~HubUndoTest() override { os::SetKillSelfForTest(nullptr); }

  std::vector<JournalEntry> Requests() const {
    std::vector<JournalEntry> requests;
    for (const JournalEntry& entry : board_->Journal()) {
      if (entry.event == WireEvent::kHubRequest && entry.text != "connected") requests.push_back(entry);
    }
    return requests;
  }
  std::vector<std::string> Asked() const {
    std::vector<std::string> asked;
    for (const JournalEntry& entry : Requests()) asked.push_back(entry.text);
    return asked;
  }
  steady_clock::time_point AskedAt(size_t index) const { return Requests().at(index).time; }
  std::vector<WireEvent> Host() const {
    std::vector<WireEvent> host;
    for (const JournalEntry& entry : board_->Journal()) {
      if (entry.event == WireEvent::kPowerOn || entry.event == WireEvent::kPowerOff) host.push_back(entry.event);
    }
    return host;
  }

  std::unique_ptr<Board> board_;
};

TEST_P(HubUndoTest, GoesBackStepByStep) {
  if (GetParam().host_power_fails) std::filesystem::remove(root_.Below("/sys/class/rfkill/rfkill0/state"));
  EXPECT_FALSE(InitializeController());
  EXPECT_THAT(Asked(), ElementsAreArray(GetParam().asked));
  if (GetParam().hub_has_the_pin) {  // and writes to the same switch
    EXPECT_GE(AskedAt(1) - AskedAt(0), milliseconds(30)) << "the controller takes that long to lose its power";
  } else {
    EXPECT_TRUE(WaitFor([&] { return Host() == GetParam().host; })) << ::testing::PrintToString(Host());
  }
  InitializeController();  // which may succeed
  DeinitializeController();
  EXPECT_EQ(std::ranges::count(Texts(*board_, WireEvent::kHubRequest), "connected"), 2) << "had not been let go";
}

constexpr char kRefusePowerOn[] = "hub-status,request=power,status=1,after=1";
constexpr char kRefusePort[] = "hub-status,request=port,status=1";

constexpr auto kOn = WireEvent::kPowerOn;
constexpr auto kOff = WireEvent::kPowerOff;

const Case kCases[] = {
    {"ItsPinPower", true, kRefusePowerOn, false, {"power off with its pin", "power on with its pin"}, {}},
    {"ItsPinPort",
     true,
     kRefusePort,
     false,
     {"power off with its pin", "power on with its pin", "port open", "power off with its pin"},
     {}},
    {"OurPinHubPower", false, kRefusePowerOn, false, {"power off", "power on"}, {kOff}},
    {"OurPinHostPower", false, "", true, {"power off", "power on"}, {}},
    {"OurPinPort", false, kRefusePort, false, {"power off", "power on", "port open", "power off"}, {kOff, kOn, kOff}},
};

INSTANTIATE_TEST_SUITE_P(Undo, HubUndoTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace android::hardware::bluetooth::hci::shim
