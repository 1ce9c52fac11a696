#include "support/figures.h"

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace bthal::bench {
namespace {

uint64_t Number(const std::string& text) {
  uint64_t number = 0;
  android::base::ParseUint(android::base::Trim(text), &number);
  return number;
}

}  // namespace

Seconds CpuTime(pid_t pid) {
  uint64_t nanoseconds = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::string text;
    // <on a processor, ns> <waiting for one, ns> <slices>
    android::base::ReadFileToString(task.path() / "schedstat", &text);
    nanoseconds += Number(android::base::Split(text, " ").at(0));
  }
  return std::chrono::nanoseconds(nanoseconds);
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
