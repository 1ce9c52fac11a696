#include "sim/controller/faults/faults.h"

#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "sim/controller/faults/fault_kinds.h"

namespace bthal::sim {
namespace {

bool ParseNumber(const std::string& text, uint64_t* value) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return false;
  char* end = nullptr;
  errno = 0;
  *value = strtoull(text.c_str(), &end, 0);
  return errno == 0 && *end == '\0';
}

std::vector<std::string> Words(const std::string& text) {
  std::string blanks = text;
  std::replace(blanks.begin(), blanks.end(), ',', ' ');
  std::istringstream stream(blanks);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

bool ParseOpcode(const std::string& text, Fault* fault, std::string* error) {
  for (const CommandName& name : CommandNames()) {
    if (text == name.name) {
      fault->opcode = name.opcode;
      return true;
    }
  }
  uint64_t value = 0;
  if (!ParseNumber(text, &value) || value > 0xFFFF) {
    *error = "'" + text + "' is no opcode; give a number such as 0x0C03, or one of:";
    for (const CommandName& name : CommandNames()) *error += std::string(" ") + name.name;
    return false;
  }
  fault->opcode = static_cast<uint16_t>(value);
  return true;
}

bool ParseKey(const FaultWord& kind, const std::string& key, const std::string& text, Fault* fault,
              std::string* error) {
  if (key == "opcode") return ParseOpcode(text, fault, error);
  if (key == "count" && text == "always") {
    fault->count.reset();
    return true;
  }
  uint64_t value = 0;
  if (!ParseNumber(text, &value)) {
    *error = "'" + text + "' is no number for " + key;
    return false;
  }
  if (key == "count") {
    fault->count = value;
    if (value == 0) *error = "a fault with count=0 never strikes; count is at least 1, or always";
    return value != 0;
  }
  if (key == "after") {
    fault->after = value;
    return true;
  }
  for (const FaultKey& known : kind.keys) {
    if (key != known.name) continue;
    if (value > known.max) {
      *error = std::string(kind.name) + ": " + key + " is at most " + std::to_string(known.max);
      return false;
    }
    fault->keys[key] = value;
    return true;
  }
  *error = std::string(kind.name) + " takes no '" + key + "', but opcode, after, count";
  for (const FaultKey& known : kind.keys) *error += std::string(", ") + known.name;
  return false;
}

bool ParseWord(const FaultWord& kind, const std::string& word, Fault* fault, std::string* error) {
  if (word == "now") {
    fault->now = true;
    return true;
  }
  const size_t equals = word.find('=');
  if (equals == std::string::npos) {
    *error = "'" + word + "' lacks its value: write " + word + "=VALUE";
    return false;
  }
  return ParseKey(kind, word.substr(0, equals), word.substr(equals + 1), fault, error);
}

// Whether the kind is about the answer to a command, so that it cannot strike without one.
bool NeedsCommand(FaultKind kind) {
  return kind == FaultKind::kNoAnswer || kind == FaultKind::kLateAnswer || kind == FaultKind::kWrongStatus ||
         kind == FaultKind::kZeroCredits || kind == FaultKind::kLostByte;
}

}  // namespace

bool ParseFault(const std::string& text, Fault* fault, std::string* error) {
  const std::vector<std::string> words = Words(text);
  if (words.empty()) {
    *error = "a fault begins with its kind, for example no-answer,opcode=reset";
    return false;
  }
  const auto kind =
      std::find_if(FaultWords().begin(), FaultWords().end(), [&](const FaultWord& k) { return words[0] == k.name; });
  if (kind == FaultWords().end()) {
    *error = "no fault is called '" + words[0] + "'; there are:";
    for (const FaultWord& known : FaultWords()) *error += std::string(" ") + known.name;
    return false;
  }
  Fault parsed;
  parsed.kind = kind->kind;
  parsed.text = text;
  for (const FaultKey& key : kind->keys) parsed.keys[key.name] = key.value;
  std::set<std::string> given;
  for (size_t i = 1; i < words.size(); ++i) {
    if (!ParseWord(*kind, words[i], &parsed, error)) return false;
    const std::string key = words[i].substr(0, words[i].find('='));
    if (given.insert(key).second) continue;
    *error = "'" + key + "' is given twice; give it once";
    return false;
  }
  if (parsed.now && NeedsCommand(parsed.kind)) {
    *error = std::string(kind->name) + " is about an answer and cannot strike now, without a command";
    return false;
  }
  *fault = std::move(parsed);
  return true;
}

void Faults::Add(Fault fault) {
  std::erase_if(faults_, [](const Fault& spent) { return spent.count == 0; });
  faults_.push_back(std::move(fault));
}

std::vector<std::string> Faults::InForce() const {
  std::vector<std::string> lines;
  for (const Fault& fault : faults_) {
    if (fault.count == 0) continue;
    std::string line = fault.text + "  strikes ";
    if (!fault.count) {
      line += "always";
    } else {
      line += *fault.count == 1 ? "once" : std::to_string(*fault.count) + " times";
    }
    if (fault.after != 0) line += ", after " + std::to_string(fault.after) + " more";
    lines.push_back(line);
  }
  return lines;
}

std::vector<Fault> Faults::StrikeAt(uint16_t opcode) {
  std::vector<Fault> striking;
  for (Fault& fault : faults_) {
    if (fault.now || (fault.opcode && *fault.opcode != opcode) || fault.count == 0) continue;
    if (fault.after != 0) {
      --fault.after;
      continue;
    }
    if (fault.count) --*fault.count;
    striking.push_back(fault);
  }
  return striking;
}

std::vector<Fault> Faults::StrikeNow() {
  std::vector<Fault> striking;
  for (Fault& fault : faults_) {
    if (!fault.now || fault.count == 0) continue;
    fault.count = 0;
    striking.push_back(fault);
  }
  return striking;
}

}  // namespace bthal::sim
