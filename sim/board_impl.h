// The board's parts and the thread that plays them.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "sim/base/fd.h"
#include "sim/base/journal.h"
#include "sim/base/tasks.h"
#include "sim/board.h"
#include "sim/controller/controller.h"
#include "sim/controller/faults/faults.h"
#include "sim/hub/hub.h"
#include "sim/nodes/coex.h"
#include "sim/nodes/control.h"
#include "sim/nodes/fifos.h"
#include "sim/nodes/guardian.h"
#include "sim/nodes/ordered_inputs.h"
#include "sim/wire/backend.h"
#include "sim/wire/line.h"

namespace bthal::sim {

// One thread plays the whole board. What others ask of it is queued and done there.
class Board::Impl {
 public:
  explicit Impl(BoardOptions options)
      : options_(std::move(options)),
        journal_(options_.journal_data_bytes),
        coex_(&journal_, &inputs_, &guardian_),
        fifos_(&inputs_, &guardian_),
        line_(&journal_, &guardian_, options_.pace),
        backend_(&journal_),
        hub_(options_.root, &journal_, &guardian_),
        controller_(options_, &journal_, &line_, &coex_, &faults_, options_.backend.empty() ? nullptr : &backend_) {}
  ~Impl() { Stop(); }

  bool Start(std::string* error);
  void Stop();
  void Ask(std::function<void()> task) { tasks_.Add(std::move(task)); }

  EventJournal& journal() { return journal_; }
  Controller& controller() { return controller_; }
  Line& line() { return line_; }
  Coex& coex() { return coex_; }
  Faults& faults() { return faults_; }
  Hub& hub() { return hub_; }
  size_t waiting() const { return waiting_.load(); }

 private:
  bool Check(std::string* error) const;
  bool Lock(std::string* error);
  bool AddFaults(std::string* error);
  bool OpenCoex(std::string* error);
  bool OpenTheRest(std::string* error);
  bool OpenBackend(std::string* error);
  bool OpenFifos(std::string* error);
  // board_control.cc: what is asked at the control socket, and the answer.
  std::string Obey(const std::string& question);
  std::string State() const;
  void Run();
  void Wait();

  BoardOptions options_;
  EventJournal journal_;
  Faults faults_;
  // In this order: what plays a node is taken from the inputs before they go, and its guardian goes last.
  Guardian guardian_;
  OrderedInputs inputs_;
  Coex coex_;
  Fifos fifos_;
  Line line_;
  Control control_{&guardian_};
  Backend backend_;
  Hub hub_;
  Controller controller_;

  Fd lock_;
  Tasks tasks_;
  bool called_ = false;  // there are tasks
  bool asked_ = false;   // something has come at the control socket
  std::atomic<bool> stop_{false};
  std::atomic<size_t> waiting_{0};
  std::thread thread_;
};

}  // namespace bthal::sim
