#include "bthal/cmd/board_options.h"

#include "bthal/cli/command.h"
#include "sim/controller/faults/faults.h"

namespace bthal::tool {

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
      .Within(1, 100000);
  sub.Flag("--pace", &options->pace, "bytes take the time that they take on a real line");
  sub.Take("--backend", &options->backend, "an H4 controller emulator that answers the standard commands")
      .Type("unix:PATH");
  sub.Take("--fault", &options->faults, "something that goes wrong on purpose; may be repeated")
      .Type("FAULT")
      .OneValueEach();
}

bool FaultsAreClear(const sim::BoardOptions& options, std::string* error) {
  for (const std::string& text : options.faults) {
    sim::Fault fault;
    if (sim::ParseFault(text, &fault, error)) continue;
    *error = "--fault " + text + ": " + *error;
    return false;
  }
  return true;
}

}  // namespace bthal::tool
