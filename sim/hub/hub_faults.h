// What goes wrong at the hub on purpose, and how people say so.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace bthal::sim {

enum class HubFaultKind {
  kStatus,       // the request is not done, and answered so
  kLate,         // the reply comes `ms` later
  kTwice,        // the reply comes twice
  kNever,        // the request is done, and not answered
  kHangUp,       // the hub hangs up instead of obeying
  kRestart,      // the same, and it is away for `ms`
  kPause,        // nothing is read from the service for `ms`
  kGarbage,      // before the reply: bytes that are no table,
  kUnverified,   //   a table with a broken offset,
  kTooLarge,     //   a message beyond what the service takes,
  kUnknownType,  //   a packet of a type that there is not,
  kLost,         //   "connection lost", and "back" after `ms` (0: never),
  kBrokenEvent,  //   a connection event that is neither,
  kShuffle,      // dump fragments in reverse order
  kShorten,      // dump fragments without the first
};

struct HubFault {
  HubFaultKind kind{};
  std::string text;
  std::string request;  // as HubWords has it: strikes at this request only; empty: at any
  uint64_t after = 0;   // lets this many such requests pass first
  uint64_t count = 1;   // strikes so many times; 0: struck its last
  uint64_t status = 2;
  uint64_t ms = 300;
};

inline constexpr char kHubFaultPrefix[] = "hub-";

// Understands KIND[,KEY=VALUE]..., a kind beginning with "hub-". False with the reason in `error`.
bool ParseHubFault(const std::string& text, HubFault* fault, std::string* error);
std::string HubFaultHelp();

// The faults in force. Any thread.
class HubFaults {
 public:
  void Add(HubFault fault);
  void Clear();
  // The one that strikes at this request, if any; it has then struck once more.
  std::optional<HubFault> StrikeAt(const std::string& request);

 private:
  std::mutex mutex_;
  std::vector<HubFault> faults_;
};

}  // namespace bthal::sim
