// What a host asks about, or of, a connection that is there.
#pragma once

#include "sim/controller/command_table.h"
#include "sim/controller/link/links.h"
#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"

namespace bthal::sim {

class LinkCommands {
 public:
  // All outlive it.
  LinkCommands(Outlet* outlet, const Settings* settings, Links* links)
      : outlet_(outlet), settings_(settings), links_(links) {}

  void AddTo(CommandTable* table);

 private:
  // link_commands.cc
  void AddQuestions(CommandTable* table);
  void AddQuestionsToPeer(CommandTable* table);
  void AddLe(CommandTable* table);
  void AddLeTimes(CommandTable* table);
  Answer Clock(const Bytes& parameters);

  // link_policy.cc
  void AddPolicy(CommandTable* table);
  void AddModes(CommandTable* table);
  void AddRoles(CommandTable* table);
  Answer ChangeMode(const Bytes& parameters, uint8_t mode);

  Outlet* const outlet_;
  const Settings* const settings_;
  Links* const links_;
};

}  // namespace bthal::sim
