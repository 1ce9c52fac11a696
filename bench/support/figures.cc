#include "support/figures.h"

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <unistd.h>

#include <algorithm>

namespace bthal::bench {
namespace {

// Of /proc/PID/stat, counted behind the program's name.
constexpr size_t kUserTicks = 11;
constexpr size_t kSystemTicks = 12;

uint64_t Number(const std::string& text) {
  uint64_t number = 0;
  android::base::ParseUint(android::base::Trim(text), &number);
  return number;
}

}  // namespace

Seconds CpuTime(pid_t pid) {
  std::string stat;
  android::base::ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &stat);
  const std::vector<std::string> fields = android::base::Split(stat.substr(stat.rfind(')') + 2), " ");
  const uint64_t ticks = Number(fields.at(kUserTicks)) + Number(fields.at(kSystemTicks));
  return Seconds(static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK)));
}

double ResidentKib(pid_t pid) {
  std::string statm;
  android::base::ReadFileToString("/proc/" + std::to_string(pid) + "/statm", &statm);
  const uint64_t pages = Number(android::base::Split(statm, " ").at(1));
  return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

double Quantile(std::vector<double> values, double share) {
  const auto rank = static_cast<size_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(rank), values.end());
  return values[rank];
}

void Tell(benchmark::State& state, double measured, double floor, const std::string& what, const std::string& unit) {
  state.SetLabel(what + "|" + unit);
  state.counters["measured"] = measured;
  state.counters["floor"] = floor;
  if (floor != 0) state.counters["ratio"] = measured / floor;
}

}  // namespace bthal::bench
