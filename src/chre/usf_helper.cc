#define LOG_TAG "bthal.usf"

#include "chre/usf_helper.h"

#include <errno.h>

#include <utility>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "debug_central/debug_central.h"
#include "os/error_text.h"

namespace android::hardware::bluetooth::hci {
namespace {

using hub::Refusal;
using std::chrono::milliseconds;

// How long the hub may take to answer, and to take a message.
constexpr auto kAnswerTime = milliseconds(2000);
constexpr auto kBatchTime = milliseconds(5000);
constexpr auto kSendTime = milliseconds(5000);
constexpr auto kDumpTime = milliseconds(1000);
constexpr char kPacketRequest[] = "HCI packet";

constexpr std::atomic<bool> kNever{false};

// Quality report of a dump fragment:
//   0xFF | length | 0x58 | report id | fragment
constexpr uint8_t kQualityReport = 0x58;
constexpr uint8_t kChreDumpReport = 20;
bool IsDumpFragment(std::span<const uint8_t> event) {
  return event.size() >= 4 && event.size() == size_t{2} + event[1] && event[0] == kVendorSpecificEvent &&
         event[2] == kQualityReport && event[3] == kChreDumpReport;
}

std::string Text(const Refusal& refusal) {
  return ::android::base::StringPrintf("sensor hub: %s failed with 0x%02X", refusal.request,
                                       static_cast<unsigned>(refusal.kind));
}

void Report(BqrErrorCode kind, const std::string& text) { DebugCentral::Get().ReportBqrError(kind, text); }

// For those who may not wait for the end: the connection's thread, which the crash dump still needs, and senders, whose
// lock the client may need to hear of it.
void ReportAside(BqrErrorCode kind, const std::string& text) { DebugCentral::Get().ReportAside(kind, text); }

void ReportAside(const std::optional<Refusal>& refusal) {
  if (refusal) ReportAside(refusal->kind, Text(*refusal));
}

}  // namespace

UsfHelper& UsfHelper::Get() {
  static auto& helper = *new UsfHelper;
  return helper;
}

UsfHelper::UsfHelper()
    : connection_({.on_message = [this](const hub::FromHub& message) { OnMessage(message); },
                   .on_lost = [this] { requests_.Suspend(); },
                   .on_back = [this](bool renewed) { OnBack(renewed); },
                   .on_dead = [this] { OnDead(); },
                   .on_tick = [this] { OnTick(); }}) {}

bool UsfHelper::PrepareUsfTransport() {
  if (connection_.Establish()) return true;
  LOG(ERROR) << __func__ << ": the sensor hub is not connected";
  Report(BqrErrorCode::kChreUsfTransportPrepareError, "the sensor hub is not connected");
  return false;
}

void UsfHelper::PrepareUsfTransportAsync() { connection_.EstablishInBackground(); }

std::optional<Refusal> UsfHelper::Ask(const char* request, milliseconds patience, const Encode& encode) {
  const uint32_t id = requests_.Add(request, patience, true);
  const hub::Encoded message = encode(id);
  if (connection_.Send({message.data(), message.size()}, patience, kNever)) return requests_.Await(id);
  requests_.Forget(id);
  LOG(ERROR) << request << ": the sensor hub does not take it: " << os::ErrorText();
  return Refusal{request, errno == ETIMEDOUT ? BqrErrorCode::kChreUsfOperationTimedOutError
                                             : BqrErrorCode::kChreUsfServiceNotAvailableError};
}

bool UsfHelper::Demand(const char* request, bool waits, const Encode& encode) {
  if (!(waits ? connection_.AwaitUp(kNever) : connection_.IsUp())) {
    LOG(ERROR) << request << ": refused, the sensor hub is not connected";
    return false;
  }
  const std::optional<Refusal> refusal = Ask(request, kAnswerTime, encode);
  if (!refusal) return true;
  Report(refusal->kind, Text(*refusal));
  return false;
}

bool UsfHelper::PowerControl(bool on, bool control_pin) {
  return Demand(on ? "power on" : "power off", on, [&](uint32_t id) { return hub::EncodePower(id, on, control_pin); });
}

bool UsfHelper::UserialOpen(bool open) {
  if (!open) port_open_ = false;
  if (!Demand(open ? "open port" : "close port", open, [&](uint32_t id) { return hub::EncodePort(id, open); }))
    return false;
  port_open_ = open;
  return true;
}

// Nobody is told to wake a link that is about to lose the mode: the flag goes down before the hub is asked.
bool UsfHelper::LpmEnable(bool enable) {
  if (!enable && !lpm_enabled_.exchange(false)) return true;
  const char* const request = enable ? "low-power mode on" : "low-power mode off";
  if (!Demand(request, enable, [&](uint32_t id) { return hub::EncodeLowPower(id, enable); })) return false;
  lpm_enabled_ = enable;
  return true;
}

bool UsfHelper::BaudrateChange(UartBaudRate rate) {
  return Demand("speed", true, [&](uint32_t id) { return hub::EncodeSpeed(id, rate); });
}

size_t UsfHelper::SendHciToUsf(uint8_t type, const uint8_t* data, size_t length, bool ack_required) {
  if (line_taken_ || !port_open_ || !connection_.AwaitUp(line_taken_)) return 0;
  const uint32_t id = ack_required ? requests_.Add(kPacketRequest, kAnswerTime, false) : 0;
  if (ack_required) connection_.Tick();
  const hub::Encoded message = hub::EncodePacket(id, type, {data, length});
  if (connection_.Send({message.data(), message.size()}, kSendTime, line_taken_)) return length + 1;
  const int error = errno;
  if (ack_required) requests_.Forget(id);
  if (error == ETIMEDOUT) ReportAside(Refusal{kPacketRequest, BqrErrorCode::kChreUsfOperationTimedOutError});
  return 0;
}

size_t UsfHelper::SendHciBatchToUsf(const uint8_t* data, size_t length, bool) {
  if (line_taken_ || !port_open_ || !connection_.AwaitUp(line_taken_)) return 0;
  const auto refusal = Ask("batch", kBatchTime, [&](uint32_t id) { return hub::EncodeBatch(id, {data, length}); });
  ReportAside(refusal);
  return refusal ? 0 : length;
}

void UsfHelper::InitializeCallback(const Consumers& consumers) {
  line_taken_ = false;
  delivery_.Attach(consumers);
}

bool UsfHelper::StartReceiving(const std::weak_ptr<const void>& receiver) { return delivery_.Start(receiver); }

void UsfHelper::TakeLineAway(milliseconds patience) {
  line_taken_ = true;
  delivery_.TakeAway(patience);
}

void UsfHelper::DeinitializeCallback() { TakeLineAway(milliseconds(0)); }

void UsfHelper::Deinitialize() {
  TakeLineAway(milliseconds(0));
  connection_.GiveUp();
  requests_.FailAll(BqrErrorCode::kChreUsfOperationCanceledError);
  port_open_ = false;
  lpm_enabled_ = false;
}

bool UsfHelper::GetChreDebugDump() {
  if (!connection_.IsUp() || !dump_.Begin()) return false;
  bool complete = false;
  const auto refusal = Ask("debug dump", kDumpTime, hub::EncodeDebugDump);
  const hub::HubDump::Events events = dump_.Collect(refusal ? milliseconds(0) : kDumpTime, &complete);
  for (const auto& [number, event] : events) DebugCentral::Get().HandleVendorEvent(HciPacket(event));
  if (!complete) {
    LOG(ERROR) << __func__ << ": the sensor hub's debug dump is not whole: " << events.size() << " fragments came"
               << (refusal ? "; " + Text(*refusal) : "");
  }
  return complete;
}

uint64_t UsfHelper::DroppedMessages() const {
  return delivery_.Dropped() + connection_.Nonsense() + requests_.StrayReplies() + stray_fragments_;
}

void UsfHelper::OnMessage(const hub::FromHub& message) {
  if (const auto* packet = std::get_if<hub::ReceivedPacket>(&message)) {
    // Behind a consumer that does not take them the hub is not read: no time passes for what it may have answered.
    const bool full = delivery_.IsFull();
    if (full) requests_.Suspend();
    delivery_.Add(packet->type, packet->bytes);
    if (full) requests_.Resume();
  } else if (const auto* reply = std::get_if<hub::Reply>(&message)) {
    ReportAside(requests_.OnReply(reply->id, reply->status));
  } else if (const auto* state = std::get_if<hub::LowPowerState>(&message)) {
    lpm_enabled_ = state->enabled;
  } else if (const auto* fragment = std::get_if<hub::DumpFragment>(&message)) {
    if (!IsDumpFragment(fragment->event)) {
      ++stray_fragments_;
    } else if (!dump_.Add(*fragment)) {
      delivery_.Add(static_cast<uint8_t>(HciPacketType::kEvent), fragment->event);
    }
  } else if (const auto* unknown = std::get_if<hub::UnknownType>(&message)) {
    ReportAside(BqrErrorCode::kChreUsfUnimplementedPacketTypeError,
                ::android::base::StringPrintf("sensor hub: packet type 0x%02X", unknown->kind));
  } else if (std::holds_alternative<hub::BrokenConnectionEvent>(message)) {
    ReportAside(BqrErrorCode::kChreUsfHandleConnectionEventError, "sensor hub: broken connection event");
  }
}

// What was under way on the old connection has gone with it, and with that perhaps half a packet for the controller: it
// has to be brought up anew.
void UsfHelper::OnBack(bool renewed) {
  if (!renewed) {
    requests_.Resume();
    return;
  }
  EndLine(BqrErrorCode::kChreUsfOperationCanceledError, "sensor hub: the connection is another one");
}

void UsfHelper::OnDead() {
  EndLine(BqrErrorCode::kChreUsfServiceNotAvailableError, "sensor hub: the transport is dead");
}

// The report first: whoever fails for want of the line would have one of its own.
void UsfHelper::EndLine(BqrErrorCode kind, const char* text) {
  if (port_open_) ReportAside(kind, text);
  port_open_ = false;
  requests_.FailAll(kind);
}

void UsfHelper::OnTick() {
  ReportAside(requests_.Overdue());
  if (requests_.HasUnawaited()) return;
  connection_.NoMoreTicks();
  // One may have been sent meanwhile.
  if (requests_.HasUnawaited()) connection_.Tick();
}

}  // namespace android::hardware::bluetooth::hci
