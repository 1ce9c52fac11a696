#include "bthal/cmd/board_options.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "bthal/cli/command.h"
#include "sim/base/bytes.h"
#include "sim/controller/faults/faults.h"
#include "sim/hub/hub_faults.h"

namespace bthal::tool {
namespace {

constexpr size_t kLongestName = 247;  // as the controller keeps it

bool BackendIsThere(const std::string& backend, std::string* error) {
  constexpr std::string_view kScheme = "unix:";
  struct stat info = {};
  if (!backend.starts_with(kScheme) || backend.size() == kScheme.size()) {
    *error = "--backend is written unix:PATH, not '" + backend + "'";
  } else if (stat(backend.c_str() + kScheme.size(), &info) != 0) {
    *error = "--backend " + backend + ": " + strerror(errno) + "; start the emulator first";
  } else if (!S_ISSOCK(info.st_mode)) {
    *error = "--backend " + backend + ": that is no socket; name the one at which the emulator listens";
  } else {
    return true;
  }
  return false;
}

}  // namespace

void AddBoardOptions(Command& sub, sim::BoardOptions* options) {
  // Through an int: as the byte that it is, its default would be printed as a character.
  sub.Take(
         "--chip-id", [options](int id) { options->chip_id = static_cast<uint8_t>(id); }, "the chip's identification")
      .ShowDefault(std::to_string(options->chip_id))
      .Type("0..255")
      .Within(0, 255);
  sub.Flag("--otp-written", &options->otp_written, "its one-time memory has been programmed");
  sub.Take("--local-name", &options->local_name, "its name, as the patched firmware tells it").ShowDefault();
  sub.Take("--address", &options->address, "its own address, until another is written").Type("ADDRESS").ShowDefault();
  sub.Take("--patch-records", &options->patch_records, "records in each patch file")
      .ShowDefault()
      .Type("N")
      .Within(1, 65535);
  sub.Flag("--hub", &options->hub, "the UART belongs to a sensor hub, and the configuration says so");
  sub.Flag("--pace", &options->pace, "bytes take the time that they take on a real line");
  sub.Take("--backend", &options->backend, "an H4 controller emulator that answers the standard commands")
      .Type("unix:PATH");
  sub.Take("--fault", &options->faults, "something that goes wrong on purpose; may be repeated")
      .Type("FAULT")
      .OneValueEach();
}

bool BoardOptionsAreClear(const sim::BoardOptions& options, std::string* error) {
  if (sim::ParseAddress(options.address).empty()) {
    *error = "--address: '" + options.address + "' is no Bluetooth address; write it as 22:22:5A:01:02:03";
    return false;
  }
  if (options.local_name.size() > kLongestName) {
    *error = "--local-name has " + std::to_string(options.local_name.size()) + " bytes; at most 247 are allowed";
    return false;
  }
  if (!options.backend.empty() && !BackendIsThere(options.backend, error)) return false;
  for (const std::string& text : options.faults) {
    sim::Fault fault;
    sim::HubFault hub_fault;
    const bool at_hub = text.starts_with(sim::kHubFaultPrefix);
    if (at_hub && !options.hub) {
      *error = "--fault " + text + ": there is no sensor hub without --hub";
      return false;
    }
    if (at_hub ? sim::ParseHubFault(text, &hub_fault, error) : sim::ParseFault(text, &fault, error)) continue;
    *error = "--fault " + text + ": " + *error;
    return false;
  }
  return true;
}

}  // namespace bthal::tool
