// What the virtual board saw, in words.
#pragma once

#include <chrono>
#include <string>

#include "sim/board.h"

namespace bthal::tool {

// One line without a time: packets as everywhere else, the rest as ". power     on".
std::string JournalWords(const sim::JournalEntry& entry);

// "   0.123": seconds since `start`, in the width of all our time columns.
std::string Elapsed(std::chrono::steady_clock::time_point start, std::chrono::steady_clock::time_point now);

// ". name      text": a line of something else than a packet, in the packets' columns.
std::string Note(const std::string& name, const std::string& text);

}  // namespace bthal::tool
