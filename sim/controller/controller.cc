#include "sim/controller/controller.h"

#include "sim/controller/host_control.h"
#include "sim/controller/information.h"
#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr uint32_t kBootSpeed = 115200;

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
      identity_(options),
      credits_(this, &settings_),
      loopback_(this, &identity_, &credits_),
      minidriver_(options, this, this, journal),
      vendor_(options, this, this, &identity_),
      inquiry_(this, &settings_),
      scanner_(this),
      connections_(this, &settings_, &lists_, &credits_, &identity_, &links_, &memories_),
      link_commands_(this, &settings_, &links_),
      classic_security_(this, &settings_, &links_, &memories_),
      le_security_(this, &links_, &connections_),
      cipher_(this),
      advertiser_(this, &connections_),
      thread_radio_(this) {
  AddInformation(&commands_, &identity_, &settings_);
  AddLeInformation(&commands_);
  AddHostControl(&commands_, &identity_);
  settings_.AddTo(&commands_);
  loopback_.AddTo(&commands_);
  minidriver_.AddTo(&commands_);
  vendor_.AddTo(&commands_);
  inquiry_.AddTo(&commands_);
  scanner_.AddTo(&commands_);
  lists_.AddTo(&commands_);
  connections_.AddTo(&commands_);
  link_commands_.AddTo(&commands_);
  classic_security_.AddTo(&commands_);
  le_security_.AddTo(&commands_);
  cipher_.AddTo(&commands_);
  advertiser_.AddTo(&commands_);
  commands_.Add(kReset, {5, 7}, {}, [this](const Bytes&) {
    Reset();
    return Answer();
  });
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
  minidriver_.Forget();
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
void Controller::Reset() {
  settings_.Reset();
  loopback_.Reset();
  inquiry_.Reset();
  scanner_.Reset();
  advertiser_.Reset();
  lists_.Reset();
  connections_.Reset();
  classic_security_.Reset();
  cipher_.Reset();
}

bool Controller::Hears(size_t bytes) {
  const Clock::time_point now = Clock::now();
  if (state_ == State::kBooting && now >= boots_at_) FinishBoot();
  const char* why = nullptr;
  if (state_ == State::kOff) why = "the power is off";
  if (state_ == State::kBooting) why = "the firmware is booting";
  if (why == nullptr && Asleep(now)) why = "the controller is asleep";
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
  journal_->RecordPacket(WireEvent::kReceived, type, packet);
  line_->Release();
  minidriver_.HostGoesOn();
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
    connections_.Data(type, packet);
  }
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
  vendor_.Forget();
  identity_.Patch();
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

std::string Controller::StateLines() const {
  static constexpr const char* kDoes[] = {"off", "on", "on, takes a patch", "on, boots its patch"};
  const char* sleep = !sleep_.set() ? "mode not set" : Asleep(Clock::now()) ? "asleep" : "mode set, awake";
  return std::string("controller  ") + kDoes[static_cast<size_t>(state_)] + "\n" +  //
         "speed       " + std::to_string(line_->speed()) + " bit/s\n" + "sleep       " + sleep + "\n";
}

}  // namespace bthal::sim
