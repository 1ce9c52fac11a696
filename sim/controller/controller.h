// The Bluetooth controller.
#pragma once

#include <optional>
#include <string>

#include "sim/base/journal.h"
#include "sim/base/options.h"
#include "sim/controller/chip.h"
#include "sim/controller/cipher.h"
#include "sim/controller/command_table.h"
#include "sim/controller/faults/faults.h"
#include "sim/controller/firmware/minidriver.h"
#include "sim/controller/identity.h"
#include "sim/controller/link/advertiser.h"
#include "sim/controller/link/connections.h"
#include "sim/controller/link/credits.h"
#include "sim/controller/link/device_lists.h"
#include "sim/controller/link/inquiry.h"
#include "sim/controller/link/link_commands.h"
#include "sim/controller/link/links.h"
#include "sim/controller/link/scanner.h"
#include "sim/controller/link/security_classic.h"
#include "sim/controller/link/security_le.h"
#include "sim/controller/loopback.h"
#include "sim/controller/outlet.h"
#include "sim/controller/settings.h"
#include "sim/controller/sleep.h"
#include "sim/controller/thread_radio.h"
#include "sim/controller/vendor_commands.h"
#include "sim/nodes/coex.h"
#include "sim/wire/backend.h"
#include "sim/wire/h4.h"
#include "sim/wire/line.h"

namespace bthal::sim {

// Everything happens on the board's thread.
class Controller final : public Outlet, private Chip {
 public:
  // All pointers outlive the controller; `emulator` may be null.
  Controller(const BoardOptions& options, EventJournal* journal, Line* line, Coex* coex, Faults* faults,
             Backend* emulator);

  // Before anything else: whose commands the emulator obeys has the emulator's address.
  void FixAddress(const Bytes& address) { identity_.Fix(address); }
  void SetPower(bool on);
  void SetWakeLine(bool high);
  // What the host sent.
  void Receive(const Bytes& bytes);
  // What the emulator sent.
  void ReceiveFromEmulator(uint8_t type, Bytes packet);
  // Sends as the controller's own, when the power is on.
  void SendRaw(const Bytes& bytes);
  // Lets faults strike that wait for nothing.
  void StrikeNow();
  // What it does, its speed and whether it sleeps, for people: a line each.
  std::string StateLines() const;
  ThreadRadio& thread_radio() { return thread_radio_; }

  // Outlet
  void SendEvent(uint8_t code, const Bytes& parameters) override;
  void SendPacket(uint8_t type, const Bytes& packet) override;
  size_t Waiting() const override { return line_->Waiting(); }
  void ProtocolError(const std::string& what) override;
  Timers& timers() override { return timers_; }

 private:
  enum class State { kOff, kRunning, kMinidriver, kBooting };

  // What faults do to the answer of one command.
  struct Spoiled {
    bool no_answer = false;
    std::optional<uint8_t> status;
    Clock::duration late{};
    bool no_credit = false;
    Clock::duration credit_after{};
    std::optional<size_t> lost_byte;
  };

  // controller.cc
  bool Asleep(Clock::time_point now) const { return sleep_.Asleep(now, line_->Waiting() != 0 ? now : line_->spoke()); }
  bool Hears(size_t bytes);
  void OnPacket(uint8_t type, const Bytes& packet);
  void OnData(uint8_t type, const Bytes& packet);
  void Reset();

  // command_flow.cc
  void OnCommand(const Bytes& packet);
  void Execute(uint16_t opcode, const Bytes& packet, const Spoiled& spoiled);
  Answer Obey(uint16_t opcode, const Bytes& parameters);
  Answer Refusal(uint16_t opcode, uint8_t status) const;
  bool IsSilent(uint16_t opcode) const;
  bool IsAnsweredAtOnce(uint16_t opcode) const;
  bool GoesToEmulator(uint16_t opcode) const;
  void Reply(uint16_t opcode, Answer answer, const Spoiled& spoiled);
  void GrantCredit();
  void Settle(uint16_t opcode);

  // strikes.cc
  Spoiled Strike(uint16_t opcode);
  void Strike(const Fault& fault, Spoiled* spoiled);
  void SendFragments(const Fault& fault);

  // Chip
  bool InMinidriver() const override { return state_ == State::kMinidriver; }
  void EnterMinidriver() override;
  void BootPatch(const std::string& image_name) override;
  void ChangeSpeed(uint32_t speed) override;
  void SetSleepMode() override;
  void FinishBoot();

  const BoardOptions& options_;
  EventJournal* const journal_;
  Line* const line_;
  Coex* const coex_;
  Faults* const faults_;
  Backend* const emulator_;

  Timers timers_;
  H4Decoder decoder_;
  Sleep sleep_;
  CommandTable commands_;
  Identity identity_;
  Settings settings_;
  Credits credits_;
  Loopback loopback_;
  Minidriver minidriver_;
  VendorCommands vendor_;
  Inquiry inquiry_;
  Scanner scanner_;
  DeviceLists lists_;
  Links links_;
  Memories memories_;  // what the neighbours remember
  Connections connections_;
  LinkCommands link_commands_;
  ClassicSecurity classic_security_;
  LeSecurity le_security_;
  Cipher cipher_;
  Advertiser advertiser_;
  ThreadRadio thread_radio_;

  State state_ = State::kOff;
  Clock::time_point boots_at_{};
  std::optional<uint16_t> outstanding_;  // a command whose answer is still to come
};

}  // namespace bthal::sim
