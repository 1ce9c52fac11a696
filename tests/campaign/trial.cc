#include "campaign/trial.h"

#include <android-base/file.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <span>
#include <thread>

#include "bthal/hci/codes.h"
#include "bthal/hci/words.h"
#include "bthal/run/device_names.h"
#include "bthal/show/snoop/btsnoop_reader.h"

namespace bthal::campaign {
namespace {

using std::chrono::steady_clock;

// Sessions one after another: with commands, data that goes out, events that come by themselves, and a close.
constexpr char kWork[] =
    "reset\nread_bd_addr\nacl 40 00 08 00 01 02 03 04 05 06 07 08\nle_scan 0.03\nread_local_name\nclose\ninitialize\n";
constexpr int kSessions = 300;
// When the fault strikes: anywhere from the start of a service that has to bring the controller up first, into the
// sessions that follow.
constexpr int kMomentsMs = 1500;
constexpr int kLongestStopMs = 400;  // far below what a step waits for an answer
constexpr int kLongestOutageMs = 300;

constexpr int Killed(int signal) { return 128 + signal; }

// The deaths of the service that its makers mean to follow from the fault.
bool Meant(const Fault& fault, int end, const std::string& log) {
  switch (fault.victim) {
    case Victim::kService:
      // Before the end of the first bring-up SIGTERM has its default action; later the service kills itself.
      return end == Killed(SIGKILL) || (fault.signal == SIGTERM && end == Killed(SIGTERM));
    case Victim::kClient:
      return end == Killed(SIGABRT) && log.find("Unable to link to death recipient") != std::string::npos;
    case Victim::kBoard:
      return end == Killed(SIGABRT) || end == Killed(SIGKILL);
  }
  return false;
}

Problem Lost(const std::string& what) { return {.hung = false, .what = what}; }
Problem Hung(const std::string& what) { return {.hung = true, .what = what}; }

// Whether every whole record of the log can be read, of one that was closed in order to its last byte.
void CheckSnoopLog(const std::string& path, bool closed) {
  std::string bytes;
  if (!android::base::ReadFileToString(path, &bytes)) {
    if (closed) throw Lost("there is no " + path);
    return;
  }
  tool::BtsnoopReader reader;
  reader.Feed(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  bool reset_answered = false;
  while (const std::optional<tool::SnoopRecord> record = reader.Next()) {
    reset_answered |= record->from_controller && tool::AnsweredOpcode(record->packet) == tool::opcodes::kReset;
  }
  if (!reader.error().empty()) throw Lost(path + ": " + reader.error());
  if (!closed) return;
  if (reader.pending() != 0) throw Lost(path + " ends within a record");
  if (!reset_answered) throw Lost(path + " lacks the last client's reset");
}

}  // namespace

Outcome Trial::Run(const Fault& fault) {
  outcome_ = {};
  try {
    device_.Forget();
    Begin();
    Strike(fault);
    EndClient(fault);
    Serve(fault);
    Inspect();
  } catch (const Problem& problem) {
    outcome_.problem = problem;
  }
  client_.Kill();
  return outcome_;
}

// Half of the time with a service that has just begun, of which a part does nothing before a client asks.
void Trial::Begin() {
  const bool fresh = Below(2) == 0;
  if (fresh) {
    device_.KillService();
    device_.Accelerate(Below(4) != 0);
    device_.StartService();
  }
  const std::string script = device_.folder() + "/work.hci";
  std::string work;
  for (int i = 0; i < kSessions; ++i) work += kWork;
  android::base::WriteStringToFile(work, script);
  client_ = device_.StartClient({"--no-times", "--script", script});
  const int moment = Below(kMomentsMs);
  outcome_.moment = std::to_string(moment) + " ms into " + (fresh ? "the service's start" : "a client's work");
  std::this_thread::sleep_for(milliseconds(moment));
}

pid_t Trial::PidOf(Victim victim) {
  switch (victim) {
    case Victim::kService:
      return device_.service();
    case Victim::kClient:
      return client_.pid();
    case Victim::kBoard:
      return device_.board().pid();
  }
  return 0;
}

void Trial::Strike(const Fault& fault) {
  const pid_t pid = PidOf(fault.victim);
  if (pid <= 0) throw Lost("there is nobody to strike");
  kill(pid, fault.signal);
  if (fault.signal == SIGSTOP) {
    std::this_thread::sleep_for(milliseconds(1 + Below(kLongestStopMs)));
    kill(pid, SIGCONT);
  } else if (fault.victim == Victim::kService) {
    const std::optional<int> end = device_.ServiceEnd(limit_);
    if (!end) throw Hung("the service does not end");
    Restart(fault, *end);
  } else if (fault.victim == Victim::kBoard) {
    device_.board().Wait(limit_);
    std::this_thread::sleep_for(milliseconds(Below(kLongestOutageMs)));
    device_.StartBoard();
  }
}

// Whoever was only stopped, or saw another stop, has noticed nothing, and leaves in order.
void Trial::EndClient(const Fault& fault) {
  client_.Signal(SIGTERM);
  const std::optional<int> status = client_.Wait(limit_);
  if (!status) throw Hung("the client at work does not end");
  const bool asked = WIFSIGNALED(*status) ? WTERMSIG(*status) == SIGTERM : WEXITSTATUS(*status) == Killed(SIGTERM);
  if (fault.signal == SIGSTOP && !asked) throw Lost("the client at work " + tool::ExitWords(*status));
}

void Trial::Restart(const Fault& fault, int end) {
  ++outcome_.deaths;
  const bool first = outcome_.deaths == 1 || fault.victim == Victim::kBoard;
  if (!first || fault.signal == SIGSTOP || !Meant(fault, end, device_.Log("service"))) {
    throw Lost("the service died unasked, with status " + std::to_string(end));
  }
  device_.StartService();
}

void Trial::Serve(const Fault& fault) {
  const auto start = steady_clock::now();
  tool::Child next = device_.StartClient({"reset", "expect success"});
  while (steady_clock::now() - start < limit_) {
    if (const std::optional<int> status = next.Wait(milliseconds(5))) {
      outcome_.served = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
      if (*status != 0) throw Lost("the next client " + tool::ExitWords(*status));
      return;
    }
    if (const std::optional<int> end = device_.ServiceEnd(milliseconds(0))) Restart(fault, *end);
  }
  throw Hung("the next client is not served within " + std::to_string(limit_.count()) + " ms");
}

void Trial::Inspect() const {
  if (device_.service() == 0) throw Lost("the service died behind the next client");
  const std::string log = device_.root() + tool::kSnoopLog;
  CheckSnoopLog(log, true);
  CheckSnoopLog(log + ".last", false);
  if (!device_.WakeLockGoes(limit_)) throw Lost("a wake lock is left held");
  if (const std::string leftovers = device_.Leftovers(); !leftovers.empty()) throw Lost(leftovers.substr(2));
}

}  // namespace bthal::campaign
