#pragma once

#include <algorithm>
#include <chrono>
#include <limits>

namespace CorvaneTest {

// Every wait of the tests is measured on the steady clock, so that a change of the system's time cannot end it.
using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// How long a test waits for something that ought to happen. Only a failing test ever waits this long, so the value is
// generous enough for a loaded machine under a sanitizer and still well below ctest's own limit.
inline constexpr std::chrono::seconds kPatience{60};

// The point in time `timeout` from now.
inline Deadline After(std::chrono::milliseconds timeout) { return Clock::now() + timeout; }

// Milliseconds left until `deadline`, rounded up and never negative, in the form poll() takes.
inline int MillisecondsUntil(Deadline deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left + 0)>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace CorvaneTest
