// Inquiry, scanning, advertising and connections.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "sim/controller/command_table.h"
#include "sim/controller/identity.h"
#include "sim/neighbours/air.h"

namespace bthal::sim {

class Links {
 public:
  Links(Outlet* outlet, Identity* identity) : outlet_(outlet), identity_(identity) {}

  void AddTo(CommandTable* table);
  void Reset();
  // A data packet for a connection.
  void Data(uint8_t type, const Bytes& packet);

 private:
  struct Connection {
    Bytes peer;
    bool low_energy = false;
  };
  struct Connecting {
    uint8_t peer_type;
    Bytes peer;
    bool enhanced;  // how the host asked is how it is told
  };

  // controller_links.cc
  void AddConnectionCommands(CommandTable* table);
  void AddLinkCommands(CommandTable* table);
  Answer Disconnect(const Bytes& parameters);
  Answer ForConnection(const Bytes& parameters, std::function<void(uint16_t handle, const Bytes& parameters)> then);
  void ConnectClassic(const Bytes& peer);
  Answer ConnectLe(Connecting wanted);
  Answer CancelLe();
  void CompleteLe(uint8_t status);
  void PeerReceives(uint16_t handle, const Bytes& packet);
  uint16_t NewHandle() { return next_handle_++; }

  // controller_scan.cc
  void AddInquiryCommands(CommandTable* table);
  void AddScanCommands(CommandTable* table);
  void AddAdvertisingCommands(CommandTable* table);
  void AddListCommands(CommandTable* table);
  void InquiryResults(uint64_t inquiry);
  Answer Scan(bool enable, bool extended, bool once_each);
  void ReportAdvertisers(uint64_t scan);
  void Report(const Neighbour& neighbour);

  Outlet* const outlet_;
  Identity* const identity_;
  std::map<uint16_t, Connection> connections_;
  uint16_t next_handle_ = kFirstHandle;
  std::optional<Connecting> connecting_;
  std::set<Bytes> accept_list_;  // address type and address
  bool extended_scan_ = false;
  bool once_each_ = false;
  std::set<Bytes> reported_;
  uint64_t generation_ = 0;  // counts resets: what was begun under an earlier one is over
  uint64_t runs_ = 0;        // counts inquiries and scans
  uint64_t inquiry_ = 0;     // the run that is the inquiry under way; 0: none
  uint64_t scan_ = 0;        // the same of the scan
  std::set<uint8_t> advertising_sets_;

  static constexpr uint16_t kFirstHandle = 0x0040;
};

}  // namespace bthal::sim
