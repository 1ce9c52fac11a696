// bthal decode: one packet, or a whole log, in words.
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/cmd/packet_options.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/tell_packet.h"
#include "bthal/hci/words.h"
#include "bthal/show/packet_line.h"
#include "bthal/show/snoop/snoop_follower.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

struct DecodeOptions {
  std::vector<std::string> words;
  std::string as;
  LogView view;
  FilterWords filter;
};

std::optional<ToldPacket> Told(const std::string& as, std::span<const uint8_t> bytes) {
  for (const uint8_t kind : {kCommand, kEvent, kAclData, kScoData, kIsoData}) {
    if (KindWord(kind) == as) return ToldPacket{kind, bytes};
  }
  return TellPacket(bytes);
}

bool IsFile(const std::string& path) {
  struct stat info = {};
  return stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
}

int DecodeLog(const std::string& path, const LogView& view, const SnoopFilter& filter) {
  size_t malformed = 0;
  LogPrinter printer(view);
  const auto show = [&](const SnoopRecord& record) {
    if (!filter.Takes(record)) return;
    printer.Print(record);
    const bool whole = record.original_length == record.packet.size() + 1;
    malformed += whole && !PacketProblem(record.kind, record.packet).empty() ? 1 : 0;
  };
  SnoopFollower follower(path);
  std::string error;
  if (!follower.Poll(show, &error)) return Complain(error);
  if (follower.Cut()) return Complain(path + " ends within a record");
  if (malformed == 0) return 0;
  return Complain(path + ": " + std::to_string(malformed) + " malformed packet" + (malformed == 1 ? "" : "s"));
}

// It is all that was asked for: what is too wide is broken, not cut.
void ShowPacket(const ToldPacket& packet, const PacketView& view) {
  const std::string line =
      ::android::base::StringPrintf("%-7s  ", KindWord(packet.kind).c_str()) + PacketWords(packet.kind, packet.bytes);
  printf("%s\n", Folded(line, 9).c_str());
  if (view.bytes) printf("%s", HexLines(packet.bytes).c_str());
  if (view.fields) printf("%s", FieldLines(packet.kind, packet.bytes).c_str());
}

int DecodePacket(const DecodeOptions& options) {
  const std::string text = ::android::base::Join(options.words, ' ');
  const std::optional<std::vector<uint8_t>> bytes = ParseHex(text);
  if (!bytes) return Complain("'" + text + "' is neither a file nor pairs of hex digits");
  const std::optional<ToldPacket> told = Told(options.as, *bytes);
  if (!told) return Complain("these bytes begin neither with a packet type nor as a packet; --as says what they are");
  if (options.view.json) {
    printf("%s\n", PacketJson(nullptr, told->kind, told->bytes).c_str());
  } else {
    ShowPacket(*told, options.view.packets);
  }
  const std::string problem = PacketProblem(told->kind, told->bytes);
  return problem.empty() ? 0 : Complain("malformed: " + problem);
}

int Run(const DecodeOptions& options) {
  const bool log = options.words.size() == 1 && IsFile(options.words[0]);
  if (!log) return DecodePacket(options);
  std::string error;
  const std::optional<SnoopFilter> filter = ReadFilter(options.filter, &error);
  return filter ? DecodeLog(options.words[0], options.view, *filter) : Complain(error);
}

}  // namespace

void AddDecode(Command& app) {
  auto options = std::make_shared<DecodeOptions>();
  Command sub = app.Add("decode", "Put a packet, or all of a log, into words");
  sub.Take("what", &options->words, "a packet's bytes in hex, or a btsnoop file").Type("HEX|FILE").Required();
  sub.Take("--as", &options->as, "what the bytes are, which then have no H4 type byte")
      .OneOf({"command", "event", "acl", "sco", "iso"});
  AddViewOptions(sub, &options->view.packets);
  AddTimeOption(sub, &options->view.time);
  sub.Flag("--json", &options->view.json, "one JSON object a packet, with all bytes");
  AddFilterOptions(sub, &options->filter);
  sub.Footer(
      "Without --as the first byte is the H4 type (01 command, 02 ACL, 03 SCO, 04 event, 05 ISO) if a whole packet\n"
      "follows it; else the bytes are an event, or a command, whichever is whole. A malformed packet is shown as far\n"
      "as it goes; the exit status is then 1, and what is wrong is on standard error.\n"
      "\nExamples:\n"
      "  bthal decode 0e 04 01 03 0c 00\n"
      "  bthal decode -v 04 3e 0c 02 01 00 01 01 02 03 04 05 c6 00 c4\n"
      "  bthal decode -v saved.log");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
