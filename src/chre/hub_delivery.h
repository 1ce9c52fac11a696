// What the hub has received for the service, handed to its consumers on a thread of its own: a consumer that does not
// return keeps no reply back.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci::hub {

// Attach, Start and TakeAway come from bring-up and teardown, TakeAway also from a consumer; Add from the thread that
// reads from the hub.
class HubDelivery {
 public:
  // Packets are kept for these consumers from here on, in place of any others.
  void Attach(const Consumers& consumers);
  // Delivers, keeping `receiver` alive while its consumers are called; nothing is delivered once it has gone. False
  // when nothing is attached or the system has no thread.
  bool Start(const std::weak_ptr<const void>& receiver);
  // Nobody takes packets any more; what is still kept is dropped and counted. Waits for `patience` until the consumer
  // that is being called has returned, unless the caller is that consumer.
  void TakeAway(std::chrono::milliseconds patience);

  // Keeps one packet. Behind kMaxKept bytes that nobody has taken yet it waits: then the hub is not read any more, and
  // keeps its packets itself. Without consumers it is dropped and counted.
  void Add(uint8_t type, std::span<const uint8_t> packet);
  // Whether Add would wait.
  bool IsFull() const;
  uint64_t Dropped() const;

 private:
  struct Run;

  static constexpr size_t kMaxKept = size_t{256} * 1024;

  std::shared_ptr<Run> Current() const;

  mutable std::mutex mutex_;  // a leaf; guards what follows
  std::shared_ptr<Run> run_;
  uint64_t dropped_ = 0;
};

}  // namespace android::hardware::bluetooth::hci::hub
