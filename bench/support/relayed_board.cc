#include "support/relayed_board.h"

#include <android-base/file.h>
#include <fcntl.h>
#include <termios.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "support/hal.h"

namespace bthal::bench {
namespace {

using sim::JournalEntry;
using sim::WireEvent;

// The speed of a controller without a patch.
void SetFirstSpeed(int port) {
  termios attributes{};
  tcgetattr(port, &attributes);
  cfsetspeed(&attributes, B115200);
  tcsetattr(port, TCSANOW, &attributes);
}

bool HasBooted(const std::vector<JournalEntry>& journal) {
  return std::ranges::any_of(journal, [](const JournalEntry& entry) { return entry.event == WireEvent::kBooted; });
}

}  // namespace

RelayedBoard::RelayedBoard(size_t down, size_t up) : root_(NewRoot()) {
  sim::BoardOptions options;
  options.root = root_;
  options.journal_data_bytes = 0;
  board_ = std::make_unique<sim::Board>(options);
  if (!board_->Start(&error_)) return;
  const ::android::base::unique_fd power(
      open((root_ + "/sys/class/rfkill/rfkill0/state").c_str(), O_WRONLY | O_CLOEXEC));
  ::android::base::WriteStringToFd("1", power);
  port_.reset(open((root_ + "/dev/ttySAC16").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  MakeRaw(port_.get());
  SetFirstSpeed(port_.get());
  if (!board_->WaitFor(HasBooted, std::chrono::seconds(10))) error_ = "the board does not come up";
  relay_ = std::make_unique<Relay>(port_.get(), down, up);
}

RelayedBoard::~RelayedBoard() {
  relay_.reset();
  board_.reset();
  std::filesystem::remove_all(root_);
}

}  // namespace bthal::bench
