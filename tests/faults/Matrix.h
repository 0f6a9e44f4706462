#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/faults/Client.h"
#include "tests/faults/Expectation.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {

// A server that misbehaves in one way, towards one operation, and serves everything else as it should be.
class FaultSite {
 public:
  FaultSite() = default;
  virtual ~FaultSite() = default;
  FaultSite(const FaultSite&) = delete;
  FaultSite& operator=(const FaultSite&) = delete;

  [[nodiscard]] virtual Targets Where() const = 0;
  // What the server has for the operation.
  [[nodiscard]] virtual const std::string& WholeContent() const = 0;
  // Called between the operation and the good download.
  virtual void Recover() {}
  // The bytes of which the header text has to be the beginning, up to the end of a line; none where that is not so.
  [[nodiscard]] virtual std::optional<std::string> HeaderSent() const { return std::string(); }

  // Open once the client has read everything and nothing more will come.
  [[nodiscard]] const Gate& IsSilent() const { return m_isSilent; }

 protected:
  Gate m_isSilent;
};

// How an operation that would last for ever ends.
enum class Patience { kNotNeeded, kTimeout, kAbort };

// One behaviour of a server with one operation.
struct Cell {
  std::string behaviour;
  Op op;
  Told told;
  Conditions conditions;
  Patience patience = Patience::kNotNeeded;
  std::function<std::unique_ptr<FaultSite>()> open;
};

// Runs them on threads of their own, some at a time, and fails the test for each whose outcome is not the expected one, whose object is
// not idle afterwards, or is of no use any more. Returns how many have been run; the program tells the sum at its end.
std::size_t RunCells(const std::vector<Cell>& cells);

}  // namespace CorvaneTest
