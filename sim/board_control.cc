// What people ask of a board that plays: its control socket's language.
#include "sim/board_impl.h"

namespace bthal::sim {
namespace {

constexpr size_t kMostFaults = 1000;

std::string Refuse(const std::string& why) { return "error: " + why + "\n"; }

}  // namespace

std::string Board::Impl::State() const {
  return controller_.StateLines() + "waiting     " + std::to_string(line_.Waiting()) + " bytes for the host\n" +
         "faults      " + std::to_string(faults_.InForce().size()) + " in force\n";
}

std::string Board::Impl::Obey(const std::string& question) {
  static const std::string kOk = "ok\n";
  const std::string verb = question.substr(0, question.find(' '));
  const std::string rest = verb.size() < question.size() ? question.substr(verb.size() + 1) : "";
  if (verb == "fault" && rest.starts_with(kHubFaultPrefix)) {
    HubFault fault;
    std::string error;
    if (!options_.hub) return Refuse("this board has no sensor hub; start it with --hub");
    if (!ParseHubFault(rest, &fault, &error)) return Refuse(error);
    hub_.faults().Add(std::move(fault));
    return kOk;
  }
  if (verb == "fault") {
    Fault fault;
    std::string error;
    if (!ParseFault(rest, &fault, &error)) return Refuse(error);
    if (faults_.InForce().size() >= kMostFaults) return Refuse("there are too many faults; clear them");
    faults_.Add(std::move(fault));
    controller_.StrikeNow();
    return kOk;
  }
  if (!rest.empty() || (verb != "list" && verb != "clear" && verb != "state")) {
    return Refuse("'" + question + "' is no question; there are: fault FAULT, list, clear, state");
  }
  if (verb == "state") return State() + kOk;
  if (verb == "clear") {
    faults_.Clear();
    hub_.faults().Clear();
    return kOk;
  }
  std::string list;
  for (const std::string& line : faults_.InForce()) list += line + "\n";
  return list + kOk;
}

}  // namespace bthal::sim
