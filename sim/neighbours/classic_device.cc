#include "sim/neighbours/classic_device.h"

#include "sim/neighbours/service_records.h"

namespace bthal::sim {
namespace {

constexpr uint16_t kSignalling = 1;
constexpr uint16_t kServiceRecords = 0x0001;  // the service, by which the others are found

// Commands of the signalling channel; the answer to one is one more.
constexpr uint8_t kReject = 0x01;
constexpr uint8_t kConnect = 0x02;
constexpr uint8_t kConfigure = 0x04;
constexpr uint8_t kDisconnect = 0x06;
constexpr uint8_t kEcho = 0x08;
constexpr uint8_t kInform = 0x0A;

// What a command carries at least.
size_t LeastSize(uint8_t code) {
  switch (code) {
    case kConnect:
    case kConfigure:
    case kDisconnect:
      return 4;
    case kInform:
      return 2;
    default:
      return 0;
  }
}

}  // namespace

void ClassicDevice::Receive(uint16_t channel, const Bytes& payload) {
  if (channel == kSignalling) {
    constexpr size_t kHeader = 4;
    // Several commands may share a frame.
    for (Bytes rest = payload; rest.size() >= kHeader;) {
      const size_t size = kHeader + GetLe16(&rest[2]);
      if (size > rest.size()) return;
      Signal(Part(rest, 0, size));
      rest = Part(rest, size);
    }
    return;
  }
  const auto open = channels_.find(channel);
  if (open == channels_.end()) return;
  const bool echoes = open->second.service == kEchoService;
  const Bytes answer = echoes ? payload : ServiceRecordsAnswer(payload);
  if (!answer.empty()) link_.send(open->second.hosts, answer);
}

//   code | identifier | length, 16 bits | data
void ClassicDevice::Signal(const Bytes& command) {
  const uint8_t code = command[0];
  const uint8_t identifier = command[1];
  const Bytes data = Part(command, 4);
  const bool whole = data.size() >= LeastSize(code);
  if (code == kConnect && whole) {
    Connect(identifier, GetLe16(data.data()), GetLe16(&data[2]));
  } else if (code == kConfigure && whole) {
    Configure(identifier, data);
  } else if (code == kDisconnect && whole) {
    Disconnect(identifier, data);
  } else if (code == kEcho) {
    Answer(kEcho + 1, identifier, data);
  } else if (code == kInform && whole) {
    Inform(identifier, GetLe16(data.data()));
  } else if (code != kReject && (code & 1) == 0) {
    Answer(kReject, identifier, {0, 0});  // not understood
  }
}

void ClassicDevice::Answer(uint8_t code, uint8_t identifier, const Bytes& data) {
  Bytes command{code, identifier};
  Put16(command, static_cast<unsigned>(data.size()));
  PutAll(command, data);
  link_.send(kSignalling, command);
}

// The first channel that is free; 0 if none is.
uint16_t ClassicDevice::FreeChannel() const {
  constexpr uint16_t kFirst = 0x0040;
  constexpr uint16_t kLast = 0x004F;
  for (uint16_t channel = kFirst; channel <= kLast; ++channel) {
    if (channels_.count(channel) == 0) return channel;
  }
  return 0;
}

//   this end's channel | the host's | result | status, 16 bits each; then this end asks for nothing but the defaults
void ClassicDevice::Connect(uint8_t identifier, uint16_t service, uint16_t hosts) {
  constexpr uint16_t kOpen = 0x0000;
  constexpr uint16_t kNoSuchService = 0x0002;
  constexpr uint16_t kNoRoom = 0x0004;
  const bool known = service == kServiceRecords || service == kEchoService;
  const uint16_t own = known ? FreeChannel() : uint16_t{0};
  const uint16_t result = own != 0 ? kOpen : known ? kNoRoom : kNoSuchService;
  Bytes answer;
  for (const uint16_t value : {own, hosts, result, uint16_t{0}}) Put16(answer, value);
  Answer(kConnect + 1, identifier, answer);
  if (result != kOpen) return;
  channels_[own] = {hosts, service};
  Bytes request;
  Put16(request, hosts);
  Put16(request, 0);
  Answer(kConfigure, next_identifier_++, request);
}

//   channel | flags | options; what the host asks for is taken as it is
void ClassicDevice::Configure(uint8_t identifier, const Bytes& data) {
  const auto open = channels_.find(GetLe16(data.data()));
  if (open == channels_.end()) return Answer(kReject, identifier, {2, 0, data[0], data[1], 0, 0});
  Bytes answer;
  for (const uint16_t value : {open->second.hosts, GetLe16(&data[2]), uint16_t{0}}) Put16(answer, value);
  Answer(kConfigure + 1, identifier, answer);
}

//   this end's channel | the host's
void ClassicDevice::Disconnect(uint8_t identifier, const Bytes& data) {
  if (channels_.erase(GetLe16(data.data())) == 0) return Answer(kReject, identifier, {2, 0, data[0], data[1], 0, 0});
  Answer(kDisconnect + 1, identifier, data);
}

//   type | result | what is told
void ClassicDevice::Inform(uint8_t identifier, uint16_t type) {
  constexpr uint16_t kFeatures = 2;
  constexpr uint16_t kFixedChannels = 3;
  constexpr unsigned kFixedChannelsFeature = 0x80;
  constexpr unsigned kSignallingOnly = 0x02;
  const bool known = type == kFeatures || type == kFixedChannels;
  Bytes answer;
  Put16(answer, type);
  Put16(answer, known ? 0 : 1);
  if (type == kFeatures) Put32(answer, kFixedChannelsFeature);
  if (type == kFixedChannels) {
    Put32(answer, kSignallingOnly);
    Put32(answer, 0);
  }
  Answer(kInform + 1, identifier, answer);
}

}  // namespace bthal::sim
