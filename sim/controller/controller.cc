#include "sim/controller/controller.h"

namespace bthal::sim {
namespace {

constexpr uint32_t kBootSpeed = 115200;

constexpr uint16_t kReset = 0x0C03;
constexpr uint16_t kReadLocalName = 0x0C14;
constexpr uint16_t kReadBdAddr = 0x1009;
constexpr unsigned kVendorGroup = 0x3F;

constexpr uint8_t kCommandCompleteEvent = 0x0E;
constexpr uint8_t kCommandStatusEvent = 0x0F;
constexpr unsigned kOneCredit = 1;

constexpr size_t kCommandHeader = 3;

unsigned Group(uint16_t opcode) { return opcode >> 10; }

JournalEntry PacketEntry(WireEvent event, uint8_t type, const Bytes& packet) {
  JournalEntry entry;
  entry.event = event;
  entry.packet_type = type;
  entry.bytes = packet;
  entry.value = packet.size();
  return entry;
}

}  // namespace

Controller::Controller(const BoardOptions& options, EventJournal* journal, Line* line, Coex* coex, Faults* faults,
                       Backend* emulator)
    : options_(options),
      journal_(journal),
      line_(line),
      coex_(coex),
      faults_(faults),
      emulator_(emulator),
      sleep_(options.falls_asleep_after),
      loopback_(this, &identity_),
      identity_(options),
      vendor_(options, this, this, journal, &identity_),
      standard_(&identity_, &commands_),
      links_(this, &identity_),
      thread_radio_(this, options.thread_echo) {
  vendor_.AddTo(&commands_);
  standard_.AddTo(&commands_);
  links_.AddTo(&commands_);
  loopback_.AddTo(&commands_);
  commands_.Add(kReset, 0, 5, 7, [this](const Bytes&) { return Reset(); });
}

void Controller::SetPower(bool on) {
  const bool changes = on != (state_ != State::kOff);
  journal_->Record(on ? WireEvent::kPowerOn : WireEvent::kPowerOff, changes ? 1 : 0);
  if (!changes) return;
  timers_.Clear();
  decoder_.Reset();
  line_->Drop();
  outstanding_.reset();
  sleep_.Forget();
  vendor_.Forget();
  identity_.Forget();
  thread_radio_.Forget();
  Reset();
  line_->SetSpeed(kBootSpeed);
  state_ = on ? State::kRunning : State::kOff;
  if (on) journal_->Record(WireEvent::kBooted);
}

void Controller::SetWakeLine(bool high) {
  journal_->Record(WireEvent::kWakeLine, high ? 1 : 0);
  sleep_.WakeLine(high, Clock::now());
}

// Forgets what HCI Reset makes a controller forget: everything but speed, patch and sleep mode.
Answer Controller::Reset() {
  standard_.Reset();
  links_.Reset();
  loopback_.Reset();
  return Answer::Complete({kSuccess});
}

bool Controller::Hears(size_t bytes) {
  const Clock::time_point now = Clock::now();
  if (state_ == State::kBooting && now >= boots_at_) FinishBoot();
  const char* why = nullptr;
  if (state_ == State::kOff) why = "the power is off";
  if (state_ == State::kBooting) why = "the firmware is booting";
  if (why == nullptr && sleep_.Asleep(now)) why = "the controller is asleep";
  if (why == nullptr) return true;
  decoder_.Reset();
  journal_->Record(WireEvent::kLostBytes, bytes, why);
  return false;
}

void Controller::Receive(const Bytes& bytes) {
  if (bytes.empty() || !Hears(bytes.size())) return;
  const int bad = decoder_.Feed(bytes, [this](uint8_t type, const Bytes& packet) { OnPacket(type, packet); });
  if (bad < 0) return;
  decoder_.Reset();
  ProtocolError("no packet for a controller begins with " + Hex(static_cast<unsigned>(bad), 2));
}

void Controller::OnPacket(uint8_t type, const Bytes& packet) {
  journal_->Record(PacketEntry(WireEvent::kReceived, type, packet));
  line_->Release();
  vendor_.HostGoesOn();
  if (type == kH4Command) {
    OnCommand(packet);
  } else {
    OnData(type, packet);
  }
}

void Controller::OnData(uint8_t type, const Bytes& packet) {
  if (state_ != State::kRunning) {
    ProtocolError("data comes while a patch is loaded");
  } else if (type == kH4Thread) {
    thread_radio_.Receive(packet);
  } else if (loopback_.on()) {
    loopback_.Data(type, packet);
  } else if (emulator_ != nullptr) {
    if (!emulator_->Forward(type, packet)) ProtocolError("data comes, but the emulator has gone");
  } else {
    links_.Data(type, packet);
  }
}

void Controller::OnCommand(const Bytes& packet) {
  const uint16_t opcode = GetLe16(packet.data());
  // A command that is never answered takes no credit.
  if (outstanding_ && vendor_.IsAnswered(opcode)) {
    ProtocolError("command " + Hex(opcode, 4) + " comes before the answer to " + Hex(*outstanding_, 4));
  }
  const Spoiled spoiled = Strike(opcode);
  if (spoiled.no_answer) return;
  if (vendor_.IsAnswered(opcode)) outstanding_ = opcode;
  if (spoiled.late == Clock::duration::zero()) {
    Execute(opcode, packet, spoiled);
  } else {
    timers_.After(spoiled.late, [this, opcode, packet, spoiled] { Execute(opcode, packet, spoiled); });
  }
}

void Controller::Execute(uint16_t opcode, const Bytes& packet, const Spoiled& spoiled) {
  if (spoiled.status) {
    if (!vendor_.IsSilent(opcode)) Reply(opcode, Refusal(opcode, *spoiled.status), spoiled);
  } else if (state_ == State::kRunning && loopback_.Takes(opcode)) {
    line_->Send({kH4Event, loopback_.Command(packet), [this, opcode] { Settle(opcode); }, spoiled.lost_byte});
  } else if (GoesToEmulator(opcode)) {
    if (opcode == kReset) Reset();
    if (!emulator_->Forward(kH4Command, packet)) Reply(opcode, Refusal(opcode, kHardwareFailure), spoiled);
  } else {
    Reply(opcode, Obey(opcode, Bytes(packet.begin() + kCommandHeader, packet.end())), spoiled);
  }
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
  if (state_ == State::kMinidriver && !VendorCommands::IsForMinidriver(opcode)) {
    ProtocolError("command " + Hex(opcode, 4) + " comes while a patch is loaded");
    return Refusal(opcode, kCommandDisallowed);
  }
  if (command == nullptr) return Refusal(opcode, kUnknownCommand);
  if (parameters.size() < command->min_length || parameters.size() > command->max_length) {
    return Refusal(opcode, kInvalidParameters);
  }
  return command->handler(parameters);
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

void Controller::SendEvent(uint8_t code, const Bytes& parameters) {
  Bytes event{code, static_cast<uint8_t>(parameters.size())};
  PutAll(event, parameters);
  SendPacket(kH4Event, event);
}

void Controller::SendPacket(uint8_t type, const Bytes& packet) {
  if (state_ == State::kOff) return;
  line_->Send({type, packet, {}, {}});
}

void Controller::SendRaw(const Bytes& bytes) {
  if (state_ == State::kOff || bytes.empty()) return;
  line_->Send({0, bytes, {}, {}});
}

void Controller::ProtocolError(const std::string& what) { journal_->Record(WireEvent::kProtocolError, 0, what); }

void Controller::EnterMinidriver() { state_ = State::kMinidriver; }

void Controller::ChangeSpeed(uint32_t speed) {
  line_->SetSpeed(speed);
  // The host now changes its own speed, and loses what comes before it has.
  line_->Hold();
}

void Controller::BootPatch(const std::string& image_name) {
  journal_->Record(WireEvent::kPatchLaunched, 0, image_name);
  state_ = State::kBooting;
  boots_at_ = Clock::now() + options_.patch_boots_in;
  sleep_.Forget();
  Reset();
  ChangeSpeed(kBootSpeed);
  timers_.After(options_.patch_boots_in, [this] { FinishBoot(); });
}

void Controller::FinishBoot() {
  if (state_ != State::kBooting || Clock::now() < boots_at_) return;
  state_ = State::kRunning;
  journal_->Record(WireEvent::kBooted);
}

void Controller::SetSleepMode() {
  journal_->Record(WireEvent::kSleepModeSet);
  sleep_.Set(Clock::now());
}

}  // namespace bthal::sim
