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

std::optional<Problem> Lost(const std::string& what) { return Problem{.hung = false, .what = what}; }
std::optional<Problem> Hung(const std::string& what) { return Problem{.hung = true, .what = what}; }

// Whether every whole record of the log can be read, of one that was closed in order to its last byte.
std::optional<Problem> CheckSnoopLog(const std::string& path, bool closed) {
  std::string bytes;
  if (!android::base::ReadFileToString(path, &bytes)) {
    return closed ? Lost("there is no " + path) : std::nullopt;
  }
  tool::BtsnoopReader reader;
  reader.Feed(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  bool reset_answered = false;
  while (const std::optional<tool::SnoopRecord> record = reader.Next()) {
    reset_answered |= record->from_controller && tool::AnsweredOpcode(record->packet) == tool::opcodes::kReset;
  }
  if (!reader.error().empty()) return Lost(path + ": " + reader.error());
  if (!closed) return std::nullopt;
  if (reader.pending() != 0) return Lost(path + " ends within a record");
  return reset_answered ? std::nullopt : Lost(path + " lacks the last client's reset");
}

}  // namespace

Outcome Trial::Run(const Fault& fault) {
  outcome_ = {};
  outcome_.problem = Steps(fault);
  client_.Kill();
  return outcome_;
}

std::optional<Problem> Trial::Steps(const Fault& fault) {
  device_.Forget();
  if (auto problem = Begin()) return problem;
  if (auto problem = Strike(fault)) return problem;
  if (auto problem = EndClient(fault)) return problem;
  if (auto problem = Serve(fault)) return problem;
  return Inspect();
}

// Half of the time with a service that has just begun, of which a part does nothing before a client asks.
std::optional<Problem> Trial::Begin() {
  const bool fresh = Below(2) == 0;
  if (fresh) {
    device_.KillService();
    device_.Accelerate(Below(4) != 0);
    if (std::string problem = device_.StartService(); !problem.empty()) return Lost(problem);
  }
  const std::string script = device_.folder() + "/work.hci";
  std::string work;
  for (int i = 0; i < kSessions; ++i) work += kWork;
  android::base::WriteStringToFile(work, script);
  client_ = device_.StartClient({"--no-times", "--script", script});
  const int moment = Below(kMomentsMs);
  outcome_.moment = std::to_string(moment) + " ms into " + (fresh ? "the service's start" : "a client's work");
  std::this_thread::sleep_for(milliseconds(moment));
  return std::nullopt;
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

std::optional<Problem> Trial::Strike(const Fault& fault) {
  const pid_t pid = PidOf(fault.victim);
  if (pid <= 0) return Lost("there is nobody to strike");
  kill(pid, fault.signal);
  if (fault.signal == SIGSTOP) {
    std::this_thread::sleep_for(milliseconds(1 + Below(kLongestStopMs)));
    kill(pid, SIGCONT);
  } else if (fault.victim == Victim::kService) {
    const std::optional<int> end = device_.ServiceEnd(limit_);
    if (!end) return Hung("the service does not end");
    return Restart(fault, *end);
  } else if (fault.victim == Victim::kBoard) {
    device_.board().Wait(limit_);
    std::this_thread::sleep_for(milliseconds(Below(kLongestOutageMs)));
    if (std::string problem = device_.StartBoard(); !problem.empty()) return Lost(problem);
  }
  return std::nullopt;
}

// Whoever was only stopped, or saw another stop, has noticed nothing, and leaves in order.
std::optional<Problem> Trial::EndClient(const Fault& fault) {
  client_.Signal(SIGTERM);
  const std::optional<int> status = client_.Wait(limit_);
  if (!status) return Hung("the client at work does not end");
  const bool asked = WIFSIGNALED(*status) ? WTERMSIG(*status) == SIGTERM : WEXITSTATUS(*status) == Killed(SIGTERM);
  if (fault.signal == SIGSTOP && !asked) return Lost("the client at work " + tool::ExitWords(*status));
  return std::nullopt;
}

std::optional<Problem> Trial::Restart(const Fault& fault, int end) {
  ++outcome_.deaths;
  const bool first = outcome_.deaths == 1 || fault.victim == Victim::kBoard;
  if (!first || fault.signal == SIGSTOP || !Meant(fault, end, device_.Log("service"))) {
    return Lost("the service died unasked, with status " + std::to_string(end));
  }
  const std::string problem = device_.StartService();
  return problem.empty() ? std::nullopt : Lost(problem);
}

std::optional<Problem> Trial::Serve(const Fault& fault) {
  const auto start = steady_clock::now();
  tool::Child next = device_.StartClient({"reset", "expect success"});
  while (steady_clock::now() - start < limit_) {
    if (const std::optional<int> status = next.Wait(milliseconds(5))) {
      outcome_.served = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
      return *status == 0 ? std::nullopt : Lost("the next client " + tool::ExitWords(*status));
    }
    if (const std::optional<int> end = device_.ServiceEnd(milliseconds(0))) {
      if (auto problem = Restart(fault, *end)) return problem;
    }
  }
  return Hung("the next client is not served within " + std::to_string(limit_.count()) + " ms");
}

std::optional<Problem> Trial::Inspect() const {
  if (device_.service() == 0) return Lost("the service died behind the next client");
  const std::string log = device_.root() + tool::kSnoopLog;
  if (auto problem = CheckSnoopLog(log, true)) return problem;
  if (auto problem = CheckSnoopLog(log + ".last", false)) return problem;
  if (!device_.WakeLockGoes(limit_)) return Lost("a wake lock is left held");
  if (const std::string leftovers = device_.Leftovers(); !leftovers.empty()) return Lost(leftovers.substr(2));
  return std::nullopt;
}

}  // namespace bthal::campaign
