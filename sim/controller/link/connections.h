// Connections, and what crosses them.
#pragma once

#include <map>
#include <optional>

#include "sim/controller/command_table.h"
#include "sim/controller/link/credits.h"
#include "sim/controller/link/device_lists.h"
#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"

namespace bthal::sim {

class Connections {
 public:
  // All outlive it.
  Connections(Outlet* outlet, const Settings* settings, const DeviceLists* lists, const Credits* credits)
      : outlet_(outlet), settings_(settings), lists_(lists), credits_(credits) {}

  void AddTo(CommandTable* table);
  void Reset();
  // A data packet for a connection.
  void Data(uint8_t type, const Bytes& packet);

 private:
  enum class Kind { kClassic, kLowEnergy, kSynchronous };
  struct Connection {
    Bytes peer;
    Kind kind;
  };
  struct Connecting {
    uint8_t peer_type;
    Bytes peer;     // empty: whoever is on the accept list
    bool enhanced;  // how the host asked is how it is told
  };
  using Then = std::function<void(uint16_t handle, const Bytes& parameters)>;

  // connections.cc
  uint16_t NewHandle(const Bytes& peer, Kind kind);
  void Disconnect(uint16_t handle);
  void PeerReceives(uint16_t handle, const Bytes& packet);

  // connect_classic.cc
  void AddClassic(CommandTable* table);
  void ConnectClassic(const Bytes& peer);
  void ConnectSynchronous(uint16_t handle);
  void TellName(const Bytes& peer);

  // connect_le.cc
  void AddLowEnergy(CommandTable* table);
  Answer ConnectLe(Connecting wanted);
  Answer CancelLe();
  void CompleteLe(uint8_t status);

  // link_commands.cc
  void AddQuestions(CommandTable* table);
  void AddLinkSettings(CommandTable* table);
  // Answers by status and then lets `then` happen, if there is such a connection.
  Answer ForConnection(const Bytes& parameters, Then then) const;
  // Answers with status, handle and `more`, or as many zeros if there is no such connection.
  Answer OfConnection(const Bytes& parameters, const Bytes& more) const;

  Outlet* const outlet_;
  const Settings* const settings_;
  const DeviceLists* const lists_;
  const Credits* const credits_;
  std::map<uint16_t, Connection> connections_;
  uint16_t next_handle_ = kFirstHandle;
  std::optional<Connecting> connecting_;
  uint64_t generation_ = 0;  // counts resets: what was begun under an earlier one is over

  static constexpr uint16_t kFirstHandle = 0x0040;
};

}  // namespace bthal::sim
