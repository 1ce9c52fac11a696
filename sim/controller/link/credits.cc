#include "sim/controller/link/credits.h"

#include "sim/controller/opcodes.h"
#include "sim/wire/h4.h"

namespace bthal::sim {

//   how many handles | handle | how many packets
void Credits::Return(uint8_t type, uint16_t handle) const {
  if (type == kH4Sco && settings_->Value(kWriteSynchronousFlowControl)[0] == 0) return;
  Bytes completed{1};
  Put16(completed, handle);
  Put16(completed, 1);
  outlet_->SendEvent(kCompletedPacketsEvent, completed);
}

}  // namespace bthal::sim
