// The single gate for HCI traffic to the controller, and the event watchers.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "h4/h4_protocol.h"
#include "hci/hci_event_watcher.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {

// Lets one HCI command be outstanding at a time and shows every event to the watchers before the stack. One instance
// per open transport, owned by the channel, which keeps it alive while it delivers an event; its lock and its halted
// flag are process-wide. The lock is held across transport writes and watcher calls on purpose: that is what keeps
// packets of one sender in order and watchers alive while called. An event that nobody watches and that frees no
// command does not wait for it, and so not for a write. An instance that has a successor behaves as halted. All
// operations may be called from any thread, but from no watcher.
class HciFlowControl : public std::enable_shared_from_this<HciFlowControl> {
 public:
  // How many commands may wait behind each other. Nobody who listens to the controller comes near it; who goes on
  // sending to one that has fallen silent must not eat the memory.
  static constexpr size_t kMaxQueuedCommands = 8192;
  // How many frames are kept for the next commands.
  static constexpr size_t kKeptFrames = 8;

  // Connects the consumers to the path. They run without the lock. `owner` is the path's.
  explicit HciFlowControl(const Consumers& consumers, const H4Owner& owner = {});
  HciFlowControl(const HciFlowControl&) = delete;
  HciFlowControl& operator=(const HciFlowControl&) = delete;
  ~HciFlowControl();

  // Sends one packet of any HciPacketType (`type` is its H4 code; `data` is copied or written before the call returns).
  // A command behind an outstanding one is queued and `length` returned at once; otherwise returns what the transport
  // wrote. 0 when halted, and for a command that finds kMaxQueuedCommands before it.
  size_t Send(uint8_t type, const uint8_t* data, size_t length);

  // Sends one packet straight to the transport, also a command: its completion matches nothing in the queue.
  size_t SendNoAck(uint8_t type, const uint8_t* data, size_t length);

  // Sends H4 command packets laid end to end (type 1, opcode 2, length L, L bytes), as one batch where the transport
  // takes batches, else one by one. Returns `length`, the transport's own count, or 0 when halted or empty. A batch
  // whose packets do not add up is cut off at the packet that does not fit, with an error in the log; the bytes before
  // it are then what is returned.
  size_t SendBatch(const uint8_t* data, size_t length);

  // From now on sends and watcher changes are refused; watchers that wait for an answer are told. Events go on to the
  // stack. Undone only by the construction of a new instance.
  static void Halt();

  // `watcher` is not owned; see HciEventWatcher. Registering twice keeps one entry.
  void RegisterEventWatcher(HciEventWatcher* watcher);
  void UnregisterEventWatcher(HciEventWatcher* watcher);

  // Forgets the outstanding command and the queue: the controller has lost its power and will answer none of them.
  void DropPendingCommands();

  // Packets, and whole batches, that this process has refused: halted, or too many in the queue. Any thread.
  static uint64_t RefusedSends();

  // The receive path of every event; receive thread.
  void OnHciEventReady(const HciPacket& event, const Consumers& consumers);

 private:
  struct HciCmdFrame {
    std::vector<uint8_t> bytes;
    bool sent = false;
  };

  bool Refuses(const char* operation) const;
  bool RefusesToSend(const char* operation) const;
  bool RefusesToQueue() const;
  // A frame behind the others; one that was finished is used again, so that commands cost no memory in the long run.
  HciCmdFrame& Queue(const uint8_t* data, size_t length);
  void FinishFront();
  size_t SendOneByOne(const uint8_t* data, size_t length);

  bool HciEventPreProcess(const HciPacket& event);
  bool ShowToWatchers(const HciPacket& event, uint16_t opcode);
  void HciEventPostProcess(const HciPacket& event);
  // False when the outstanding command is another one and stays.
  bool FinishOutstanding(uint16_t opcode, const HciPacket& event);
  void SendNext();

  std::list<HciCmdFrame> cmd_queue_;
  std::list<HciCmdFrame> finished_;  // at most kKeptFrames
  std::vector<HciEventWatcher*> event_watchers_;
  std::array<std::atomic<bool>, 256> watched_codes_{};  // those of event_watchers_; read without the lock
  bool send_batch_fallback_ = false;
};

// How components hold the flow control beyond one call: the transport may go away under them, and a dead handle then
// behaves as none. Lock it for the length of one use.
using HciHandle = std::weak_ptr<HciFlowControl>;

// The handle of a flow control owned by the channel; an empty one for null.
inline HciHandle MakeHandle(HciFlowControl* flow) { return flow == nullptr ? HciHandle() : flow->weak_from_this(); }

}  // namespace android::hardware::bluetooth::hci
