#include "bthal/demo/paced_download.h"

#include <algorithm>
#include <chrono>

#include "bthal/demo/service_child.h"
#include "bthal/run/interrupt.h"

namespace bthal::tool {
namespace {

constexpr std::chrono::seconds kPatience{30};

}  // namespace

std::optional<Download> PacedDownload(sim::BoardOptions options, bool hub, const std::string& root,
                                      const std::string& log) {
  options.hub = hub;
  options.pace = true;
  options.root = root;
  options.faults.clear();  // their place is the bring-up that is shown
  sim::Board board(options);
  std::string error;
  if (!board.Start(&error)) return std::nullopt;
  const Child service = SpawnService(log, &error, {{"BTHAL_ROOT", options.root}});
  bool launched = false;
  const auto seen = [&] {
    const auto journal = board.Journal();
    launched = std::ranges::find(journal, sim::WireEvent::kPatchLaunched, &sim::JournalEntry::event) != journal.end();
    return launched;
  };
  WaitUntil(seen, kPatience);
  return launched ? std::optional(DownloadIn(board.Journal(), hub)) : std::nullopt;
}

}  // namespace bthal::tool
