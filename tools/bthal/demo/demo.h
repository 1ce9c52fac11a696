// The whole way once: board, service, client, packets, and what they left behind.
#pragma once

#include <time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bthal/demo/demo_root.h"
#include "bthal/demo/wire_teller.h"
#include "bthal/run/conversation.h"
#include "bthal/run/process.h"
#include "bthal/show/terminal.h"
#include "sim/board.h"

namespace bthal::tool {

struct DemoOptions {
  sim::BoardOptions board;  // its root is filled in by the demo
  std::string root;         // empty: a place of the demo's own
  bool snoop = false;
  bool no_accel = false;
  bool keep = false;
};

class Demo {
 public:
  explicit Demo(DemoOptions options);
  Demo(const Demo&) = delete;
  Demo& operator=(const Demo&) = delete;
  ~Demo();

  // The program's exit status: 0 only if every step happened.
  int Run();

 private:
  bool Play();
  bool OccupyRoot();
  bool StartBoard();
  bool SetProperties();
  bool StartService();
  bool AwaitPublished();
  bool AwaitBringUp();
  bool StartClient();
  bool TakeReport();
  bool Relay();
  bool EndClient();
  bool EndService();
  bool Judge();
  bool CompareDownloads();
  int Conclude(bool well);

  void OnBoard(const sim::JournalEntry& entry);  // the board's thread
  void TellWire(const sim::JournalEntry& entry);
  void Line(const std::string& text);
  void PrintLine(const std::string& text);  // with wire_ held
  bool Fail(const std::string& why);
  bool ServiceDied();
  void TellWhyServiceDied(int wait_status);
  SpawnOptions OwnProgram(const std::vector<std::string>& arguments) const;
  void PrintSnoopLog();
  // False when a log could not be written, which has been told.
  bool PrintChart();
  bool WriteJournal() const;
  bool WriteLog(const std::string& name, const std::string& text) const;

  DemoOptions options_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  DemoRoot root_;

  ProgressBar patch_bar_;  // with wire_ held
  WireTeller wire_;
  std::atomic<bool> show_wire_{true};
  bool powered_ = false;  // the board's thread alone

  std::unique_ptr<sim::Board> board_;
  Child service_;
  timespec service_started_ = {};
  std::unique_ptr<Conversation> client_;
  size_t client_begins_ = 0;
  std::string failure_;
};

}  // namespace bthal::tool
