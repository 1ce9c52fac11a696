// bthal board: the virtual board alone.
#include <android-base/unique_fd.h>
#include <host/property_store.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/board_options.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/journal_words.h"
#include "bthal/show/terminal.h"
#include "sim/controller/faults/faults.h"

namespace bthal::tool {
namespace {

struct BoardCommand {
  sim::BoardOptions board;
  std::string only;
  bool quiet = false;
};

// Makes the folder the device, and locks it; the board's start is the device's boot: what does not outlive a boot goes.
bool Boot(const sim::BoardOptions& board, ::android::base::unique_fd* lock, std::string* error) {
  if (!board.root.empty()) setenv(kRootVariable, board.root.c_str(), 1);
  // A part of a device goes into a root that may have its board, or is the machine's own.
  if (board.only_coex) return board.root.empty() || RootIsOurs(board.root, error);
  *lock = OccupyRoot(board.root, error);
  if (!lock->ok()) return false;
  if (::bthal::host::WipeVolatileProperties()) return true;
  *error = "board: cannot remove the volatile properties of the last run below " + board.root;
  return false;
}

int Run(BoardCommand& command) {
  command.board.only_coex = command.only == "coex";
  const char* root = getenv(kRootVariable);
  if (command.board.root.empty() && root != nullptr) command.board.root = root;
  if (command.board.root.empty() && !command.board.only_coex) {
    return Complain("board: where? Give --root DIR, or set BTHAL_ROOT (only --only coex plays on the machine itself)");
  }
  std::string error;
  ::android::base::unique_fd lock;
  if (!BoardOptionsAreClear(command.board, &error)) return Complain(error);
  CatchInterrupts();
  if (!Boot(command.board, &lock, &error)) return Complain(error);
  sim::Board board(command.board);
  const auto start = std::chrono::steady_clock::now();
  board.SetObserver([start](const sim::JournalEntry& entry) {
    printf("%s  %s\n", Elapsed(start, entry.time).c_str(), JournalWords(entry).c_str());
    fflush(stdout);
  });
  if (!board.Start(&error)) return Complain(error);
  if (command.board.only_coex) {
    printf("playing %s/dev/wbrc; Ctrl-C ends\n", command.board.root.c_str());
  } else {
    printf("playing below %s; start the service with BTHAL_ROOT=%s; Ctrl-C ends\n", command.board.root.c_str(),
           command.board.root.c_str());
  }
  fflush(stdout);
  while (SleepUnlessInterrupted(std::chrono::hours(1))) {
  }
  board.SetObserver({});
  board.Stop();
  return 0;
}

}  // namespace

void AddBoard(Command& app) {
  auto command = std::make_shared<BoardCommand>();
  Command sub = app.Add("board", "Play the device: controller, power, wake lines, drivers and files");
  sub.Take("--root", &command->board.root, "the folder that is furnished as the device's root (default: BTHAL_ROOT)")
      .Type("DIR");
  AddBoardOptions(sub, &command->board);
  sub.Take("--only", &command->only, "play nothing but this").OneOf({"coex"}).Type("coex");
  sub.Footer(
      "Prints everything that happens at the board, one line each, until Ctrl-C.\n"
      "\nExample, in three terminals, each with BTHAL_ROOT=~/board:\n"
      "  bthal board\n"
      "  bthal supervise\n"
      "  bthal hci 'le_scan 2'\n"
      "\nFaults:\n" +
      sim::FaultHelp());
  sub.Run([command] { return Run(*command); });
}

}  // namespace bthal::tool
