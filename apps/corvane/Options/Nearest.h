#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CorvaneCli {

// Those of `names` that `typed` may have been meant for, best first, at most three: those that it is the beginning of, else those
// that it differs from by few slips (a letter too many, missing, wrong, or changed places with the next one).
[[nodiscard]] std::vector<std::string> NearestNames(std::string_view typed, const std::vector<std::string>& names);

}  // namespace CorvaneCli
