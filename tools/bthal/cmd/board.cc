// bthal board: the virtual board alone.
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <host/property_store.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "bthal/cli/command.h"
#include "bthal/cmd/board_options.h"
#include "bthal/cmd/commands.h"
#include "bthal/cmd/packet_options.h"
#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/io/board_client.h"
#include "bthal/run/line_relay.h"
#include "bthal/show/journal_words.h"
#include "bthal/show/terminal.h"
#include "sim/controller/faults/faults.h"
#include "sim/hub/hub_faults.h"

namespace bthal::tool {
namespace {

struct BoardCommand {
  sim::BoardOptions board;
  std::string only;
  TimeStyle time_style = TimeStyle::kRelative;
  PacketView view;
  // `ctl` is a subcommand that runs first; then there is nothing to play.
  std::optional<int> asked;
  std::vector<std::string> fault;
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

// One question to the board that plays.
int Ask(const BoardCommand& command, const std::string& question) {
  if (!command.board.root.empty()) setenv(kRootVariable, command.board.root.c_str(), 1);
  const char* root = getenv(kRootVariable);
  std::string error;
  std::string answer;
  if (root == nullptr || *root == '\0') return Complain("board: which? Give --root DIR, or set BTHAL_ROOT");
  if (!RootIsOurs(root, &error) || !AskBoard(question, &answer, &error)) return Complain(error);
  printf("%s", Folded(answer).c_str());
  return 0;
}

void Print(std::string_view text) {
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
}

// A file has no reader to wait for: it gets everything, however much there is at once.
bool IsFile(int fd) {
  struct stat info = {};
  return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

std::string Welcome(const sim::BoardOptions& board) {
  if (board.only_coex) return "playing " + board.root + "/dev/wbrc; Ctrl-C ends\n";
  return "playing below " + board.root + "; start the service with BTHAL_ROOT=" + board.root + "; Ctrl-C ends\n";
}

// Until a signal asks for the end.
bool Play(const BoardCommand& command, std::string* error) {
  ::android::base::unique_fd lock;
  if (!Boot(command.board, &lock, error)) return false;
  // The board's thread is the controller: whoever does not read what it tells must not make it a dead one.
  LineRelay relay(Print, "board");
  const auto tell = [&relay, file = IsFile(STDOUT_FILENO)](const std::string& line) {
    file ? Print(line) : relay.Put(line);
  };
  sim::Board board(command.board);
  const TimeColumn time(command.time_style);
  board.SetObserver(
      [&](const sim::JournalEntry& entry) { tell(JournalText(command.view, time.At(entry.time), entry)); });
  if (!board.Start(error)) return false;
  tell(Welcome(command.board));
  while (SleepUnlessInterrupted(std::chrono::hours(1))) {
  }
  board.SetObserver({});
  board.Stop();
  return true;
}

int Run(BoardCommand& command) {
  if (command.asked) return *command.asked;
  command.board.only_coex = command.only == "coex";
  const char* root = getenv(kRootVariable);
  if (command.board.root.empty() && root != nullptr) command.board.root = root;
  if (command.board.root.empty() && !command.board.only_coex) {
    return Complain("board: where? Give --root DIR, or set BTHAL_ROOT (only --only coex plays on the machine itself)");
  }
  std::string error;
  if (!BoardOptionsAreClear(command.board, &error)) return Complain(error);
  CatchInterrupts();
  return Play(command, &error) ? 0 : Complain(error);
}

void AddControl(Command& board, const std::shared_ptr<BoardCommand>& command) {
  Command ctl = board.Add("ctl", "Ask the board that plays below the device root, or let something go wrong there");
  ctl.NeedsSubcommand();
  ctl.Footer(
      "Examples:\n"
      "  bthal board ctl fault late-answer,opcode=reset,ms=500\n"
      "  bthal board --root ~/board ctl state");
  Command fault = ctl.Add("fault", "Add a fault to those in force");
  fault.Take("fault", &command->fault, "as 'bthal board --help' explains it").Type("FAULT").Required();
  fault.Run([command] {
    command->asked = Ask(*command, "fault " + ::android::base::Join(command->fault, ' '));
    return *command->asked;
  });
  for (const auto& [word, about] : std::initializer_list<std::pair<const char*, const char*>>{
           {"list", "The faults that may still strike"},
           {"clear", "Forget all faults"},
           {"state", "What the controller does, its speed, whether it sleeps"}}) {
    ctl.Add(word, about).Run([command, word = std::string(word)] {
      command->asked = Ask(*command, word);
      return *command->asked;
    });
  }
}

}  // namespace

void AddBoard(Command& app) {
  auto command = std::make_shared<BoardCommand>();
  Command sub = app.Add("board", "Play the device: controller, power, wake lines, drivers and files");
  sub.Take("--root", &command->board.root, "the folder that is furnished as the device's root (default: BTHAL_ROOT)")
      .Type("DIR");
  AddBoardOptions(sub, &command->board);
  AddViewOptions(sub, &command->view);
  AddTimeOption(sub, &command->time_style);
  sub.Take("--only", &command->only, "play nothing but this").OneOf({"coex"}).Type("coex");
  sub.Footer(
      "Prints everything that happens at the board, one line each, until Ctrl-C. 'bthal board ctl' asks it meanwhile.\n"
      "Lines that nobody reads are dropped and counted; they do not hold the controller up.\n"
      "\nExample, in three terminals, each with BTHAL_ROOT=~/board:\n"
      "  bthal board\n"
      "  bthal supervise\n"
      "  bthal hci 'le_scan 2'\n"
      "\nFaults:\n" +
      sim::FaultHelp() + "\n" + sim::HubFaultHelp());
  AddControl(sub, command);
  sub.Run([command] { return Run(*command); });
}

}  // namespace bthal::tool
