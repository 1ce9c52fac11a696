// Packets as other programs read them.
#pragma once

#include <cstdint>
#include <string>

#include "bthal/show/snoop/btsnoop_reader.h"

namespace bthal::tool {

// kBtsnoop is what the service writes. kPcap (with the direction in front of each packet) is what programs take that
// read a capture while it grows.
enum class CaptureFormat { kBtsnoop, kPcap };

// btsnoop counts microseconds from 1 January of year 0: so many lie before the Unix epoch.
inline constexpr uint64_t kBtsnoopEpochUs = 0x00DCDDB30F2F8000;

// What the file begins with, and a packet in it. Bytes.
std::string CaptureHeader(CaptureFormat format);
std::string CaptureRecord(CaptureFormat format, const SnoopRecord& record);

}  // namespace bthal::tool
