#include "h4/h4_packetizer.h"

#include <utility>

namespace android::hardware::bluetooth::hci {

HciPacketizer::HciPacketizer(HciPacketReadyCallback packet_ready_cb)
    : gathered_(new uint8_t[kLargestHeaderSize + kLargestPayloadSize + kReadAhead]),
      packet_ready_cb_(std::move(packet_ready_cb)) {}

}  // namespace android::hardware::bluetooth::hci
