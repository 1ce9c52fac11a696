// bthal hci: an HCI client for people and scripts.
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "bthal/cli/command.h"
#include "bthal/cmd/call_timeout.h"
#include "bthal/cmd/commands.h"
#include "bthal/hci/script.h"
#include "bthal/run/hci_session.h"
#include "bthal/run/interrupt.h"
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
  bool verbose = false;
};

// Reads lines without holding any back, so that a Ctrl-C is noticed between them.
class LineSource {
 public:
  explicit LineSource(int fd) : fd_(fd) {}

  // False at the end of the input, or when the user interrupts.
  bool Next(std::string* line) {
    for (;;) {
      if (const size_t end = buffer_.find('\n'); end != std::string::npos) {
        *line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return true;
      }
      pollfd ready[] = {{fd_, POLLIN, 0}, {InterruptFd(), POLLIN, 0}};
      if (poll(ready, 2, -1) < 0 && errno != EINTR) return false;
      if (Interrupted()) return false;
      if (ready[0].revents == 0) continue;
      char piece[4096];
      const ssize_t count = TEMP_FAILURE_RETRY(read(fd_, piece, sizeof(piece)));
      if (count <= 0) {
        *line = std::exchange(buffer_, "");
        return !line->empty();
      }
      buffer_.append(piece, static_cast<size_t>(count));
    }
  }

 private:
  const int fd_;
  std::string buffer_;
};

// `name` of a script, or nothing for lines of the command line.
bool Tell(const std::string& name, int number, const std::string& line) {
  if (!name.empty()) Complain(::android::base::StringPrintf("%s, line %d: %s", name.c_str(), number, line.c_str()));
  return false;
}

// Nothing is sent before all of it is known to be readable.
bool RunLines(HciSession& session, const std::vector<std::string>& lines, const std::string& name) {
  std::string error;
  int number = 0;
  for (const std::string& line : lines) {
    ++number;
    if (ParseScriptLine(line, &error)) continue;
    Complain(error);
    return Tell(name, number, line);
  }
  number = 0;
  for (const std::string& line : lines) {
    ++number;
    if (session.quit()) break;
    if (Interrupted()) return false;
    if (!session.Run(line)) return Tell(name, number, line);
  }
  return true;
}

// A person may go on after an error; a script that is piped in may not.
bool RunInput(HciSession& session) {
  const bool person = isatty(STDIN_FILENO) == 1;
  if (person) printf("Commands are sent as you enter them; 'help' explains, 'quit' or Ctrl-D ends.\n");
  LineSource source(STDIN_FILENO);
  std::string line;
  bool all_well = true;
  while (!session.quit() && source.Next(&line)) {
    const bool well = session.Run(line);
    all_well &= well;
    if (!well && !person) break;
  }
  return person || all_well;
}

// An argument is a line; what stands behind help or list at the beginning belongs to it.
std::vector<std::string> LinesOf(const HciOptions& options) {
  const std::string& first = options.lines.front();
  if (first != "help" && first != "list") return options.lines;
  return {::android::base::Join(options.lines, ' ')};
}

int Run(const HciOptions& options) {
  std::string script;
  const bool from_file = !options.script.empty() && options.script != "-";
  if (from_file && !::android::base::ReadFileToString(options.script, &script, /*follow_symlinks=*/true)) {
    return Complain("cannot read " + options.script);
  }
  CatchInterrupts();
  HciSession session({.times = !options.no_times,
                      .take_over = options.take_over,
                      .verbose = options.verbose,
                      .answer_patience = std::chrono::milliseconds(static_cast<int>(options.timeout * 1000)),
                      .service_patience = std::chrono::milliseconds(static_cast<int>(options.service_timeout * 1000))});
  bool well = false;
  if (!options.lines.empty()) {
    well = RunLines(session, LinesOf(options), "");
  } else if (from_file) {
    well = RunLines(session, ::android::base::Split(script, "\n"), options.script);
  } else {
    well = RunInput(session);
  }
  well &= session.Close();
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
  sub.Flag("--take-over", &options->take_over, "end another bthal hci that has the HAL");
  sub.Flag("-v,--verbose", &options->verbose, "show every field of a packet, one a line");
  sub.Flag("--no-times", &options->no_times, "leave the time column out, so that two runs compare");
  sub.Footer(
      std::string("Lines:\n") + kScriptHelp +
      "\nThe HAL is taken at the first line that is about the controller, and given back at the end. One client has it "
      "at\n"
      "a time: while another bthal hci does, this one refuses. Clients that are not bthal's are not known here; the\n"
      "service dies on a second one.\n"
      "\nIt fails (exit status 1) at the first line whose answer does not come or is not the expected one.\n"
      "\nExamples:\n"
      "  bthal hci read_bd_addr read_local_version\n"
      "  bthal hci 'le_scan 2'\n"
      "  bthal hci reset 'expect success' 'cmd 01 10 00' 'expect HCI 12'\n"
      "  bthal hci --script smoke.hci");
  RunWithCallTimeout(sub, [options] { return Run(*options); });
}

}  // namespace bthal::tool
