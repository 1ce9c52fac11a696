// Faults at random moments, again and again: processes that are killed, asked to end or stopped while a controller is
// brought up, used and given back. After every one the next client must be served.
#include <android-base/file.h>
#include <signal.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bthal/run/device_names.h"
#include "campaign/device.h"
#include "campaign/hostile.h"
#include "campaign/trial.h"

namespace bthal::campaign {
namespace {

constexpr Fault kFaults[] = {
    {"the service is killed", Victim::kService, SIGKILL},    {"the service is asked to end", Victim::kService, SIGTERM},
    {"the service stands still", Victim::kService, SIGSTOP}, {"the client is killed", Victim::kClient, SIGKILL},
    {"the client stands still", Victim::kClient, SIGSTOP},   {"the board is killed", Victim::kBoard, SIGKILL},
    {"the board stands still", Victim::kBoard, SIGSTOP}};
constexpr size_t kRows = std::size(kFaults);

struct Options {
  int kill = 6;
  int term = 6;
  int client = 6;
  int board = 4;
  int stop = 4;
  int hostile_seconds = 0;
  int limit_seconds = 30;
  uint64_t seed = std::random_device{}();
  std::string in = std::filesystem::temp_directory_path();

  int CountOf(const Fault& fault) const {
    if (fault.signal == SIGSTOP) return stop;
    if (fault.signal == SIGTERM) return term;
    return fault.victim == Victim::kService ? kill : fault.victim == Victim::kClient ? client : board;
  }
};

struct Row {
  int tried = 0, lost = 0, hung = 0, deaths = 0;
  milliseconds slowest{0};
};

void PrintTable(const Row (&rows)[kRows]) {
  printf("%-28s %6s %9s %6s %6s   %8s   %s\n", "", "tried", "survived", "lost", "hung", "deaths",
         "slowest next client");
  for (size_t i = 0; i < kRows; ++i) {
    const Row& row = rows[i];
    if (row.tried == 0) continue;
    printf("%-28s %6d %9d %6d %6d   %8d   %.2f s\n", kFaults[i].name, row.tried, row.tried - row.lost - row.hung,
           row.lost, row.hung, row.deaths, std::chrono::duration<double>(row.slowest).count());
  }
}

// A device that serves, and that nothing has happened to.
void Prepare(Device& device) {
  device.SwitchOn();
  const auto status = device.StartClient({"reset", "expect success"}).Wait(std::chrono::seconds(30));
  if (status != 0) throw Problem{.what = "the first client is not served\n" + device.LastLines()};
  device.TakeStock();
}

bool Count(const Outcome& outcome, const Fault& fault, int number, const Device& device, Row* row) {
  ++row->tried;
  row->deaths += outcome.deaths;
  row->slowest = std::max(row->slowest, outcome.served);
  if (!outcome.problem) return true;
  ++(outcome.problem->hung ? row->hung : row->lost);
  printf("try %d, %s, %s: %s: %s\n%s", number, fault.name, outcome.moment.c_str(),
         outcome.problem->hung ? "hung" : "lost", outcome.problem->what.c_str(), device.LastLines().c_str());
  return false;
}

bool Campaign(Device& device, const Options& options) {
  std::mt19937_64 random(options.seed);
  std::vector<size_t> tries;
  for (size_t i = 0; i < kRows; ++i) tries.insert(tries.end(), static_cast<size_t>(options.CountOf(kFaults[i])), i);
  std::shuffle(tries.begin(), tries.end(), random);
  Row rows[kRows];
  bool all = true;
  for (size_t number = 0; number < tries.size(); ++number) {
    if (number > 0 && number % 100 == 0) printf("%zu of %zu tries\n", number, tries.size());
    fflush(stdout);
    const Fault& fault = kFaults[tries[number]];
    const Outcome outcome = Trial(device, random, std::chrono::seconds(options.limit_seconds)).Run(fault);
    if (Count(outcome, fault, static_cast<int>(number), device, &rows[tries[number]])) continue;
    all = false;
    Prepare(device);  // what is broken is not to spoil the tries that follow
  }
  if (!tries.empty()) PrintTable(rows);
  return all;
}

// What others make of the last packet log.
bool OthersReadTheLog(const Device& device) {
  const std::string log = device.root() + tool::kSnoopLog;
  for (const std::string reader : {"capinfos ", "tshark -r "}) {
    if (system((reader + log + " > " + device.folder() + "/reader.log 2>&1").c_str()) == 0) continue;
    printf("'%s%s' fails, see %s/reader.log\n", reader.c_str(), log.c_str(), device.folder().c_str());
    return false;
  }
  return true;
}

int Run(const Options& options) {
  std::string folder = options.in + "/bthal-campaign-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("cannot make a folder in " + options.in);
  printf("campaign --seed %llu, in %s\n", static_cast<unsigned long long>(options.seed), folder.c_str());
  fflush(stdout);
  Device device(folder);
  Prepare(device);
  bool all = Campaign(device, options) && OthersReadTheLog(device);
  if (options.hostile_seconds > 0) {
    Prepare(device);
    all = WithstandHostilePeers(device, std::chrono::seconds(options.hostile_seconds), options.seed) && all;
  }
  device.SwitchOff();
  if (all) std::filesystem::remove_all(folder);
  return all ? 0 : 1;
}

int Main(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Breaks the service, its client and its board at random moments, and looks whether the next client is served");
  app.add_option("--kill", options.kill, "SIGKILLs of the service")->capture_default_str();
  app.add_option("--term", options.term, "SIGTERMs of the service")->capture_default_str();
  app.add_option("--client", options.client, "SIGKILLs of the client")->capture_default_str();
  app.add_option("--board", options.board, "SIGKILLs of the board")->capture_default_str();
  app.add_option("--stop", options.stop, "stops of each of them")->capture_default_str();
  app.add_option("--hostile", options.hostile_seconds, "seconds with hostile peers, behind the faults");
  app.add_option("--limit", options.limit_seconds, "seconds in which the next client must be served")
      ->capture_default_str();
  app.add_option("--seed", options.seed, "of the run that is to be repeated");
  app.add_option("--in", options.in, "where to make the folder for the device and its logs; kept if something fails")
      ->type_name("DIR");
  CLI11_PARSE(app, argc, argv);
  return Run(options);
}

}  // namespace
}  // namespace bthal::campaign

int main(int argc, char** argv) {
  try {
    return bthal::campaign::Main(argc, argv);
  } catch (const bthal::campaign::Problem& problem) {
    fprintf(stderr, "campaign: %s\n", problem.what.c_str());
  } catch (const std::exception& error) {
    fprintf(stderr, "campaign: %s\n", error.what());
  }
  return 1;
}
