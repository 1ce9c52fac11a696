#include "bthal/board_options.h"

#include <CLI/CLI.hpp>

#include "sim/faults.h"

namespace bthal::tool {

void AddBoardOptions(CLI::App& sub, sim::BoardOptions* options) {
  sub.add_option("--chip-id", options->chip_id, "the chip's identification")
      ->capture_default_str()
      ->type_name("0..255")
      ->check(CLI::Range(0, 255));
  sub.add_flag("--otp-written", options->otp_written, "its one-time memory has been programmed");
  sub.add_option("--local-name", options->local_name, "its name, as the patched firmware tells it")
      ->capture_default_str();
  sub.add_option("--address", options->address, "its own address, until another is written")->capture_default_str();
  sub.add_option("--patch-records", options->patch_records, "records in each patch file")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  sub.add_flag("--pace", options->pace, "bytes take the time that they take on a real line");
  sub.add_option("--backend", options->backend, "unix:PATH of an H4 controller emulator for the standard commands");
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
