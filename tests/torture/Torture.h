#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>

#include "tests/torture/Runs.h"

namespace CorvaneTest {

// What became of all the failures of one kind.
struct Tally {
  std::size_t injected = 0;
  std::size_t reported = 0;  // by the operation's code
  std::size_t thrown = 0;    // as std::bad_alloc
  std::size_t survived = 0;  // the operation succeeded all the same
  std::size_t wrong = 0;     // with which an expectation failed
  std::size_t leftOut = 0;   // allocations of one operation that are not made to fail, see Memory.cpp
  std::chrono::milliseconds slowest{0};
};
std::ostream& operator<<(std::ostream& stream, const Tally& tally);

// Makes the calls of a run fail, one after the other: with each the operation is done, what it leaves is looked at, the operation is
// done again on the same object without any failure, and the object goes. What is asked of each: no crash, no operation without an
// end, no success without all that belongs to it, nothing that stays open.
class Torture {
 public:
  explicit Torture(const RunKind& kind);
  ~Torture();
  Torture(const Torture&) = delete;
  Torture& operator=(const Torture&) = delete;

  // How many calls of the family there are when nothing fails.
  [[nodiscard]] std::size_t Count(Target target);
  // Every `stride`-th call fails, until an operation makes no more of them.
  Tally FailEach(Target target, Fault fault = {}, std::size_t stride = 1);

 private:
  struct Progress;

  // False when the operation made fewer calls.
  bool FailOne(Target target, Fault fault, std::size_t number, Tally& tally);
  RunOutcome Execute(Target target, Tally& tally);
  void ExpectNothingOpen();

  RunKind m_kind;
  std::unique_ptr<Run> m_run;
  std::size_t m_openAtRest = 0;
};

}  // namespace CorvaneTest
