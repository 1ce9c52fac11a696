// bthal hci: an HCI client for people and scripts.
#include <android-base/stringprintf.h>
#include <poll.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <memory>

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

bool RunLines(HciSession& session, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    if (session.quit()) break;
    if (Interrupted() || !session.Run(line)) return false;
  }
  return true;
}

bool RunScript(HciSession& session, std::istream& script, const std::string& name) {
  std::string line;
  for (int number = 1; std::getline(script, line) && !session.quit(); ++number) {
    if (Interrupted()) return false;
    if (!session.Run(line)) {
      Complain(::android::base::StringPrintf("%s, line %d: %s", name.c_str(), number, line.c_str()));
      return false;
    }
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

int Run(const HciOptions& options) {
  // Nothing is sent before all of it is known to be readable.
  std::ifstream script;
  if (!options.script.empty() && options.script != "-") {
    script.open(options.script);
    if (!script) return Complain("cannot read " + options.script);
  }
  std::string error;
  for (const std::string& line : options.lines) {
    if (!ParseScriptLine(line, &error)) return Complain(error);
  }
  CatchInterrupts();
  HciSession session({.times = !options.no_times,
                      .answer_patience = std::chrono::milliseconds(static_cast<int>(options.timeout * 1000)),
                      .service_patience = std::chrono::milliseconds(static_cast<int>(options.service_timeout * 1000))});
  if (!session.Open()) return 1;
  bool well = false;
  if (!options.lines.empty()) {
    well = RunLines(session, options.lines);
  } else if (script.is_open()) {
    well = RunScript(session, script, options.script);
  } else {
    well = RunInput(session);
  }
  well &= session.Close();
  if (Interrupted()) return 128 + InterruptSignal();
  return well ? 0 : 1;
}

}  // namespace

void AddHci(CLI::App& app, int* status) {
  auto options = std::make_shared<HciOptions>();
  CLI::App* sub = app.add_subcommand("hci", "Send HCI commands and data to the controller, and show what comes back");
  sub->add_option("line", options->lines, "what to send, one quoted argument a line; without any, lines are read");
  sub->add_option("--script", options->script, "read the lines from FILE ('-' or nothing: standard input)")
      ->type_name("FILE");
  sub->add_option("--timeout", options->timeout, "seconds to wait for the answer to a command")
      ->capture_default_str()
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 3600.0).description(""));
  sub->add_option("--wait-service", options->service_timeout, "seconds to wait for the service to be published")
      ->capture_default_str()
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 3600.0).description(""));
  sub->add_flag("--no-times", options->no_times, "leave the time column out, so that two runs compare");
  sub->footer(std::string("Lines:\n") + kScriptHelp +
              "\nIt fails (exit status 1) at the first line whose answer does not come or is not the expected one.\n"
              "\nExamples:\n"
              "  bthal hci read_bd_addr read_local_version\n"
              "  bthal hci 'le_scan 2'\n"
              "  bthal hci reset 'expect success' 'cmd 01 10 00' 'expect HCI 12'\n"
              "  bthal hci --script smoke.hci");
  sub->callback([options, status] { *status = Run(*options); });
}

}  // namespace bthal::tool
