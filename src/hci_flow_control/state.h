// What the two halves of the flow control share: sending, and the events.
#pragma once

#include <cstdint>

#include "hci/hci_packet.h"
#include "os/fair_mutex.h"

namespace android::hardware::bluetooth::hci {

inline constexpr uint8_t kCommandType = static_cast<uint8_t>(HciPacketType::kCommand);

// Taken by every operation of every instance, and held across transport writes and watcher calls. Not recursive. Fair:
// a command gets its turn while another thread sends data without pause.
extern os::FairMutex flow_control_mutex;

}  // namespace android::hardware::bluetooth::hci
