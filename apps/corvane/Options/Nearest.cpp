#include "apps/corvane/Options/Nearest.h"

#include <algorithm>
#include <cstddef>

namespace CorvaneCli {
namespace {

constexpr std::size_t kMostSuggestions = 3;
constexpr std::size_t kLongestName = 40;  // longer than any; what is typed may be of any length

// The number of slips between two words (the optimal string alignment distance).
std::size_t SlipsBetween(std::string_view one, std::string_view other) {
  std::vector<std::vector<std::size_t>> slips(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
  for (std::size_t i = 0; i <= one.size(); ++i) {
    for (std::size_t j = 0; j <= other.size(); ++j) {
      if (i == 0 || j == 0) {
        slips[i][j] = i + j;
        continue;
      }
      const std::size_t wrong = one[i - 1] == other[j - 1] ? 0 : 1;
      slips[i][j] = std::min({slips[i - 1][j] + 1, slips[i][j - 1] + 1, slips[i - 1][j - 1] + wrong});
      const bool isSwapped = i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
      if (isSwapped) slips[i][j] = std::min(slips[i][j], slips[i - 2][j - 2] + 1);
    }
  }
  return slips[one.size()][other.size()];
}

}  // namespace

std::vector<std::string> NearestNames(std::string_view typed, const std::vector<std::string>& names) {
  std::vector<std::string> nearest;
  if (typed.empty() || typed.size() > kLongestName) return nearest;
  if (typed.size() > 1) {
    for (const std::string& name : names) {
      if (name.rfind(typed, 0) == 0) nearest.push_back(name);
    }
  }
  if (nearest.empty()) {
    // Of short words nearly all are two slips apart.
    std::size_t least = typed.size() < 5 ? 1 : 2;
    for (const std::string& name : names) {
      const std::size_t slips = SlipsBetween(typed, name);
      if (slips > least || slips >= name.size()) continue;
      if (slips < least) nearest.clear();
      least = slips;
      nearest.push_back(name);
    }
  }
  if (nearest.size() > kMostSuggestions) nearest.resize(kMostSuggestions);
  return nearest;
}

}  // namespace CorvaneCli
