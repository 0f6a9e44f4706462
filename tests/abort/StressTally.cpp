#include "tests/abort/StressTally.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

#include <Corvane/TransferErrorCodes.h>

#include "tests/loopback/TransferTesting.h"

namespace CorvaneTest {

using Corvane::ZResult;

void StressTally::CountOperation(Behaviour behaviour, ZResult code) {
  const std::lock_guard lock(m_mutex);
  ++m_behaviours[static_cast<std::size_t>(behaviour)].operations;
  ++m_codes[code];
}

void StressTally::CountAbort(Behaviour behaviour, std::chrono::milliseconds time) {
  const std::lock_guard lock(m_mutex);
  PerBehaviour& row = m_behaviours[static_cast<std::size_t>(behaviour)];
  ++row.aborts;
  row.slowest = std::max(row.slowest, time);
}

void StressTally::Fail(const std::string& what) {
  constexpr std::size_t kRemembered = 20;
  const std::lock_guard lock(m_mutex);
  if (m_failures.size() < kRemembered) m_failures.push_back(what);
}

bool StressTally::HasFailed() const {
  const std::lock_guard lock(m_mutex);
  return !m_failures.empty();
}

std::vector<std::string> StressTally::Missing() const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> missing;
  const auto require = [&](unsigned long count, const std::string& name) {
    if (count == 0) missing.push_back(name);
  };
  for (std::size_t i = 0; i < kBehaviours; ++i) {
    const std::string name = NameOf(static_cast<Behaviour>(i));
    require(m_behaviours[i].operations, "operations: " + name);
    // An answer that comes at once is over too soon to be aborted in a short run.
    const bool isAbortable = i >= static_cast<std::size_t>(Behaviour::kStallHead);
    if (isAbortable) require(m_behaviours[i].aborts, "aborts: " + name);
  }
  for (const ZResult code : {Corvane::TRANSFER_S_FINISHED, Corvane::TRANSFER_E_ABORTED, Corvane::TRANSFER_E_CONNECT,
                             CurlFailure(kPartialFile), CurlFailure(kReceiveError)}) {
    require(m_codes.count(code), "outcome: " + Hex(code));
  }
  require(m_watched, "rounds of the watchers");
  require(m_blindAborts, "aborts at any moment");
  require(m_resets, "resets");
  require(m_waits, "waits");
  require(m_destroyedRunning, "destructions during an operation");
  require(m_destroyedIdle, "destructions between operations");
  return missing;
}

void StressTally::Print() const {
  const std::lock_guard lock(m_mutex);
  unsigned long operations = 0;
  unsigned long aborts = 0;
  std::printf("%-12s %12s %12s %18s\n", "behaviour", "operations", "aborts", "slowest abort, ms");
  for (std::size_t i = 0; i < kBehaviours; ++i) {
    const PerBehaviour& row = m_behaviours[i];
    operations += row.operations;
    aborts += row.aborts;
    std::printf("%-12s %12lu %12lu %18lld\n", NameOf(static_cast<Behaviour>(i)), row.operations, row.aborts,
                static_cast<long long>(row.slowest.count()));
  }
  std::printf("%-12s %12lu %12lu\n", "all", operations, aborts);
  for (const auto& [code, count] : m_codes) std::printf("outcome %s: %lu\n", Hex(code).c_str(), count);
  std::printf(
      "aborts at any moment %lu, resets %lu, waits %lu, destructions during an operation %lu, between %lu, "
      "rounds of the watchers %lu\n",
      m_blindAborts.load(), m_resets.load(), m_waits.load(), m_destroyedRunning.load(), m_destroyedIdle.load(),
      m_watched.load());
  for (const std::string& failure : m_failures) std::printf("FAILED: %s\n", failure.c_str());
}

}  // namespace CorvaneTest
