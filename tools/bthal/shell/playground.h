// A board and the service, to play with.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "bthal/demo/demo_root.h"
#include "bthal/run/line_relay.h"
#include "bthal/run/process.h"
#include "bthal/show/time_column.h"
#include "sim/board.h"

namespace bthal::tool {

struct PlaygroundOptions {
  sim::BoardOptions board;  // its root is filled in
  std::string root;         // empty: a place of its own, emptied before and afterwards
  TimeStyle time_style = TimeStyle::kRelative;
};

class Playground {
 public:
  // `show` gets whole lines, on any thread.
  Playground(PlaygroundOptions options, std::function<void(const std::string&)> show)
      : options_(std::move(options)),
        time_(options_.time_style),
        show_(std::move(show)),
        wire_([this](std::string_view lines) { show_(std::string(lines)); }, "board") {}
  Playground(const Playground&) = delete;
  Playground& operator=(const Playground&) = delete;
  ~Playground();  // ends the service, then the board, and removes what is its own

  // From now on BTHAL_ROOT is its root. False with one line in `error`.
  bool Start(std::string* error);
  // A service that has ended is started anew.
  bool Restart(std::string* error);

  // Readable when the service has ended; -1 while there is none.
  int service_end() const { return service_.exit_fd(); }
  // To be called then: tells how it ended.
  void TellEnd();
  // Whether it has, and only Restart brings another. It has been told by then.
  bool ServiceEnded();

 private:
  bool Boot(std::string* error);
  bool StartService(std::string* error);
  void OnBoard(const sim::JournalEntry& entry);
  void Tell(const std::string& name, const std::string& text) const;

  PlaygroundOptions options_;
  const TimeColumn time_;
  const std::function<void(const std::string&)> show_;
  LineRelay wire_;  // the board's thread is the controller: it must not wait for whoever does not read
  DemoRoot root_{"shell"};
  bool prepared_ = false;
  std::unique_ptr<sim::Board> board_;
  Child service_;  // last: it ends before its board does
};

}  // namespace bthal::tool
