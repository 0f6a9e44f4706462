#include "tests/faults/Matrix.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <thread>

namespace CorvaneTest {

namespace {

// Cells that are busy, and cells that do nothing but wait for a time limit.
constexpr std::size_t kBusyThreads = 8;
constexpr std::size_t kWaitingThreads = 128;

// Tells at the end of the program how many cells have been run.
class Sum : public testing::Environment {
 public:
  static std::atomic<std::size_t>& Cells() {
    static std::atomic<std::size_t> cells{0};
    return cells;
  }
  void TearDown() override { std::printf("[  CELLS   ] %zu have been run\n", Cells().load()); }
};

[[maybe_unused]] testing::Environment* const kSum = testing::AddGlobalTestEnvironment(new Sum);

bool IsHeaderOf(const std::string& header, const std::optional<std::string>& sent) {
  if (!sent) return true;
  const std::string shown = Narrow(Wide(*sent));  // ill-formed bytes look alike in both
  return header.empty() || (header.back() == '\n' && shown.compare(0, header.size(), header) == 0);
}

std::string Judge(const Cell& cell, const FaultSite& site, const Observation& seen) {
  const Outcome expected = Expect(cell.told, cell.op, site.Where(), site.WholeContent(), seen.header);
  std::string complaint = Difference(expected, seen.outcome);
  if (!IsHeaderOf(seen.header, site.HeaderSent())) complaint += "  header: not what was sent: " + seen.header + '\n';
  if (!seen.isIdle) complaint += "  the object is not idle, or its status is not what was returned\n";
  if (!seen.afterwards.empty()) complaint += "  " + seen.afterwards + '\n';
  return complaint;
}

// A time limit that passes before the server has come to its silence, or before the client has looked at what came until then, says
// something about the machine only: the cell is run again with a longer one, and the longest counts.
std::string RunCell(const Cell& cell) {
  constexpr unsigned long kLongestLimit = 16;
  for (unsigned long limit = 1;; limit *= 4) {
    const std::unique_ptr<FaultSite> site = cell.open();
    Conditions conditions = cell.conditions;
    if (cell.patience == Patience::kTimeout) conditions.timeoutSeconds = limit;
    if (cell.patience == Patience::kAbort) conditions.abortAt = &site->IsSilent();
    const Observation seen = Run(cell.op, site->Where(), conditions, [&] { site->Recover(); });
    const bool wasSilent = site->IsSilent().IsOpen();
    std::string complaint = Judge(cell, *site, seen);
    const bool isLast = cell.patience != Patience::kTimeout || limit >= kLongestLimit;
    if (isLast || (wasSilent && complaint.empty())) return complaint;
  }
}

std::string RunCellSafely(const Cell& cell) {
  try {
    return RunCell(cell);
  } catch (const std::exception& exception) {
    return std::string("  exception: ") + exception.what() + '\n';
  }
}

}  // namespace

std::size_t RunCells(const std::vector<Cell>& cells) {
  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> run{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < cells.size(); i = next++) {
      const std::string complaint = RunCellSafely(cells[i]);
      ++run;
      if (!complaint.empty()) ADD_FAILURE() << cells[i].behaviour << " x " << NameOf(cells[i].op) << '\n' << complaint;
    }
  };
  const bool isWaiting = !cells.empty() && cells[0].patience == Patience::kTimeout;
  const std::size_t most = std::min(cells.size(), isWaiting ? kWaitingThreads : kBusyThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < most; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  Sum::Cells() += run;
  return run;
}

}  // namespace CorvaneTest
