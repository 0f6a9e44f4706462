#pragma once

#include <cstddef>
#include <limits>

namespace CorvaneTest {

// Watches the library's allocations on the thread that made it (operator new, realloc and strdup) while it exists, and
// lets some of them fail. What libcurl and the doubles of this folder allocate does not count.
class Allocations {
 public:
  static constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

  // Lets `count` allocations fail, after `spared` that succeed.
  explicit Allocations(std::size_t spared = kAll, std::size_t count = 1);
  ~Allocations();
  Allocations(const Allocations&) = delete;
  Allocations& operator=(const Allocations&) = delete;

  [[nodiscard]] std::size_t Failed() const { return m_failed; }
  [[nodiscard]] std::size_t Largest() const { return m_largest; }  // bytes of the largest allocation asked for

  // For the functions that stand in for the C library's: whether this allocation succeeds.
  static bool Allow(std::size_t bytes) noexcept;

 private:
  std::size_t m_spared;
  std::size_t m_count;
  std::size_t m_failed = 0;
  std::size_t m_largest = 0;
};

// Whether allocations of this thread count, until the end of the scope: not in the code of a double, and again where a
// double calls the library back.
class AllocationsCount {
 public:
  explicit AllocationsCount(bool count) noexcept;
  ~AllocationsCount();
  AllocationsCount(const AllocationsCount&) = delete;
  AllocationsCount& operator=(const AllocationsCount&) = delete;

 private:
  bool m_former;
};

}  // namespace CorvaneTest
