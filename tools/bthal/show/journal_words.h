// What the virtual board saw, in words.
#pragma once

#include <chrono>
#include <string>

#include "bthal/show/packet_line.h"
#include "sim/board.h"

namespace bthal::tool {

// Packets as everywhere else, the rest as "* power    on"; behind `time`, all lines with their ends.
std::string JournalText(const PacketView& view, const std::string& time, const sim::JournalEntry& entry);

// "   0.123": seconds since `start`, in the width of all our time columns.
std::string Elapsed(std::chrono::steady_clock::time_point start, std::chrono::steady_clock::time_point now);

// "* name      text": a line of something else than a packet, in the packets' columns.
std::string Note(const std::string& name, const std::string& text);

}  // namespace bthal::tool
