// The sysfs and procfs nodes that the service writes to.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/base/fd.h"
#include "sim/nodes/guardian.h"
#include "sim/nodes/ordered_inputs.h"

namespace bthal::sim {

// Each node is a FIFO, because the order and number of writes matter and a regular file shows only the last one. Held
// open for reading and writing, so that a writer's open never waits and its close never ends anything.
class Fifos {
 public:
  struct Callbacks {
    std::function<void(bool on)> power;
    std::function<void(bool high)> wake_line;
    std::function<void(bool on)> lpm_driver;
    std::function<void(const std::string& name)> wake_lock;
    std::function<void(const std::string& name)> wake_unlock;
    std::function<void(const std::string& text)> uart_debug;
    std::function<void(const std::string& what)> nonsense;  // what a driver would refuse
  };

  // Both outlive it.
  Fifos(OrderedInputs* inputs, const Guardian* guardian) : inputs_(inputs), guardian_(guardian) {}
  Fifos(const Fifos&) = delete;
  Fifos& operator=(const Fifos&) = delete;
  ~Fifos() { Close(); }

  bool Open(const std::string& root, const Callbacks& callbacks, std::string* error);
  // Removes the FIFOs, so that a later writer's open fails instead of hanging.
  void Close();

 private:
  bool AddFifo(const std::string& path, OrderedInputs::Framing framing, OrderedInputs::OnUnit on_unit,
               std::string* error);
  OrderedInputs::OnUnit Switch(const std::string& node, const std::function<void(bool)>& set) const;

  OrderedInputs* const inputs_;
  const Guardian* const guardian_;
  std::string root_;
  std::function<void(const std::string&)> nonsense_;
  std::vector<Fd> fifos_;
  std::vector<std::string> paths_;
};

}  // namespace bthal::sim
