#include "bthal/demo/demo.h"

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <host/property_store.h>
#include <host/service_registry.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "bthal/demo/demo_check.h"
#include "bthal/demo/paced_download.h"
#include "bthal/demo/service_child.h"
#include "bthal/hci/words.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/death_words.h"
#include "bthal/show/journal_words.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using sim::JournalEntry;
using sim::WireEvent;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Far above what a step takes, also at the real line's pace and with retries: they end a demo that hangs.
constexpr milliseconds kBringUpPatience = seconds(30);
constexpr milliseconds kStepPatience = seconds(20);
constexpr milliseconds kEndPatience = seconds(5);

bool IsAnswerTo(const JournalEntry& entry, uint16_t opcode) {
  return entry.event == WireEvent::kSent && entry.packet_type == kEvent && AnsweredOpcode(entry.bytes) == opcode;
}

// The patch records and their answers: hundreds of packets that the progress bar stands for.
bool IsPatchTraffic(const JournalEntry& entry) {
  const bool record =
      entry.event == WireEvent::kReceived && IsCommand(entry.packet_type, entry.bytes, opcodes::kWriteRam);
  return record || IsAnswerTo(entry, opcodes::kWriteRam);
}

// What the board sees beside packets and is worth a line to someone who watches a bring-up.
bool IsWorthShowing(const JournalEntry& entry) {
  switch (entry.event) {
    case WireEvent::kReceived:
    case WireEvent::kSent:
      return !IsPatchTraffic(entry);
    case WireEvent::kPowerOn:
    case WireEvent::kPowerOff:
    case WireEvent::kSpeed:
    case WireEvent::kHostSpeed:
    case WireEvent::kPatchLaunched:
    case WireEvent::kBooted:
    case WireEvent::kHubRequest:
      return true;
    default:
      return false;
  }
}

bool IsOff(const std::vector<JournalEntry>& journal) {
  const auto last = std::find_if(journal.rbegin(), journal.rend(), [](const JournalEntry& entry) {
    return entry.event == WireEvent::kPowerOn || entry.event == WireEvent::kPowerOff;
  });
  return last != journal.rend() && last->event == WireEvent::kPowerOff;
}

bool IsTrouble(const JournalEntry& entry) {
  return entry.event == WireEvent::kLostBytes || entry.event == WireEvent::kProtocolError ||
         entry.event == WireEvent::kFault;
}

}  // namespace

Demo::Demo(DemoOptions options)
    : options_(std::move(options)),
      patch_bar_("          * patch    "),
      wire_([this](const JournalEntry& entry) { TellWire(entry); }) {}

Demo::~Demo() {
  if (board_ != nullptr) board_->SetObserver({});
}

int Demo::Run() {
  printf("%s\n\n", Paint(Colour::kHeading, "A controller is brought up on a virtual board, and used.").c_str());
  return Conclude(Play());
}

bool Demo::Play() {
  return OccupyRoot() && StartBoard() && SetProperties() && StartService() && AwaitBringUp() && StartClient() &&
         TakeReport() && Relay() && EndClient() && EndService() && Judge();
}

void Demo::Line(const std::string& text) {
  const auto lock = wire_.Hold();
  PrintLine(text);
}

void Demo::PrintLine(const std::string& text) {
  if (patch_bar_.active()) patch_bar_.Finish();
  printf("%s  %s\n", Elapsed(start_, std::chrono::steady_clock::now()).c_str(), text.c_str());
  fflush(stdout);
}

bool Demo::Fail(const std::string& why) {
  if (failure_.empty() && !Interrupted()) failure_ = why;
  return false;
}

void Demo::OnBoard(const JournalEntry& entry) {
  // An unpowered controller has no speed; the board names it all the same, for the next power-on.
  if (entry.event == WireEvent::kPowerOn || entry.event == WireEvent::kPowerOff) {
    powered_ = entry.event == WireEvent::kPowerOn;
  }
  if (entry.event == WireEvent::kSpeed && !powered_) return;
  const bool shown = show_wire_ && IsWorthShowing(entry);
  if (shown || IsTrouble(entry) || entry.event == WireEvent::kPatchRecord) wire_.Put(entry);
}

void Demo::TellWire(const JournalEntry& entry) {
  if (entry.event == WireEvent::kPatchRecord) {
    patch_bar_.Update(entry.value, entry.total);
    return;
  }
  patch_bar_.Finish();
  printf("%s", JournalText({}, Elapsed(start_, entry.time) + "  ", entry).c_str());
  fflush(stdout);
}

