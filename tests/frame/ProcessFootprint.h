#pragma once

#include <cstddef>
#include <ostream>
#include <string>

namespace CorvaneTest {

// What the process occupies.
struct Footprint {
  std::size_t heapBytes = 0;  // handed out by the allocator and not freed
  std::size_t residentKilobytes = 0;
  std::size_t mappings = 0;

  static Footprint Now();
};

std::ostream& operator<<(std::ostream& out, const Footprint& footprint);

// Fails the current test when the process has grown over `cycles` cycles. The heap's smallest block takes 32 bytes, so
// that one lost block in every other cycle is found; the rest is for the allocator's caches, which count as handed out
// and fill up slowly. Compares nothing in a program with a sanitizer.
void ExpectNoGrowth(const Footprint& before, const Footprint& after, std::size_t cycles);

// How many of the process's mappings are of a file whose path contains `part`.
std::size_t MappingsOf(const std::string& part);

}  // namespace CorvaneTest
