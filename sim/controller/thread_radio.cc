#include "sim/controller/thread_radio.h"

#include "sim/wire/h4.h"

namespace bthal::sim {
namespace {

constexpr size_t kHeader = 4;
constexpr size_t kEnoughWaits = 65536;
constexpr auto kPause = std::chrono::milliseconds(1);

}  // namespace

void ThreadRadio::Receive(const Bytes& frame) {
  if (frame[0] != 0 || frame[1] != 0) outlet_->ProtocolError("a Thread frame does not begin with two zero bytes");
  Send(Part(frame, kHeader));
}

void ThreadRadio::Send(const Bytes& payload) {
  Bytes frame{0, 0};
  Put16(frame, static_cast<unsigned>(payload.size()));
  PutAll(frame, payload);
  outlet_->SendPacket(kH4Thread, frame);
}

Bytes ThreadRadio::Payload(uint32_t number, uint16_t min_size, uint16_t max_size) {
  const size_t sizes = max_size > min_size ? max_size - min_size + 1u : 1u;
  // A step that meets every size before it repeats one, unless it divides their number.
  const size_t size = min_size + number * 7919ull % sizes;
  Bytes payload;
  Put32(payload, number);
  while (payload.size() < size) Put8(payload, (number + payload.size()) & 0xFF);
  payload.resize(size);
  return payload;
}

void ThreadRadio::Stream(uint32_t count, uint16_t min_size, uint16_t max_size) {
  const bool idle = number_ == count_;
  number_ = 0;
  count_ = count;
  min_size_ = min_size;
  max_size_ = max_size;
  if (idle) Go();
}

void ThreadRadio::Go() {
  while (number_ < count_ && outlet_->Waiting() < kEnoughWaits) Send(Payload(number_++, min_size_, max_size_));
  if (number_ < count_) outlet_->timers().After(kPause, [this] { Go(); });
}

}  // namespace bthal::sim
