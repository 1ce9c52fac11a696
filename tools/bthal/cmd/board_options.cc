#include "bthal/cmd/board_options.h"

#include <CLI/CLI.hpp>

#include "sim/controller/faults/faults.h"

namespace bthal::tool {

void AddBoardOptions(CLI::App& sub, sim::BoardOptions* options) {
  // Through an int: as the byte that it is, its default would be printed as a character.
  sub.add_option_function<int>(
         "--chip-id", [options](const int& id) { options->chip_id = static_cast<uint8_t>(id); },
         "the chip's identification")
      ->default_str(std::to_string(options->chip_id))
      ->type_name("0..255")
      ->check(CLI::Range(0, 255).description(""));
  sub.add_flag("--otp-written", options->otp_written, "its one-time memory has been programmed");
  sub.add_option("--local-name", options->local_name, "its name, as the patched firmware tells it")
      ->capture_default_str();
  sub.add_option("--address", options->address, "its own address, until another is written")
      ->type_name("ADDRESS")
      ->capture_default_str();
  sub.add_option("--patch-records", options->patch_records, "records in each patch file")
      ->capture_default_str()
      ->type_name("N")
      ->check(CLI::Range(1, 100000).description(""));
  sub.add_flag("--pace", options->pace, "bytes take the time that they take on a real line");
  sub.add_option("--backend", options->backend, "an H4 controller emulator that answers the standard commands")
      ->type_name("unix:PATH");
  sub.add_option("--fault", options->faults, "something that goes wrong on purpose; may be repeated")
      ->type_name("FAULT")
      ->allow_extra_args(false);
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
