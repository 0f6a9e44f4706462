#pragma once

#include <cstdio>
#include <cstdlib>

namespace CorvaneFuzz {

// Ends the process, which a fuzzer takes for a crash, unless the property holds. Not assert: the checks stay in every
// build.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

}  // namespace CorvaneFuzz
