#include "sim/controller/emulator_address.h"

#include <errno.h>
#include <poll.h>

#include "sim/base/timers.h"
#include "sim/controller/codes.h"
#include "sim/controller/opcodes.h"
#include "sim/wire/h4.h"

namespace bthal::sim {
namespace {

constexpr auto kPatience = std::chrono::seconds(5);

//   event | length | credits | opcode, 16 bits | status | address
Bytes AddressIn(uint8_t type, const Bytes& packet) {
  constexpr size_t kSize = 12;
  const bool answers = type == kH4Event && packet.size() == kSize && packet[0] == kCommandCompleteEvent &&
                       GetLe16(&packet[3]) == kReadBdAddr && packet[5] == kSuccess;
  return answers ? Part(packet, 6) : Bytes();
}

bool AwaitReadable(int fd, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd readable{fd, POLLIN, 0};
  return left.count() > 0 && TEMP_FAILURE_RETRY(poll(&readable, 1, static_cast<int>(left.count()))) > 0;
}

}  // namespace

Bytes AskEmulatorsAddress(Backend* emulator, std::string* error) {
  const auto deadline = Clock::now() + kPatience;
  Bytes command;
  Put16(command, kReadBdAddr);
  Put8(command, 0);
  emulator->Forward(kH4Command, command);
  Bytes address;
  while (address.empty() && emulator->fd() >= 0 && AwaitReadable(emulator->fd(), deadline)) {
    emulator->Serve([&](uint8_t type, const Bytes& packet) {
      if (address.empty()) address = AddressIn(type, packet);
    });
  }
  if (address.empty()) {
    *error = emulator->fd() >= 0 ? "the emulator does not tell its address" : "the emulator hangs up at once";
  }
  return address;
}

}  // namespace bthal::sim
