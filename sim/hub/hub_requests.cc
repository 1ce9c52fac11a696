// What the hub does when it is asked, and how it answers.
#include <algorithm>

#include "sim/hub/hub.h"

namespace bthal::sim {
namespace {

// Statuses, as the service's schema numbers them.
constexpr uint8_t kOk = 0;
constexpr uint8_t kOperationFailed = 2;
constexpr uint8_t kBadValue = 9;
constexpr uint8_t kNotReady = 12;

constexpr uint32_t kFragments = 4;
constexpr size_t kBeyondTheService = 80000;

// Quality report of a fragment:
//   0xFF | length | 0x58 | 20 | 0 | last | text
Bytes FragmentEvent(uint32_t number) {
  Bytes event{0xFF, 0, 0x58, 20, 0, static_cast<uint8_t>(number + 1 == kFragments ? 1 : 0)};
  const std::string text = "hub fragment " + std::to_string(number) + "\n";
  event.insert(event.end(), text.begin(), text.end());
  event[1] = static_cast<uint8_t>(event.size() - 2);
  return event;
}

}  // namespace

void Hub::OnMessage(const Bytes& message) {
  const auto request = ParseHubRequest(message);
  if (!request) {
    journal_->Record(WireEvent::kProtocolError, 0, "what came for the hub is no request");
    return;
  }
  // A packet is seen at the controller.
  if (request->kind != "packet") journal_->Record(WireEvent::kHubRequest, message.size(), HubWords(*request));
  const auto fault = faults_.StrikeAt(request->kind);
  if (fault) journal_->Record(WireEvent::kFault, 0, fault->text);
  if (fault && fault->kind == HubFaultKind::kHangUp) return GoAway(Clock::duration(0));
  if (fault && fault->kind == HubFaultKind::kRestart) return GoAway(std::chrono::milliseconds(fault->ms));
  Obey(*request, fault);
}

void Hub::Obey(const HubRequest& request, const std::optional<HubFault>& fault) {
  if (fault && fault->kind == HubFaultKind::kPause) {
    paused_ = true;
    timers_.After(std::chrono::milliseconds(fault->ms), [this] { paused_ = false; });
  }
  if (fault && fault->kind == HubFaultKind::kStatus) {
    Answer(request.id, static_cast<uint8_t>(fault->status), std::nullopt);
  } else if (request.kind == "packet" || request.kind == "batch") {
    SendOut(request, [this, id = request.id, fault](uint8_t status) { Answer(id, status, fault); });
  } else {
    const uint8_t status = Do(request);
    Answer(request.id, status, fault);
    if (request.kind == "dump" && status == kOk) SendDump(fault);
    if (request.kind == "low-power" && status == kOk) Send(HubLowPower(request.on));
  }
}

uint8_t Hub::Do(const HubRequest& request) {
  if (request.kind == "power") {
    powered_ = request.on;
    if (!request.on) uart_.Close();
    return !request.with_pin || uart_.SetPower(request.on) ? kOk : kOperationFailed;
  }
  if (request.kind == "port" && !request.on) {
    uart_.Close();
    return kOk;
  }
  if (request.kind == "port") {
    if (!powered_) return kNotReady;
    return uart_.Open() ? kOk : kOperationFailed;
  }
  if (request.kind == "dump") return kOk;
  if (!uart_.is_open()) return kNotReady;
  if (request.kind == "speed") return uart_.SetSpeed(request.speed) ? kOk : kBadValue;
  uart_.SetLowPower(request.on, Clock::now());
  return kOk;
}

void Hub::SendOut(const HubRequest& request, const Reply& reply) {
  if (!uart_.is_open() || request.bytes.empty()) return reply(uart_.is_open() ? kBadValue : kNotReady);
  uart_.Write(
      request.bytes, [reply] { reply(kOk); }, Clock::now());
}

void Hub::SendDump(const std::optional<HubFault>& fault) {
  std::vector<Bytes> fragments;
  for (uint32_t number = 0; number < kFragments; ++number) {
    fragments.push_back(HubDumpFragment(number, number + 1 == kFragments, FragmentEvent(number)));
  }
  if (fault && fault->kind == HubFaultKind::kShuffle) std::reverse(fragments.begin(), fragments.end());
  if (fault && fault->kind == HubFaultKind::kShorten) fragments.erase(fragments.begin());
  for (Bytes& fragment : fragments) Send(std::move(fragment));
}

void Hub::Answer(uint32_t id, uint8_t status, const std::optional<HubFault>& fault) {
  if (fault) Disturb(*fault);
  if (id == 0 || (fault && fault->kind == HubFaultKind::kNever)) return;
  if (fault && fault->kind == HubFaultKind::kLate) {
    timers_.After(std::chrono::milliseconds(fault->ms), [this, id, status, client = client_number_] {
      if (client == client_number_) Send(HubReply(id, status));
    });
    return;
  }
  Send(HubReply(id, status));
  if (fault && fault->kind == HubFaultKind::kTwice) Send(HubReply(id, status));
}

void Hub::Disturb(const HubFault& fault) {
  constexpr uint8_t kNoType = 0x09;
  constexpr uint8_t kNeither = 7;
  switch (fault.kind) {
    case HubFaultKind::kGarbage:
      return Send(Bytes(64, 0xA5));
    case HubFaultKind::kUnverified: {
      Bytes broken = HubReply(1, kOk);
      broken[1] ^= 0x40;  // of the offset of the table
      return Send(std::move(broken));
    }
    case HubFaultKind::kTooLarge:
      return Send(Bytes(kBeyondTheService));
    case HubFaultKind::kUnknownType:
      return Send(HubPacket(kNoType, {}));
    case HubFaultKind::kBrokenEvent:
      return Send(HubConnection(kNeither));
    case HubFaultKind::kLost:
      Send(HubConnection(kHubLost));
      if (fault.ms == 0) return;
      return timers_.After(std::chrono::milliseconds(fault.ms), [this, client = client_number_] {
        if (client == client_number_) Send(HubConnection(kHubBack));
      });
    default:
      return;
  }
}

}  // namespace bthal::sim
