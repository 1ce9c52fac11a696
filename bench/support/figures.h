// What is measured of a process, and how it is told.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bthal::bench {

using Seconds = std::chrono::duration<double>;

// All threads that `pid` has now, together.
Seconds CpuTime(pid_t pid);
// What it has in memory, in KiB.
double ResidentKib(pid_t pid);

// The value below which `share` (0 to 1) of the values lie. Not of none.
double Quantile(std::vector<double> values, double share);

// The three figures that bench/run shows: what was measured, the least that it could be, and the one by the other.
// `what` and `unit` go into the label, where bench/run finds them.
void Tell(benchmark::State& state, double measured, double floor, const std::string& what, const std::string& unit);

}  // namespace bthal::bench
