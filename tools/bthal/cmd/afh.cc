// bthal afh: which channels the controller may use.

#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/call_timeout.h"
#include "bthal/cmd/commands.h"
#include "bthal/hci/hex.h"
#include "bthal/run/extension_clients.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

struct AfhOptions {
  std::string map;
  std::string avoid;
};

int Run(const AfhOptions& options) {
  if (options.map.empty() == options.avoid.empty()) return Complain("afh: expected either a map or --avoid");
  std::string error;
  const std::optional<ChannelMap> map =
      options.map.empty() ? MapWithout(options.avoid, &error) : ParseChannelMap(options.map, &error);
  if (!map || !LeavesEnoughChannels(*map, &error)) return Complain(error);
  if (!SetChannelMap(*map, &error)) return Complain(error);
  printf("channel map %s given\n", Hex(*map).c_str());
  return 0;
}

}  // namespace

void AddAfh(Command& app) {
  auto options = std::make_shared<AfhOptions>();
  Command sub = app.Add("afh", "Tell the controller which of the 79 channels to avoid");
  sub.Take("map", &options->map, "10 bytes in hex, bit n set: channel n may be used");
  sub.Take("--avoid", &options->avoid, "channels to avoid, as 0-10,37; all others may be used").Type("CHANNELS");
  sub.Footer(
      "Bluetooth must be on: some client must have the HAL. At least 20 channels must be left.\n"
      "\nExamples:\n"
      "  bthal afh ffffffffffffffffff7f\n"
      "  bthal afh --avoid 0-21");
  RunWithCallTimeout(sub, [options] { return Run(*options); });
}

}  // namespace bthal::tool
