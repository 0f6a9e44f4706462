#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace CorvaneTest {

// What the process holds.
struct Resources {
  std::size_t residentBytes = 0;
  std::size_t heapBytes =
      0;  // allocated and not freed, as the C library counts; 0 under a sanitizer, which has its own
  std::size_t descriptors = 0;
  std::size_t threads = 0;

  // Frees what the C library keeps for later first, so that it does not count.
  static Resources Now();
  // Waits until no more descriptors and threads are there than these, which some end only shortly after their cause; but not for ever.
  static Resources Settled(const Resources& expected);
};

// Judges what was held at the end of each round, when nothing ran; the first fifth of them warms up. Empty when nothing grows, else
// what does.
std::vector<std::string> GrowthOf(const std::vector<Resources>& rounds);

}  // namespace CorvaneTest
