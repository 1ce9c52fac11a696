// Everything that is written to the board's nodes, in the order in which it was written, across all nodes.
#pragma once

#include <sys/types.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "sim/base/bytes.h"
#include "sim/base/fd.h"

namespace bthal::sim {

// A FIFO keeps what was written to it but knows nothing of its neighbours. An inotify queue keeps the order of all
// writes but not what was written. Together they tell the whole story.
class OrderedInputs {
 public:
  // How a node's bytes are cut into single writes.
  enum class Framing { kCharacter, kLine, kFourBytes };
  using OnUnit = std::function<void(const Bytes& unit)>;

  bool Open(std::string* error);
  // `fd` does not block and stays open until Remove; `path` is the file that others write to.
  bool Add(int fd, const std::string& path, Framing framing, OnUnit on_unit, std::string* error);
  void Remove(int fd);

  // What to poll for input.
  const std::vector<int>& Descriptors() const { return polled_; }
  // Hands over all that was written before the call.
  void Drain();

 private:
  struct Source {
    int fd;
    int watch;
    Framing framing;
    OnUnit on_unit;
    Bytes rest;               // an unfinished unit
    std::deque<Bytes> units;  // read, not yet handed over
  };

  bool SomethingWasWritten() const;
  void ReadOrder();
  static void ReadSource(Source& source);
  static void Cut(Source& source);
  size_t EventsOf(const Source& source) const;
  bool SomeUnitIsAhead() const;
  void HandOver();

  Fd order_;
  // The order, and the terminals: a write's event is there before the writer's call returns, but what was written to a
  // terminal may still be on its way then, unless that is asked itself.
  std::vector<int> polled_;
  std::vector<Source> sources_;
  std::deque<int> events_;  // watch descriptors, one for a write
};

}  // namespace bthal::sim
