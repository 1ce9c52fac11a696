// The sensor hub: between the service's socket and the UART to the controller, with queues of its own.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "sim/base/fd.h"
#include "sim/base/journal.h"
#include "sim/base/tasks.h"
#include "sim/base/timers.h"
#include "sim/hub/hub_faults.h"
#include "sim/hub/hub_messages.h"
#include "sim/hub/hub_uart.h"
#include "sim/nodes/guardian.h"

namespace bthal::sim {

// Below the device root.
inline constexpr char kHubSocket[] = "/run/bthal/sensor-hub";

// Plays on a thread of its own, as the hub is a processor of its own: to the board it is the host at the other end of
// the UART. It has one client; a later one takes its place.
class Hub {
 public:
  Hub(const std::string& root, EventJournal* journal, const Guardian* guardian)
      : root_(root), journal_(journal), guardian_(guardian), uart_(root) {}
  Hub(const Hub&) = delete;
  Hub& operator=(const Hub&) = delete;
  ~Hub() { Stop(); }

  // False with the reason in `error`.
  bool Start(std::string* error);
  void Stop();

  HubFaults& faults() { return faults_; }
  // Hangs up, forgets everything but the power, and is away for so long. Any thread.
  void Restart(Clock::duration away);

 private:
  using Reply = std::function<void(uint8_t status)>;

  // hub.cc
  bool Listen(std::string* error);
  void Run();
  void Wait();
  void Accept();
  void ReadClient();
  void FlushClient();
  void DropClient();
  void GoAway(Clock::duration away);
  void Send(Bytes message);
  bool MayReadClient() const;
  bool MayReadUart() const;

  // hub_requests.cc
  void OnMessage(const Bytes& message);
  void Obey(const HubRequest& request, const std::optional<HubFault>& fault);
  uint8_t Do(const HubRequest& request);
  void SendOut(const HubRequest& request, const Reply& reply);
  void SendDump(const std::optional<HubFault>& fault);
  void Answer(uint32_t id, uint8_t status, const std::optional<HubFault>& fault);
  void Disturb(const HubFault& fault);

  const std::string root_;
  EventJournal* const journal_;
  const Guardian* const guardian_;
  HubUart uart_;
  HubFaults faults_;
  Tasks tasks_;
  Timers timers_;
  Fd listener_;
  Fd client_;
  uint64_t client_number_ = 0;  // what was promised to an earlier one is not kept to a later
  std::deque<Bytes> to_client_;
  bool blocked_ = false;  // the client has not read what it was sent
  bool paused_ = false;
  bool powered_ = false;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace bthal::sim
