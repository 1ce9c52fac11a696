// The prompt: HCI by hand, and a board that can be broken.
#pragma once

#include <memory>
#include <string>

#include "bthal/run/hci_session.h"
#include "bthal/shell/line_editor.h"
#include "bthal/shell/playground.h"

namespace bthal::tool {

struct ShellOptions {
  PlaygroundOptions playground;
  SessionOptions session;  // where it shows and complains is the shell's
  bool attach = false;     // there is a board and a service already
};

// What may be typed besides the language of scripts.
extern const char kShellHelp[];

class Shell {
 public:
  explicit Shell(ShellOptions options);
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // The program's exit status.
  int Run();

 private:
  bool RunEdited();
  bool RunPlain();
  // One line. False when something was wrong with it, which has been said.
  bool Obey(const std::string& line);
  bool Ask(const std::string& question);
  bool Restart();
  bool Fail(const std::string& why);
  void Show(const std::string& text);
  void TellEndOfService();

  const ShellOptions options_;
  std::unique_ptr<LineEditor> editor_;  // at a terminal; it lives as long as anything prints
  std::unique_ptr<Playground> playground_;
  std::unique_ptr<HciSession> session_;
};

}  // namespace bthal::tool
