#include "bthal/shell/playground.h"

#include <android-base/properties.h>
#include <host/property_store.h>
#include <host/service_registry.h>
#include <signal.h>

#include <cstdlib>

#include "bthal/demo/service_child.h"
#include "bthal/run/device_names.h"
#include "bthal/show/journal_words.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using sim::WireEvent;

// It switches the controller off first, which takes it far less.
constexpr std::chrono::milliseconds kEndPatience = std::chrono::seconds(5);

// What the client does not see, and someone who plays wants to.
bool IsWorthShowing(WireEvent event) {
  switch (event) {
    case WireEvent::kPowerOn:
    case WireEvent::kPowerOff:
    case WireEvent::kPatchLaunched:
    case WireEvent::kLostBytes:
    case WireEvent::kProtocolError:
    case WireEvent::kFault:
      return true;
    default:
      return false;
  }
}

}  // namespace

Playground::~Playground() {
  if (service_.running()) {
    service_.Signal(SIGTERM);
    service_.Wait(kEndPatience);
    service_.Kill();
  }
  if (board_ != nullptr) board_->SetObserver({});
  board_.reset();
  if (prepared_) root_.Clean(DemoOutcome::kInterrupted, /*keep=*/false);
}

void Playground::Tell(const std::string& name, const std::string& text) const {
  const std::string time = time_.At();
  constexpr size_t kNoteWords = 11;
  show_(Folded(time + Note(name, text), time.size() + kNoteWords) + "\n");
}

void Playground::OnBoard(const sim::JournalEntry& entry) {
  if (IsWorthShowing(entry.event)) wire_.Put(JournalText({}, time_.At(entry.time), entry));
}

bool Playground::Start(std::string* error) {
  prepared_ = root_.Prepare(options_.root, error);
  if (!prepared_) return false;
  options_.board.root = root_.path();
  Tell("root", root_.path() + " (in other terminals: BTHAL_ROOT=" + root_.path() + ")");
  return Boot(error) && StartService(error);
}

bool Playground::Boot(std::string* error) {
  auto board = std::make_unique<sim::Board>(options_.board);
  board->SetObserver([this](const sim::JournalEntry& entry) { OnBoard(entry); });
  if (!board->Start(error) || !root_.MakeLogFolder(error)) return false;
  board_ = std::move(board);
  Tell("board", "chip " + std::to_string(options_.board.chip_id));
  if (!::bthal::host::WipeVolatileProperties()) {
    *error = "cannot remove the properties of the last run below " + root_.path();
    return false;
  }
  // A place of its own also has the packet log.
  if (!options_.root.empty()) return true;
  return ::android::base::SetProperty(kBuildTypeProperty, "userdebug") &&
         ::android::base::SetProperty(kSnoopProperty, "true");
}

bool Playground::StartService(std::string* error) {
  service_ = SpawnService(root_.Log("service.log"), error);
  if (!service_.running()) return false;
  Tell("service", "pid " + std::to_string(service_.pid()) + ", its log is " + root_.Log("service.log"));
  return true;
}

bool Playground::Restart(std::string* error) {
  if (!service_.running()) return StartService(error);
  *error = "restart: the service lives, pid " + std::to_string(service_.pid());
  return false;
}

bool Playground::ServiceEnded() {
  if (service_.running()) TellEnd();
  return !service_.running();
}

void Playground::TellEnd() {
  const std::optional<int> status = service_.Wait(std::chrono::milliseconds(0));
  if (!status) return;
  Tell("service", ExitWords(*status) + "; 'restart' starts it anew");
  for (const std::string& line : LastWordsIn(root_.Log("service.log"))) Tell("", line);
}

}  // namespace bthal::tool
