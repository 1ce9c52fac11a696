#include "sim/hub/hub_faults.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace bthal::sim {
namespace {

struct Word {
  const char* name;
  HubFaultKind kind;
  const char* about;
};

constexpr Word kWords[] = {
    {"hub-status", HubFaultKind::kStatus, "the request is refused with status=N (1 to 20, default 2)"},
    {"hub-late", HubFaultKind::kLate, "the reply comes ms=N later"},
    {"hub-twice", HubFaultKind::kTwice, "the reply comes twice"},
    {"hub-never", HubFaultKind::kNever, "the reply does not come"},
    {"hub-hang-up", HubFaultKind::kHangUp, "the hub hangs up"},
    {"hub-restart", HubFaultKind::kRestart, "the hub hangs up, and is away for ms=N"},
    {"hub-pause", HubFaultKind::kPause, "the hub reads nothing for ms=N"},
    {"hub-garbage", HubFaultKind::kGarbage, "before the reply come bytes that are no table"},
    {"hub-unverified", HubFaultKind::kUnverified, "before the reply comes a table with a broken offset"},
    {"hub-too-large", HubFaultKind::kTooLarge, "before the reply comes a message that is too large"},
    {"hub-unknown-type", HubFaultKind::kUnknownType, "before the reply comes a packet of an unknown type"},
    {"hub-lost", HubFaultKind::kLost, "the hub tells that its connection is lost, and back after ms=N (0: never)"},
    {"hub-broken-event", HubFaultKind::kBrokenEvent, "before the reply comes a connection event that says nothing"},
    {"hub-shuffle", HubFaultKind::kShuffle, "dump fragments come in reverse order (request=dump)"},
    {"hub-shorten", HubFaultKind::kShorten, "the first dump fragment is missing (request=dump)"},
};

constexpr const char* kRequests[] = {"power", "port", "speed", "low-power", "packet", "batch", "dump"};
constexpr uint64_t kAlways = UINT64_MAX;

bool ParseKey(const std::string& key, const std::string& value, HubFault* fault, std::string* error) {
  if (key == "request") {
    const bool known =
        std::any_of(std::begin(kRequests), std::end(kRequests), [&](const char* r) { return value == r; });
    if (!known) *error = "'" + value + "' is no request; there are: power port speed low-power packet batch dump";
    fault->request = value;
    return known;
  }
  if (key == "count" && value == "always") {
    fault->count = kAlways;
    return true;
  }
  if (value.empty() || value.size() > 9 || value.find_first_not_of("0123456789") != std::string::npos) {
    *error = "'" + value + "' is no number for " + key;
    return false;
  }
  const uint64_t number = std::stoull(value);
  if (key == "count" && number == 0) {
    *error = "a fault with count=0 never strikes; count is at least 1, or always";
    return false;
  }
  if (key == "after")
    fault->after = number;
  else if (key == "count")
    fault->count = number;
  else if (key == "status")
    fault->status = number;
  else if (key == "ms")
    fault->ms = number;
  else {
    *error = "a hub's fault takes no '" + key + "', but request, after, count, status, ms";
    return false;
  }
  return true;
}

}  // namespace

bool ParseHubFault(const std::string& text, HubFault* fault, std::string* error) {
  std::string blanks = text;
  std::replace(blanks.begin(), blanks.end(), ',', ' ');
  std::istringstream words(blanks);
  std::string word;
  words >> word;
  const auto* kind = std::find_if(std::begin(kWords), std::end(kWords), [&](const Word& w) { return word == w.name; });
  if (kind == std::end(kWords)) {
    *error = "no fault of the hub is called '" + word + "'; there are:";
    for (const Word& known : kWords) *error += std::string(" ") + known.name;
    return false;
  }
  HubFault parsed;
  parsed.kind = kind->kind;
  parsed.text = text;
  std::set<std::string> given;
  while (words >> word) {
    const size_t equals = word.find('=');
    if (equals == std::string::npos) {
      error->assign("'").append(word).append("' lacks its value: write ").append(word).append("=VALUE");
      return false;
    }
    const std::string key = word.substr(0, equals);
    if (!ParseKey(key, word.substr(equals + 1), &parsed, error)) return false;
    if (given.insert(key).second) continue;
    *error = "'" + key + "' is given twice; give it once";
    return false;
  }
  *fault = std::move(parsed);
  return true;
}

std::string HubFaultHelp() {
  std::string help =
      "At the sensor hub (--hub), each with request=power|port|speed|low-power|packet|batch|dump, after, count:\n";
  constexpr size_t kColumn = 18;
  for (const Word& word : kWords) {
    std::string name = word.name;
    name.resize(kColumn, ' ');
    help.append("  ").append(name).append(word.about).append("\n");
  }
  return help;
}

void HubFaults::Add(HubFault fault) {
  const std::lock_guard lock(mutex_);
  faults_.push_back(std::move(fault));
}

void HubFaults::Clear() {
  const std::lock_guard lock(mutex_);
  faults_.clear();
}

std::optional<HubFault> HubFaults::StrikeAt(const std::string& request) {
  const std::lock_guard lock(mutex_);
  for (HubFault& fault : faults_) {
    if ((!fault.request.empty() && fault.request != request) || fault.count == 0) continue;
    if (fault.after != 0) {
      --fault.after;
      continue;
    }
    if (fault.count != kAlways) --fault.count;
    return fault;
  }
  return std::nullopt;
}

}  // namespace bthal::sim
