#include "bthal/shell/shell.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "bthal/hci/lines/script.h"
#include "bthal/hci/lines/split_words.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/io/board_client.h"
#include "bthal/run/io/line_source.h"
#include "bthal/shell/shell_words.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;

// Whether what is on the screen can be drawn over.
bool HasCursor() {
  const char* term = getenv("TERM");
  return IsTerminal() && term != nullptr && std::string_view(term) != "dumb";
}

// Root's, as by sudo, in another user's home: what it leaves there he could not write to any more.
bool IsForeign(const fs::path& home) {
  struct stat info = {};
  return geteuid() == 0 && stat(home.c_str(), &info) == 0 && info.st_uid != 0;
}

// Empty where there is no place for it.
std::string HistoryFile() {
  const char* state = getenv("XDG_STATE_HOME");
  const char* home = getenv("HOME");
  fs::path folder;
  if (state != nullptr && *state == '/') {
    folder = state;
  } else if (home != nullptr && *home == '/') {
    folder = fs::path(home) / ".local/state";
  } else {
    return "";
  }
  std::error_code code;
  if (IsForeign(state != nullptr && *state == '/' ? state : home)) return "";
  fs::create_directories(folder, code);
  folder /= "bthal";
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return "";
  return folder / "history";
}

}  // namespace

const char kShellHelp[] =
    "Besides:\n"
    "  fault FAULT                  let something go wrong at the board, as 'fault late-answer opcode=reset';\n"
    "                               'help fault' has them all\n"
    "  faults [clear]               the faults that may still strike, or forget them\n"
    "  state                        what the controller does\n"
    "  restart                      start a service anew that has ended\n";

Shell::Shell(ShellOptions options) : options_(std::move(options)) {}

void Shell::Show(const std::string& text) {
  if (editor_ != nullptr) {
    editor_->Print(text);
    return;
  }
  printf("%s", text.c_str());
  fflush(stdout);
}

bool Shell::Fail(const std::string& why) {
  if (editor_ != nullptr) {
    editor_->Print(Folded("bthal: " + why) + "\n");
  } else {
    Complain(why);
  }
  return false;
}

int Shell::Run() {
  if (isatty(STDIN_FILENO) == 1 && HasCursor()) {
    editor_ = std::make_unique<LineEditor>(
        EditorOptions{.prompt = "bthal> ",
                      .history_file = HistoryFile(),
                      .complete = CompleteShellLine,
                      .watched = [this] { return playground_ != nullptr ? playground_->service_end() : -1; },
                      .on_watched = [this] { TellEndOfService(); }});
  }
  const auto show = [this](const std::string& text) { Show(text); };
  std::string error;
  if (!options_.attach) {
    playground_ = std::make_unique<Playground>(options_.playground, show);
    if (!playground_->Start(&error)) return Complain(error);
  }
  SessionOptions session = options_.session;
  session.show = show;
  session.complain = [this](const std::string& why) { Fail(why); };
  if (playground_ != nullptr) {
    session.service_ended = [this] { return playground_->ServiceEnded(); };
    session.death_words = "the service has died; 'restart' starts it anew, 'initialize' takes it then";
  }
  session_ = std::make_unique<HciSession>(session);
  bool well = editor_ != nullptr ? RunEdited() : RunPlain();
  well &= session_->End(isatty(STDIN_FILENO) == 1);
  if (Interrupted()) return 128 + InterruptSignal();
  return well ? 0 : 1;
}

// A person may go on after an error.
bool Shell::RunEdited() {
  Show("Tab completes, 'help' explains, 'quit' or Ctrl-D ends.\n");
  while (!session_->quit()) {
    const std::optional<std::string> line = editor_->Read();
    if (!line || Interrupted()) break;
    Obey(*line);
  }
  // To end it all may take a while, and who is too impatient leaves without us.
  editor_->LetGo();
  return true;
}

bool Shell::RunPlain() {
  const bool person = isatty(STDIN_FILENO) == 1;
  LineSource source(STDIN_FILENO);
  bool well = true;
  for (std::string line; well && !session_->quit() && source.Next(&line);) {
    if (IsEmptyLine(line)) continue;
    const bool settled = person || IsExpectation(line) || session_->Settle();
    well = (settled && Obey(line)) || person;
  }
  if (person) return !Interrupted();
  well = well && session_->Settle();
  if (!source.error().empty()) return Fail(source.error());
  return well && !Interrupted();
}

bool Shell::Obey(const std::string& line) {
  const std::vector<std::string> words = SplitWords(line.substr(0, line.find('#')));
  if (words.empty()) return true;
  const bool alone = words.size() == 1;
  if (words[0] == "fault") return Ask(line.substr(line.find("fault"), line.find('#') - line.find("fault")));
  if (words[0] == "faults" && alone) return Ask("list");
  if (words[0] == "faults" && words.size() == 2 && words[1] == "clear") return Ask("clear");
  if (words[0] == "state" && alone) return Ask("state");
  if (words[0] == "restart" && alone) return Restart();
  if (IsShellVerb(words[0])) return Fail(words[0] + ": takes nothing like '" + words.back() + "' (see 'help')");
  if (words[0] == "help" && words.size() == 2 && IsShellVerb(words[1])) {
    Show(words[1] == "fault" ? Folded(FaultWordsHelp()) : Folded(kShellHelp, kScriptHelpColumn));
    return true;
  }
  const bool well = session_->Run(line);
  if (words[0] == "help" && alone) Show(Folded(kShellHelp, kScriptHelpColumn));
  TellEndOfService();
  return well;
}

bool Shell::Ask(const std::string& question) {
  std::string answer;
  std::string error;
  if (!AskBoard(question, &answer, &error)) return Fail(error);
  Show(Folded(answer));
  return true;
}

bool Shell::Restart() {
  std::string error;
  if (playground_ == nullptr) return Fail("restart: the service is not this shell's");
  return playground_->Restart(&error) || Fail(error);
}

void Shell::TellEndOfService() {
  if (playground_ != nullptr && playground_->service_end() >= 0) playground_->TellEnd();
}

}  // namespace bthal::tool
