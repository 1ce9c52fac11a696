#include "bthal/cmd/packet_options.h"

#include "bthal/cli/command.h"
#include "bthal/hci/hex.h"

namespace bthal::tool {

void AddTimeOption(Command& sub, TimeStyle* style) {
  sub.Take(
         "--time",
         [style](const std::string& word) { *style = word == "wall" ? TimeStyle::kWall : TimeStyle::kRelative; },
         "the time column: since the beginning, or the time of day")
      .OneOf({"relative", "wall"})
      .ShowDefault(*style == TimeStyle::kWall ? "wall" : "relative")
      .Type("relative|wall");
}

void AddViewOptions(Command& sub, PacketView* view) {
  sub.Flag("-v,--verbose", &view->fields, "show every field of a packet, one a line");
  sub.Flag("-x,--hex", &view->bytes, "show all bytes of a packet also where a terminal's line is too short for them");
}

void AddFilterOptions(Command& sub, FilterWords* words) {
  sub.Take("--since", &words->since, "only from then on: 10s, 5m or 2h ago, HH:MM[:SS], or YYYY-MM-DD HH:MM[:SS]")
      .Type("TIME");
  sub.Take("--kind", &words->kinds, "only packets of this kind; may be repeated")
      .OneOf({"command", "event", "acl", "sco", "iso"})
      .Type("KIND")
      .OneValueEach();
  sub.Take("--opcode", &words->opcode, "only this command, by name or number, and its answers").Type("COMMAND");
  sub.Take("--handle", &words->handle, "only data of this connection, and what names it").Type("HANDLE");
}

std::optional<SnoopFilter> ReadFilter(const FilterWords& words, std::string* error) {
  SnoopFilter filter;
  if (!words.since.empty() && !(filter.since_us = ParseMoment(words.since, UnixMicroseconds()))) {
    *error = "--since: '" + words.since + "' is no time; write 10s, 5m, 09:34, 09:34:23 or '2026-11-21 09:34'";
    return std::nullopt;
  }
  for (const std::string& word : words.kinds) filter.kinds.push_back(ParseKind(word).value_or(0));
  if (!words.opcode.empty() && !(filter.opcode = ParseOpcode(words.opcode))) {
    *error = "--opcode: '" + words.opcode + "' is no command ('bthal hci list' shows them)";
    return std::nullopt;
  }
  constexpr uint64_t kLargestHandle = 0x0FFF;
  const std::optional<uint64_t> handle = ParseNumber(words.handle, kLargestHandle);
  if (!words.handle.empty() && !handle) {
    *error = "--handle: '" + words.handle + "' is no connection handle; it is 0 to 0x0FFF";
    return std::nullopt;
  }
  if (handle) filter.handle = static_cast<uint16_t>(*handle);
  return filter;
}

}  // namespace bthal::tool
