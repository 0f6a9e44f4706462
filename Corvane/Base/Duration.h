#pragma once

#include <chrono>
#include <cmath>
#include <type_traits>

namespace Corvane {

// The smallest number of whole Units that `time` fits into, `largest` for anything longer: a time that becomes a limit never becomes a
// shorter one. Negative for a negative time, and for one that is no number (NaN).
//
//   WholeUnits<std::chrono::seconds>(std::chrono::milliseconds(1500), 100)  // 2
//
// Thread safety and errors: none.
template <class Unit, class Rep, class Period>
[[nodiscard]] long long WholeUnits(std::chrono::duration<Rep, Period> time, long long largest) noexcept {
  static_assert(std::is_arithmetic_v<Rep>);
  // Exact for every integer of 64 bits, and does not overflow.
  const long double units = std::chrono::duration<long double, typename Unit::period>(time).count();
  if (!(units >= 0)) return -1;
  return units >= static_cast<long double>(largest) ? largest : static_cast<long long>(std::ceil(units));
}

}  // namespace Corvane
