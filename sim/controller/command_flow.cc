// How commands are taken, obeyed and answered.
#include "sim/controller/controller.h"
#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr unsigned kOneCredit = 1;
constexpr size_t kCommandHeader = 3;

unsigned Group(uint16_t opcode) { return opcode >> 10; }

}  // namespace

void Controller::OnCommand(const Bytes& packet) {
  const uint16_t opcode = GetLe16(packet.data());
  // A command that is never answered takes no credit.
  if (outstanding_ && IsAnsweredAtOnce(opcode)) {
    ProtocolError("command " + Hex(opcode, 4) + " comes before the answer to " + Hex(*outstanding_, 4));
  }
  const Spoiled spoiled = Strike(opcode);
  if (spoiled.no_answer) return;
  if (IsAnsweredAtOnce(opcode)) outstanding_ = opcode;
  if (spoiled.late == Clock::duration::zero()) {
    Execute(opcode, packet, spoiled);
  } else {
    timers_.After(spoiled.late, [this, opcode, packet, spoiled] { Execute(opcode, packet, spoiled); });
  }
}

void Controller::Execute(uint16_t opcode, const Bytes& packet, const Spoiled& spoiled) {
  if (spoiled.status) {
    if (!IsSilent(opcode)) Reply(opcode, Refusal(opcode, *spoiled.status), spoiled);
  } else if (state_ == State::kRunning && loopback_.Takes(opcode)) {
    line_->Send({kH4Event, loopback_.Command(packet), [this, opcode] { Settle(opcode); }, spoiled.lost_byte});
  } else if (GoesToEmulator(opcode)) {
    if (opcode == kReset) Reset();
    if (!emulator_->Forward(kH4Command, packet)) Reply(opcode, Refusal(opcode, kHardwareFailure), spoiled);
  } else {
    Reply(opcode, Obey(opcode, Part(packet, kCommandHeader)), spoiled);
  }
}

// No answer to it is to be expected, be it obeyed or refused.
bool Controller::IsSilent(uint16_t opcode) const { return opcode == kDebugInformation || minidriver_.IsSilent(opcode); }

bool Controller::IsAnsweredAtOnce(uint16_t opcode) const {
  return !IsSilent(opcode) && !minidriver_.IsAnsweredWhenIdle(opcode);
}

bool Controller::GoesToEmulator(uint16_t opcode) const {
  // Name and address are the board's settings, whoever plays the rest.
  return emulator_ != nullptr && state_ == State::kRunning && Group(opcode) != kVendorGroup &&
         opcode != kReadLocalName && opcode != kReadBdAddr;
}

Answer Controller::Refusal(uint16_t opcode, uint8_t status) const {
  const Command* command = commands_.Find(opcode);
  return command != nullptr && command->by_status ? Answer::Status(status) : Answer::Complete({status});
}

Answer Controller::Obey(uint16_t opcode, const Bytes& parameters) {
  const Command* command = commands_.Find(opcode);
  if (state_ == State::kMinidriver && !Minidriver::Takes(opcode)) {
    ProtocolError("command " + Hex(opcode, 4) + " comes while a patch is loaded");
    return Refusal(opcode, kCommandDisallowed);
  }
  if (command == nullptr) return Refusal(opcode, kUnknownCommand);
  return command->form.Fits(parameters) ? command->handler(parameters) : Refusal(opcode, kInvalidParameters);
}

//   Command Complete:  credits | opcode | return parameters
//   Command Status:    status | credits | opcode
void Controller::Reply(uint16_t opcode, Answer answer, const Spoiled& spoiled) {
  const unsigned credits = spoiled.no_credit ? 0 : kOneCredit;
  Bytes event;
  switch (answer.kind) {
    case Answer::Kind::kNone:
      Settle(opcode);
      if (answer.then) answer.then();
      return;
    case Answer::Kind::kComplete:
      Put8(event, kCommandCompleteEvent);
      Put8(event, static_cast<unsigned>(3 + answer.parameters.size()));
      Put8(event, credits);
      Put16(event, opcode);
      PutAll(event, answer.parameters);
      break;
    case Answer::Kind::kStatus:
      event = {kCommandStatusEvent, 4, answer.parameters[0]};
      Put8(event, credits);
      Put16(event, opcode);
      break;
  }
  line_->Send({kH4Event, std::move(event),
               [this, opcode, sent = std::move(answer.sent)] {
                 Settle(opcode);
                 if (sent) sent();
               },
               spoiled.lost_byte});
  if (answer.then) answer.then();
  if (spoiled.no_credit && spoiled.credit_after != Clock::duration::zero()) {
    timers_.After(spoiled.credit_after, [this] { GrantCredit(); });
  }
}

void Controller::GrantCredit() {
  constexpr unsigned kNoCommand = 0x0000;
  Bytes parameters{kOneCredit};
  Put16(parameters, kNoCommand);
  SendEvent(kCommandCompleteEvent, parameters);
}

void Controller::Settle(uint16_t opcode) {
  if (outstanding_ == opcode) outstanding_.reset();
}

void Controller::ReceiveFromEmulator(uint8_t type, Bytes packet) {
  if (state_ != State::kRunning) return;
  uint16_t opcode = 0;
  // We grant one credit at a time, whatever the emulator grants.
  if (type == kH4Event && packet.size() >= 5 && packet[0] == kCommandCompleteEvent) {
    opcode = GetLe16(&packet[3]);
    packet[2] = packet[2] == 0 ? 0 : kOneCredit;
  } else if (type == kH4Event && packet.size() >= 6 && packet[0] == kCommandStatusEvent) {
    opcode = GetLe16(&packet[4]);
    packet[3] = packet[3] == 0 ? 0 : kOneCredit;
  }
  line_->Send({type, std::move(packet), [this, opcode] { Settle(opcode); }, {}});
}

}  // namespace bthal::sim
