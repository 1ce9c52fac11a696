#include "bthal/show/journal_words.h"

#include <android-base/stringprintf.h>

#include "bthal/hci/hex.h"
#include "bthal/show/packet_line.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {

using ::android::base::StringPrintf;
using sim::JournalEntry;
using sim::WireEvent;

namespace {

std::string NoteOf(const JournalEntry& entry) {
  const auto number = static_cast<unsigned long long>(entry.value);
  switch (entry.event) {
    case WireEvent::kPowerOn:
      return Note("power", "on");
    case WireEvent::kPowerOff:
      return Note("power", "off");
    case WireEvent::kHostSpeed:
      return Note("host", StringPrintf("set its side to %llu bit/s", number));
    case WireEvent::kSpeed:
      return Note("chip", StringPrintf("talks at %llu bit/s", number));
    case WireEvent::kReceived:
    case WireEvent::kSent:
      break;
    case WireEvent::kLostBytes:
      return Note("lost", StringPrintf("%llu bytes: %s", number, entry.text.c_str()));
    case WireEvent::kProtocolError:
      return Note("error", entry.text);
    case WireEvent::kWakeLine:
      return Note("wake", entry.value != 0 ? "line up" : "line down");
    case WireEvent::kLpmDriver:
      return Note("lpm", entry.value != 0 ? "driver on" : "driver off");
    case WireEvent::kWakeLock:
      return Note("lock", "acquired " + entry.text);
    case WireEvent::kWakeUnlock:
      return Note("lock", "released " + entry.text);
    case WireEvent::kUartDebug:
      return Note("uart", "control node: " + entry.text);
    case WireEvent::kCoexMessage:
      return Note("coex", "driver got " + Hex(entry.bytes));
    case WireEvent::kPatchRecord:
      return Note("patch", StringPrintf("record %llu of %llu", number, static_cast<unsigned long long>(entry.total)));
    case WireEvent::kPatchLaunched:
      return Note("patch", "launched");
    case WireEvent::kBooted:
      return Note("chip", "answers from now on");
    case WireEvent::kSleepModeSet:
      return Note("chip", "sleep mode set");
    case WireEvent::kFault:
      return Note("fault", entry.text);
    case WireEvent::kHubRequest:
      return Note("hub", entry.text);
  }
  return Note("board", sim::ToString(entry.event));
}

Colour ColourOf(WireEvent event) {
  if (event == WireEvent::kLostBytes || event == WireEvent::kProtocolError) return Colour::kBad;
  return event == WireEvent::kFault ? Colour::kWarn : Colour::kPlain;
}

}  // namespace

std::string Elapsed(std::chrono::steady_clock::time_point start, std::chrono::steady_clock::time_point now) {
  return StringPrintf("%8.3f", std::chrono::duration<double>(now - start).count());
}

std::string Note(const std::string& name, const std::string& text) {
  return StringPrintf("* %-7s  %s", name.c_str(), text.c_str());
}

std::string JournalText(const PacketView& view, const std::string& time, const JournalEntry& entry) {
  if (entry.event == WireEvent::kReceived || entry.event == WireEvent::kSent) {
    const bool received = entry.event == WireEvent::kReceived;
    return PacketText(view, time, received ? Direction::kToController : Direction::kFromController, entry.packet_type,
                      entry.bytes);
  }
  constexpr size_t kNoteWords = 11;
  const std::string line = time + NoteOf(entry);
  const std::string text = view.to_file ? line : Folded(line, time.size() + kNoteWords);
  return time + Paint(ColourOf(entry.event), text.substr(time.size())) + "\n";
}

}  // namespace bthal::tool
