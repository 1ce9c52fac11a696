// The stack's side of the HAL: what a client of android.hardware.bluetooth does.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bthal::tool {

struct ReceivedPacket {
  uint8_t kind = 0;  // H4 type byte
  std::vector<uint8_t> bytes;
};

// One client. Every failing call leaves one line in `error`. Methods are called from one thread; packets arrive on
// Binder threads.
class HciClient {
 public:
  // Called on Binder threads, before the client's methods show it. Must not call the client.
  struct Observer {
    std::function<void(const ReceivedPacket&)> on_packet;
    std::function<void()> on_death;  // of the service
    bool keep_packets = true;        // for Take
  };

  explicit HciClient(Observer observer);
  HciClient(const HciClient&) = delete;
  HciClient& operator=(const HciClient&) = delete;
  ~HciClient();  // closes the HAL if it is initialised

  // Waits for the service to be published. To be called again after its death.
  bool Connect(std::chrono::milliseconds patience, std::string* error);
  // Calls initialize and waits for its result, which must be success.
  bool Initialize(std::chrono::milliseconds patience, std::string* error);
  bool Close(std::string* error);
  // Sends one packet without H4 type byte: command, ACL, SCO or ISO data.
  bool Send(uint8_t kind, const std::vector<uint8_t>& packet, std::string* error);

  // Takes the first packet since the last Forget for which `wanted` holds, and leaves the others. Nothing when none has
  // come within `patience`, when the service has died, or when the user interrupts.
  std::optional<ReceivedPacket> Take(const std::function<bool(const ReceivedPacket&)>& wanted,
                                     std::chrono::milliseconds patience);
  void Forget();

  bool initialized() const { return initialized_; }
  bool ServiceDied() const;
  // After a call that failed: whether the service has died, of which the observer has heard by then. Waits for the
  // notice of a death that there is.
  bool AwaitDeath();
  // Whether Initialize has failed because the service died while this client waited for it, without a word: it died of
  // somebody else's trouble, and its successor may serve.
  bool died_unheard() const { return died_unheard_; }

 private:
  class Inbox;
  class Callbacks;
  class Service;

  const Observer observer_;
  std::shared_ptr<Inbox> inbox_;  // one for each connection
  std::unique_ptr<Service> service_;
  bool initialized_ = false;
  bool died_unheard_ = false;
};

// The service's report.
bool DumpService(std::string* report, std::string* error);

}  // namespace bthal::tool
