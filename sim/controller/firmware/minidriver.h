// How a patch is loaded: the minidriver takes its records, and Launch RAM boots it.
#pragma once

#include "sim/base/journal.h"
#include "sim/base/options.h"
#include "sim/controller/chip.h"
#include "sim/controller/command_table.h"
#include "sim/controller/firmware/patch_loader.h"
#include "sim/controller/outlet.h"

namespace bthal::sim {

class Minidriver {
 public:
  // All outlive it.
  Minidriver(const BoardOptions& options, Outlet* outlet, Chip* chip, EventJournal* journal)
      : options_(options), outlet_(outlet), chip_(chip), journal_(journal) {}

  void AddTo(CommandTable* table);
  void Forget();
  // Told of each packet from the host, before it is obeyed.
  void HostGoesOn() { ++packets_; }
  // Whether the minidriver knows the command.
  static bool Takes(uint16_t opcode);
  // Whether it is not answered at all now, be it obeyed or refused.
  bool IsSilent(uint16_t opcode) const;
  // Whether it is answered only when the host then waits.
  bool IsAnsweredWhenIdle(uint16_t opcode) const;

 private:
  // How the loader acknowledges the records of a patch.
  enum class Records { kAnswered, kSilent, kAnsweredWhenIdle };

  Records RecordsAre() const;
  Answer Download();
  Answer Write(const Bytes& parameters);
  Answer Launch(const Bytes& parameters);

  const BoardOptions& options_;
  Outlet* const outlet_;
  Chip* const chip_;
  EventJournal* const journal_;
  PatchLoader loader_;
  bool fast_ = false;
  uint64_t packets_ = 0;
};

}  // namespace bthal::sim
