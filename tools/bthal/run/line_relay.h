// Passes lines on to someone who may have stopped reading, and never waits for them.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace bthal::tool {

class LineRelay {
 public:
  using Write = std::function<void(std::string_view)>;

  // `fd` must stay open as long as the program runs. `who` says in front of its own lines that it is the relay's user.
  LineRelay(int fd, std::string who);
  // Through someone who filters for a terminal and knows when to give up: the destructor waits until all is written.
  LineRelay(Write write, std::string who);
  LineRelay(const LineRelay&) = delete;
  LineRelay& operator=(const LineRelay&) = delete;
  ~LineRelay();  // waits for the rest to go; into a descriptor, as long as any of it does

  // A line with its end, or a piece of a long one. Once too many are waiting, lines are dropped until half of these
  // have gone; then one line says how many. A terminal gets them filtered. Any thread.
  void Put(const std::string& line);

 private:
  struct Waiting;

  const bool terminal_;
  const std::shared_ptr<Waiting> waiting_;  // shared with a thread that may never come back from writing
  std::thread writer_;                      // that thread, where it is known to come back
};

}  // namespace bthal::tool
