// bthal hci: an HCI client for people and scripts.
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>

#include "bthal/cli/command.h"
#include "bthal/cmd/call_timeout.h"
#include "bthal/cmd/commands.h"
#include "bthal/cmd/packet_options.h"
#include "bthal/hci/lines/script.h"
#include "bthal/run/hci_session.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/io/line_source.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

struct HciOptions {
  std::vector<std::string> lines;
  std::string script;
  double timeout = 2;
  double service_timeout = 10;
  bool no_times = false;
  bool take_over = false;
  TimeStyle time_style = TimeStyle::kRelative;
  PacketView view;
  bool keep_going = false;
};

// `name` of a script, or nothing for lines of the command line.
bool Tell(const std::string& name, int number, const std::string& line) {
  if (!name.empty()) Complain(::android::base::StringPrintf("%s, line %d: %s", name.c_str(), number, line.c_str()));
  return false;
}

bool AreReadable(const std::vector<std::string>& lines, const std::string& name) {
  std::string error;
  int number = 0;
  for (const std::string& line : lines) {
    ++number;
    if (ParseScriptLine(line, &error)) continue;
    const std::string where = name.empty() ? "" : ::android::base::StringPrintf("%s, line %d: ", name.c_str(), number);
    Complain(where + error);
    return false;
  }
  return true;
}

bool IsLookedAt(std::span<const std::string> after) {
  const auto next = std::ranges::find_if_not(after, IsEmptyLine);
  return next != after.end() && IsExpectation(*next);
}

// Nothing is sent before all of it is known to be readable; unless the user wants as much of it as can be done.
bool RunLines(HciSession& session, const std::vector<std::string>& lines, const std::string& name, bool keep_going) {
  if (!keep_going && !AreReadable(lines, name)) return false;
  bool all_well = true;
  for (size_t at = 0; at < lines.size() && !session.quit(); ++at) {
    if (Interrupted()) return false;
    if (session.Run(lines[at]) && (IsLookedAt(std::span(lines).subspan(at + 1)) || session.Settle())) continue;
    all_well = Tell(name, static_cast<int>(at) + 1, lines[at]);
    if (!keep_going) break;
  }
  return all_well;
}

// A person may go on after an error; a script that is piped in may not.
bool RunInput(HciSession& session, bool person, bool keep_going) {
  if (person) printf("Commands are sent as you enter them; 'help' explains, 'quit' or Ctrl-D ends.\n");
  LineSource source(STDIN_FILENO);
  std::string line;
  bool all_well = true;
  while (!session.quit() && source.Next(&line)) {
    if (IsEmptyLine(line)) continue;
    const bool settled = person || IsExpectation(line) || session.Settle();
    const bool well = (settled || keep_going) && session.Run(line) && settled;
    all_well &= well;
    if (!well && !person && !keep_going) break;
  }
  if (person) return true;
  all_well &= session.Settle();
  if (source.error().empty()) return all_well;
  Complain(source.error());
  return false;
}

// An argument is a line; what stands behind help or list at the beginning belongs to it.
std::vector<std::string> LinesOf(const HciOptions& options) {
  const std::string& first = options.lines.front();
  if (first != "help" && first != "list") return options.lines;
  return {::android::base::Join(options.lines, ' ')};
}

int Run(const HciOptions& options) {
  std::string script;
  if (!options.lines.empty() && !options.script.empty()) {
    return Complain("lines on the command line and --script at once; put all into the script, or give --script alone");
  }
  const bool from_file = !options.script.empty() && options.script != "-";
  if (from_file && !::android::base::ReadFileToString(options.script, &script, /*follow_symlinks=*/true)) {
    return Complain("cannot read " + options.script + ": " + strerror(errno));
  }
  CatchInterrupts();
  HciSession session({.times = !options.no_times,
                      .time_style = options.time_style,
                      .take_over = options.take_over,
                      .view = options.view,
                      .answer_patience = std::chrono::milliseconds(static_cast<int>(options.timeout * 1000)),
                      .service_patience = std::chrono::milliseconds(static_cast<int>(options.service_timeout * 1000)),
                      .service_ended = {},
                      .show = {},
                      .complain = {}});
  bool well = false;
  bool person = false;
  if (!options.lines.empty()) {
    well = RunLines(session, LinesOf(options), "", options.keep_going);
  } else if (from_file) {
    well = RunLines(session, ::android::base::Split(script, "\n"), options.script, options.keep_going);
  } else {
    person = isatty(STDIN_FILENO) == 1;
    well = RunInput(session, person, options.keep_going);
  }
  well &= session.End(person);
  if (Interrupted()) return 128 + InterruptSignal();
  return well ? 0 : 1;
}

}  // namespace

void AddHci(Command& app) {
  auto options = std::make_shared<HciOptions>();
  Command sub = app.Add("hci", "Send HCI commands and data to the controller, and show what comes back");
  sub.Take("line", &options->lines, "what to send, one quoted argument a line; without any, lines are read");
  sub.Take("--script", &options->script, "read the lines from FILE ('-' or nothing: standard input)").Type("FILE");
  sub.Take("--timeout", &options->timeout, "seconds to wait for the answer to a command")
      .ShowDefault()
      .Type("SECONDS")
      .Within(0.001, 3600.0);
  sub.Take("--wait-service", &options->service_timeout, "seconds to wait for the service to be published")
      .ShowDefault()
      .Type("SECONDS")
      .Within(0.0, 3600.0);
  sub.Flag("-k,--keep-going", &options->keep_going, "go on after a line that fails; the exit status is 1 all the same");
  sub.Flag("--take-over", &options->take_over, "end another bthal hci that has the HAL");
  AddViewOptions(sub, &options->view);
  AddTimeOption(sub, &options->time_style);
  sub.Flag("--no-times", &options->no_times, "leave the time column out, so that two runs compare");
  sub.Footer(
      std::string("Lines:\n") + kScriptHelp +
      "\nThe HAL is taken at the first line that is about the controller, and given back at the end. One client has it "
      "at\n"
      "a time: while another bthal hci does, this one refuses. Clients that are not bthal's are not known here; the\n"
      "service dies on a second one.\n"
      "\nIt ends with status 1 at the first line that cannot be read, whose answer or event does not come, or which "
      "the\n"
      "controller refuses, unless the next line expects just that. Lines of the command line and of a file are all "
      "read\n"
      "before any is sent.\n"
      "\nExamples:\n"
      "  bthal hci read_bd_addr read_local_version\n"
      "  bthal hci 'le_scan 2'\n"
      "  bthal hci reset 'expect success' 'cmd 01 10 00' 'expect HCI 12'\n"
      "  bthal hci --script smoke.hci");
  RunWithCallTimeout(sub, [options] { return Run(*options); });
}

}  // namespace bthal::tool
