// What the virtual board has seen, asked for as tests do.
#pragma once

#include "sim/board.h"
#include "support/test.h"

namespace bthal::test {

using sim::Board;
using sim::JournalEntry;
using sim::WireEvent;

// The texts of all entries of this kind; how many there are; whether there come to be so many.
inline std::vector<std::string> Texts(const Board& board, WireEvent event) {
  std::vector<std::string> texts;
  for (const JournalEntry& entry : board.Journal()) {
    if (entry.event == event) texts.push_back(entry.text);
  }
  return texts;
}
inline size_t Count(const Board& board, WireEvent event) { return Texts(board, event).size(); }
inline size_t Count(const Board& board, WireEvent event, uint64_t value) {
  return static_cast<size_t>(std::ranges::count_if(
      board.Journal(), [&](const JournalEntry& entry) { return entry.event == event && entry.value == value; }));
}
inline bool Await(const Board& board, WireEvent event, size_t count = 1) {
  const auto enough = [&](const std::vector<JournalEntry>& journal) {
    return std::ranges::count(journal, event, &JournalEntry::event) >= static_cast<ptrdiff_t>(count);
  };
  return board.WaitFor(enough, seconds(20));
}

// Whether the controller comes to be without power.
inline bool GoesOff(const Board& board) {
  const auto is_off = [](const std::vector<JournalEntry>& journal) {
    const auto last = std::ranges::find_if(journal.rbegin(), journal.rend(), [](const JournalEntry& entry) {
      return entry.event == WireEvent::kPowerOn || entry.event == WireEvent::kPowerOff;
    });
    return last == journal.rend() || last->event == WireEvent::kPowerOff;
  };
  return board.WaitFor(is_off, seconds(20));
}

// Whether the board comes to get this packet.
inline bool Receives(const Board& board, uint8_t type, const Bytes& packet) {
  const auto is_it = [&](const JournalEntry& entry) {
    return entry.event == WireEvent::kReceived && entry.packet_type == type && entry.bytes == packet;
  };
  const auto received = [&](const std::vector<JournalEntry>& journal) { return std::ranges::any_of(journal, is_it); };
  return board.WaitFor(received, seconds(20));
}

}  // namespace bthal::test