bool Demo::OccupyRoot() {
  std::string error;
  if (!root_.Prepare(options_.root, &error)) return Fail(error);
  options_.board.root = root_.path();
  Line(Note("root", root_.path()));
  return true;
}

bool Demo::StartBoard() {
  auto board = std::make_unique<sim::Board>(options_.board);
  board->SetObserver([this](const JournalEntry& entry) { OnBoard(entry); });
  std::string error;
  if (!board->Start(&error) || !root_.MakeLogFolder(&error)) return Fail(error);
  board_ = std::move(board);
  Line(Note("board", StringPrintf("chip %u, one-time memory %s%s", options_.board.chip_id,
                                  options_.board.otp_written ? "written" : "empty",
                                  options_.board.pace ? ", bytes at the line's real pace" : "")));
  return true;
}

// What a boot forgets, and what the options ask for. Only now that the board plays: a device that is not to be ours
// keeps its own.
bool Demo::SetProperties() {
  bool set = ::bthal::host::WipeVolatileProperties() &&
             ::android::base::SetProperty(kAccelerateDisableProperty, options_.no_accel ? "true" : "false");
  if (options_.snoop) {
    set = set && ::android::base::SetProperty(kBuildTypeProperty, "userdebug") &&
          ::android::base::SetProperty(kSnoopProperty, "true");
  }
  return set || Fail("cannot write properties below " + root_.path());
}

bool Demo::StartService() {
  std::string error;
  clock_gettime(CLOCK_REALTIME_COARSE, &service_started_);  // by which files are dated
  const auto lock = wire_.Hold();                           // what the board sees of it is told after its start
  service_ = SpawnService(root_.Log("service.log"), &error);
  if (!service_.running()) return Fail(error);
  PrintLine(Note("service", StringPrintf("pid %d, %s", service_.pid(), kServiceProgram)));
  return true;
}

bool Demo::ServiceDied() {
  if (!service_.running()) return true;
  const std::optional<int> status = service_.Wait(milliseconds(0));
  if (status) TellWhyServiceDied(*status);
  return status.has_value();
}

void Demo::TellWhyServiceDied(int wait_status) {
  Line(Paint(Colour::kBad, Note("service", ExitWords(wait_status))));
  const std::vector<std::string> last_words = LastWordsIn(root_.Log("service.log"));
  for (const std::string& line : last_words) Line(Note("", line));
  for (const std::string& file : CrashFilesSince(service_started_)) Line(Note("", "it left " + file));
  const std::string cause = CauseOfDeath(last_words);
  Fail(cause.empty() ? "the service " + ExitWords(wait_status)
                     : cause + " (the service " + ExitWords(wait_status) + ")");
}

bool Demo::AwaitPublished() {
  const auto published = [] {
    return std::ranges::any_of(::bthal::host::ListServices(),
                               [](const auto& service) { return service.alive && service.instance == kHciService; });
  };
  WaitUntil([&] { return published() || ServiceDied(); }, kBringUpPatience);
  return !Interrupted() && failure_.empty();
}

bool Demo::AwaitBringUp() {
  // Without acceleration nothing happens before a client asks.
  if (options_.no_accel) return AwaitPublished();
  size_t seen = 0;
  bool up = false;
  WaitUntil(
      [&] {
        for (const JournalEntry& entry : board_->Journal(seen)) {
          ++seen;
          up |= IsAnswerTo(entry, opcodes::kSetSleepMode);
        }
        return up || ServiceDied();
      },
      kBringUpPatience);
  // A controller that refuses to sleep, or is slow about it, is none the less up: the client will tell.
  return AwaitPublished();
}

SpawnOptions Demo::OwnProgram(const std::vector<std::string>& arguments) const {
  SpawnOptions spawn;
  spawn.arguments = {::android::base::GetExecutablePath()};
  spawn.arguments.insert(spawn.arguments.end(), arguments.begin(), arguments.end());
  // Its lines go through a pipe, but end up on our terminal, behind our time column.
  constexpr size_t kTimeColumn = 10;
  if (const size_t room = RoomBehind(kTimeColumn); room > 0) {
    spawn.environment.emplace_back("CLICOLOR_FORCE", "1");
    spawn.environment.emplace_back("COLUMNS", std::to_string(room));
  }
  return spawn;
}

