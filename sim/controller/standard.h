// The standard commands about the controller itself: who it is, what it can do, and its settings.
#pragma once

#include <map>

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"

namespace bthal::sim {

class StandardCommands {
 public:
  StandardCommands(Identity* identity, const CommandTable* table) : identity_(identity), table_(table) {}

  void AddTo(CommandTable* table);
  // Back to the defaults, as HCI Reset wants it.
  void Reset();

 private:
  void AddInformation(CommandTable* table);
  void AddSettings(CommandTable* table);
  void AddHostControl(CommandTable* table);
  void AddLeInformation(CommandTable* table);
  Answer LocalName() const;
  Answer ClassifyChannels(const Bytes& parameters);
  Answer ReadExtendedFeatures(const Bytes& parameters) const;

  Identity* const identity_;
  const CommandTable* const table_;
  std::map<uint16_t, Bytes> settings_;  // by the opcode that writes them
};

// Buffers for data from the host.
inline constexpr unsigned kAclLength = 1021;
inline constexpr unsigned kAclBuffers = 8;
inline constexpr unsigned kScoLength = 64;
inline constexpr unsigned kScoBuffers = 8;
inline constexpr unsigned kLeLength = 251;
inline constexpr unsigned kLeBuffers = 8;
inline constexpr unsigned kIsoLength = 960;
inline constexpr unsigned kIsoBuffers = 8;

}  // namespace bthal::sim
