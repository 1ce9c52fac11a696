// Sees to it that no node outlives the board.
#pragma once

#include <sys/types.h>

#include <string>

#include "sim/base/fd.h"

namespace bthal::sim {

// A node without its board is a trap: whoever opens a FIFO that nobody reads waits for ever, and the number of a
// terminal that has gone is given to the next one, a stranger's. A board that is killed cannot take its nodes away, so
// a child process does: it waits for the board's death, by whatever means, and then removes what is still the board's.
// Until it has, it holds FIFOs and terminals open, so that no open waits and no number is given away.
class Guardian {
 public:
  Guardian() = default;
  Guardian(const Guardian&) = delete;
  Guardian& operator=(const Guardian&) = delete;
  ~Guardian() { Stop(); }

  // Starts the process. It holds the file `lock`, if one is named, until it ends: a board that comes after one that was
  // killed waits here until everything of its predecessor has gone. False with the reason in `error`.
  bool Start(const std::string& lock, std::string* error);
  // Puts a node in its place, in one step for whoever opens `path` meanwhile: `fresh` is its name until then, `node` a
  // descriptor of the node itself, and `terminal` (-1: none) what it leads to. What the board put there before is no
  // longer guarded. False with the reason in `error`.
  bool Publish(const std::string& fresh, const std::string& path, int node, int terminal, std::string* error) const;
  // Ends the process, for a board that has taken its nodes away itself.
  void Stop();

 private:
  Fd channel_;
  pid_t process_ = -1;
};

}  // namespace bthal::sim
