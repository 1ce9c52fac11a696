// A client of the HAL that lends the controller to a host stack of this machine.
#pragma once

#include <android-base/unique_fd.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "bthal/bridge/backend.h"
#include "bthal/bridge/ledger.h"
#include "bthal/bridge/outbox.h"
#include "bthal/run/binder_client.h"
#include "bthal/run/hal_claim.h"
#include "bthal/run/line_relay.h"
#include "bthal/show/packet_line.h"

namespace bthal::tool {

struct BridgeOptions {
  bool once = false;       // end with the first peer, or the service, that goes
  bool verbose = false;    // show every packet
  bool take_over = false;  // end a client of ours that has the HAL
};

// The HAL is taken first, then the backend is opened. Whatever ends, the backend is closed first: a host stack never
// talks to a controller that is not there. Packets go down on the calling thread and up on one of their own; the
// service's callbacks only put them into the outbox, so that a peer that does not read stops nobody.
class Bridge {
 public:
  // On the main thread, after CatchInterrupts, before any other thread exists: SIGUSR1 asks for a report from now on.
  Bridge(std::unique_ptr<Backend> backend, const BridgeOptions& options);
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  // Serves one peer after the other, over as many lives of the service as there are, until a signal comes. The
  // program's exit status.
  int Run();

 private:
  enum class End { kSignal, kServiceGone, kPeerGone, kFailed };

  End ServeService();
  End ServePeers();
  bool TakeHal(std::string* error);
  bool FindService();
  void GiveHalBack();

  End ServePeer(Peer peer);
  End PumpDown(const Peer& peer);
  void PumpUp(const Peer& peer);
  bool WriteUp(const Peer& peer, std::span<const uint8_t> bytes);
  void Forward(uint8_t kind, std::span<const uint8_t> packet);
  // The peer is sent away, for that reason. Any thread.
  void GiveUp(const std::string& why);
  std::string reason() const;

  void OnPacket(const ReceivedPacket& packet);
  // Returns nothing once `fd` is readable, else what has ended first. Prints reports that are asked for, and, while
  // `serving`, sends other peers away.
  std::optional<End> AwaitReadable(int fd, bool serving);
  void Alarm() const;
  void Silence() const;

  std::string Time() const;
  void Say(const std::string& line);
  void SayPacket(Direction direction, uint8_t kind, std::span<const uint8_t> packet);
  void Tell(const std::string& what);
  void SayReport();

  const std::unique_ptr<Backend> backend_;
  const BridgeOptions options_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const ::android::base::unique_fd asked_;  // readable when a report is asked for
  const ::android::base::unique_fd alarm_;  // readable once the service has died, or the peer is given up
  ::android::base::unique_fd enough_;       // readable once the thread that writes up is to end
  mutable std::mutex reason_mutex_;
  std::string reason_;         // why the peer is given up
  std::string service_error_;  // the service did not take a packet
  Ledger ledger_;
  Outbox outbox_;
  LineRelay out_;
  HalClaim claim_;
  HciClient client_;  // last: its threads use the members above
};

}  // namespace bthal::tool
