// bthal afh: which channels the controller may use.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

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
  if (!map) return Complain(error);
  if (!SetChannelMap(*map, &error)) return Complain(error);
  printf("channel map %s given\n", Hex(*map).c_str());
  return 0;
}

}  // namespace

void AddAfh(CLI::App& app, int* status) {
  auto options = std::make_shared<AfhOptions>();
  CLI::App* sub = app.add_subcommand("afh", "Tell the controller which of the 79 channels to avoid");
  sub->add_option("map", options->map, "10 bytes in hex, bit n set: channel n may be used");
  sub->add_option("--avoid", options->avoid, "channels to avoid, as 0-10,37; all others may be used")
      ->type_name("CHANNELS");
  sub->footer(
      "Bluetooth must be on: some client must have the HAL.\n"
      "\nExamples:\n"
      "  bthal afh ffffffffffffffffff7f\n"
      "  bthal afh --avoid 0-21");
  sub->callback([options, status] { *status = Run(*options); });
}

}  // namespace bthal::tool
