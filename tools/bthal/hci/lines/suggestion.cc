#include "bthal/hci/lines/suggestion.h"

#include <algorithm>
#include <numeric>

namespace bthal::tool {
namespace {

// Letters to be put in, left out, replaced, or exchanged with their neighbour, to make one of the other.
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) cost[i][0] = i;
  std::iota(cost[0].begin(), cost[0].end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, replaced});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
      }
    }
  }
  return cost[a.size()][b.size()];
}

}  // namespace

std::string Closest(std::string_view word, const std::vector<std::string>& candidates) {
  std::string best;
  size_t least = std::max<size_t>(1, word.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    const size_t distance = Distance(word, candidate);
    if (distance >= least) continue;
    least = distance;
    best = candidate;
  }
  return best;
}

}  // namespace bthal::tool
