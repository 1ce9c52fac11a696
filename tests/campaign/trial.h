// One fault at a random moment, and whether the next client is served as if nothing had been.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "campaign/device.h"

namespace bthal::campaign {

enum class Victim { kService, kClient, kBoard };

// SIGSTOP is followed by SIGCONT after a short while.
struct Fault {
  const char* name;
  Victim victim;
  int signal;
};

struct Outcome {
  std::optional<Problem> problem;
  std::string moment;
  int deaths = 0;          // of the service
  milliseconds served{0};  // how long the next client took, from its start to its end
};

class Trial {
 public:
  Trial(Device& device, std::mt19937_64& random, milliseconds limit)
      : device_(device), random_(random), limit_(limit) {}

  Outcome Run(const Fault& fault);

 private:
  // Steps, each of which throws Problem.
  void Begin();
  void Strike(const Fault& fault);
  void EndClient(const Fault& fault);
  void Serve(const Fault& fault);
  void Restart(const Fault& fault, int end);
  void Inspect() const;
  // 0 to `limit` - 1.
  int Below(int limit) { return static_cast<int>(random_() % static_cast<uint64_t>(limit)); }
  pid_t PidOf(Victim victim);

  Device& device_;
  std::mt19937_64& random_;
  const milliseconds limit_;
  tool::Child client_;
  Outcome outcome_;
};

}  // namespace bthal::campaign
