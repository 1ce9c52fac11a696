// A board that has been powered, with nothing but a relay between it and the client.
#pragma once

#include <android-base/unique_fd.h>

#include <cstddef>
#include <memory>
#include <string>

#include "sim/board.h"
#include "support/relay.h"

namespace bthal::bench {

class RelayedBoard {
 public:
  // See Relay for the sizes. Check error() before anything else.
  RelayedBoard(size_t down, size_t up);
  RelayedBoard(const RelayedBoard&) = delete;
  RelayedBoard& operator=(const RelayedBoard&) = delete;
  ~RelayedBoard();

  // Empty when all stands.
  const std::string& error() const { return error_; }
  sim::Board& board() { return *board_; }
  Relay& relay() { return *relay_; }

 private:
  std::string root_;
  std::string error_;
  std::unique_ptr<sim::Board> board_;
  ::android::base::unique_fd port_;
  std::unique_ptr<Relay> relay_;
};

}  // namespace bthal::bench
