// How long a bring-up takes at the line's real pace, beside its floor: the pauses that the controller is owed, and the
// time that the bytes spend on the wire.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bthal/run/process.h"
#include "sim/board.h"
#include "support/figures.h"

namespace {

using bthal::sim::Board;
using bthal::sim::JournalEntry;
using bthal::sim::WireEvent;
using Seconds = std::chrono::duration<double>;

constexpr char kServiceProgram[] = SERVICE_PROGRAM;
// A patch of the usual size: some 250 bytes a record.
constexpr size_t kPatchRecords = 800;
constexpr uint16_t kSetSleepMode = 0xFC27;

// After the port opens; for the minidriver to start; for the patch to boot; for the woken controller before the last
// command.
constexpr Seconds kPauses = std::chrono::milliseconds(50 + 50 + 250 + 10);

constexpr double kBitsPerByte = 10;  // with start and stop bit

struct BringUp {
  Seconds took{};
  Seconds wire{};
};

bool IsAnswerTo(const JournalEntry& entry, uint16_t opcode) {
  return entry.event == WireEvent::kSent && entry.bytes.size() > 5 && entry.bytes[0] == 0x0E &&
         (entry.bytes[3] | entry.bytes[4] << 8) == opcode;
}

bool IsUp(const std::vector<JournalEntry>& journal) {
  return std::any_of(journal.begin(), journal.end(),
                     [](const JournalEntry& entry) { return IsAnswerTo(entry, kSetSleepMode); });
}

// From the power switch to the answer to the last command.
BringUp Measure(const std::vector<JournalEntry>& journal) {
  BringUp result;
  double bits_per_second = 115200;
  const auto on = std::find_if(journal.begin(), journal.end(),
                               [](const JournalEntry& entry) { return entry.event == WireEvent::kPowerOn; });
  for (auto entry = on; entry != journal.end(); ++entry) {
    if (entry->event == WireEvent::kSpeed) bits_per_second = static_cast<double>(entry->value);
    if (entry->event == WireEvent::kReceived || entry->event == WireEvent::kSent) {
      result.wire += Seconds(static_cast<double>(entry->value + 1) * kBitsPerByte / bits_per_second);
    }
    if (IsAnswerTo(*entry, kSetSleepMode)) {
      result.took = entry->time - on->time;
      break;
    }
  }
  return result;
}

void BM_BringUp(benchmark::State& state) {
  for (auto _ : state) {
    std::string root = (std::filesystem::temp_directory_path() / "bthal-bench-XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr) return state.SkipWithError("no folder for the device root");
    bthal::sim::BoardOptions options;
    options.root = root;
    options.pace = true;
    options.patch_records = kPatchRecords;
    BringUp result;
    {
      Board board(options);
      std::string error;
      if (!board.Start(&error)) return state.SkipWithError(error.c_str());
      bthal::tool::SpawnOptions spawn;
      spawn.arguments = {kServiceProgram};
      spawn.environment = {{"BTHAL_ROOT", root}, {"BTHAL_LOG", "error"}};
      const auto service = bthal::tool::Child::Spawn(spawn, &error);
      if (!service.running()) return state.SkipWithError(error.c_str());
      if (!board.WaitFor(IsUp, std::chrono::seconds(20))) return state.SkipWithError("the controller did not come up");
      result = Measure(board.Journal());
    }
    std::filesystem::remove_all(root);
    state.SetIterationTime(result.took.count());
    bthal::bench::Tell(state, 1000 * result.took.count(), 1000 * (kPauses + result.wire).count(), "bring-up", "ms");
  }
}
BENCHMARK(BM_BringUp)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