bool Demo::StartClient() {
  client_ = std::make_unique<Conversation>([this](const std::string& line) { Line(line); });
  std::string error;
  if (!client_->Start(OwnProgram({"hci", "--no-times", "--script", "-"}), &error)) return Fail(error);
  Line(Note("client", StringPrintf("pid %d, over Binder", client_->pid())));
  client_->Say("initialize");
  if (!client_->ReadUntil("initialised: SUCCESS", kBringUpPatience)) {
    ServiceDied();
    return Fail("the client could not initialise the HAL");
  }
  show_wire_ = false;  // from here on the client's own view is what counts
  client_begins_ = board_->Journal().size();
  return true;
}

bool Demo::TakeReport() {
  std::string error;
  Child dump = Child::Spawn(OwnProgram({"dump", "-o", root_.Log("report.txt")}), &error);
  if (!dump.running()) return Fail(error);
  const std::optional<int> status = dump.Wait(kStepPatience);
  if (status != 0) return Fail("the service's report could not be taken");
  Line(Note("report", "taken right after the initialisation"));
  return true;
}

bool Demo::Relay() {
  const std::string& address =
      options_.board.provision_address ? options_.board.provisioned_address : options_.board.address;
  for (const std::string& line :
       {std::string("reset"), std::string("expect success"), std::string("read_local_version"),
        std::string("expect success, hci version"), std::string("read_bd_addr"), "expect " + address,
        std::string("le_scan_parameters"), std::string("expect success"), std::string("le_scan_enable 1 0"),
        std::string("expect success"), std::string("wait le_advertising_report 5"), std::string("sleep 0.3"),
        std::string("le_scan_enable 0 0"), std::string("expect success")}) {
    client_->Say(line);
  }
  client_->HangUp();
  return true;
}

bool Demo::EndClient() {
  const std::optional<int> status = client_->ReadToTheEnd(kStepPatience);
  if (!status) return Fail("the client did not end");
  if (*status != 0) ServiceDied();
  if (*status != 0) return Fail("the client " + ExitWords(*status));
  Line(Note("client", "ended, every answer as expected"));
  return true;
}

bool Demo::EndService() {
  if (ServiceDied()) return false;
  show_wire_ = true;
  service_.Signal(SIGTERM);
  const std::optional<int> status = service_.Wait(kEndPatience);
  if (!status) return Fail("the service did not end on SIGTERM");
  // It switches the controller off and then ends itself the one way it has.
  if (!WIFSIGNALED(*status) || WTERMSIG(*status) != SIGKILL) {
    return Fail("the service ended in another way than it should: " + ExitWords(*status));
  }
  const bool off = board_->WaitFor(IsOff, kEndPatience);
  if (!off) return Fail("the service left the controller powered");
  Line(Note("service", "ended on SIGTERM, the controller is off"));
  return true;
}

bool Demo::Judge() {
  printf("\n%s\n\n", Paint(Colour::kHeading, "What really happened, by the board's journal").c_str());
  bool all = true;
  for (const DemoFact& fact : CheckDemo(board_->Journal(), client_begins_, options_.board)) {
    printf("  %s  %s\n", fact.holds ? Paint(Colour::kGood, "yes").c_str() : Paint(Colour::kBad, "NO ").c_str(),
           fact.text.c_str());
    all &= fact.holds;
  }
  return (all || Fail("not everything happened that should have")) && (!options_.board.hub || CompareDownloads());
}

bool Demo::CompareDownloads() {
  const std::string log = root_.Log("paced-download.log");
  const auto by_hub = PacedDownload(options_.board, true, root_.path() + "/by-hub", log);
  const auto direct = by_hub ? PacedDownload(options_.board, false, root_.path() + "/direct", log) : std::nullopt;
  if (!direct) return Fail("the patch did not come at the line's real pace: see " + log);
  printf("\n%s\n\n", Paint(Colour::kHeading, "The patch once more, at the line's real pace").c_str());
  for (const auto& [name, download] : {std::pair("by the sensor hub", *by_hub), std::pair("without it", *direct)}) {
    printf("  %-17s  %5llu records in %5llu messages, %.2f MB/s\n", name,
           static_cast<unsigned long long>(download.records), static_cast<unsigned long long>(download.messages),
           download.megabytes_per_second());
  }
  return true;
}

}  // namespace bthal::tool
