#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <Corvane/Base/Result.h>

#include "tests/abort/StressServer.h"

namespace CorvaneTest {

// What a stress run has done and seen.
// Thread safety: every member from any thread.
class StressTally {
 public:
  void CountOperation(Behaviour behaviour, Corvane::ZResult code);
  void CountAbort(Behaviour behaviour, std::chrono::milliseconds time);
  void CountWatched() { ++m_watched; }
  void CountBlindAbort() { ++m_blindAborts; }
  void CountReset() { ++m_resets; }
  void CountWait() { ++m_waits; }
  void CountDestruction(bool isRunning) { ++(isRunning ? m_destroyedRunning : m_destroyedIdle); }

  // Something that must not happen. The first few are remembered.
  void Fail(const std::string& what);
  bool HasFailed() const;

  // Names of what has not happened at all.
  std::vector<std::string> Missing() const;

  void Print() const;

 private:
  struct PerBehaviour {
    unsigned long operations = 0;
    unsigned long aborts = 0;
    std::chrono::milliseconds slowest{0};
  };

  mutable std::mutex m_mutex;
  std::array<PerBehaviour, kBehaviours> m_behaviours{};  // this and the next two: guarded by m_mutex
  std::map<Corvane::ZResult, unsigned long> m_codes;
  std::vector<std::string> m_failures;
  std::atomic<unsigned long> m_watched{0};
  std::atomic<unsigned long> m_blindAborts{0};
  std::atomic<unsigned long> m_resets{0};
  std::atomic<unsigned long> m_waits{0};
  std::atomic<unsigned long> m_destroyedRunning{0};
  std::atomic<unsigned long> m_destroyedIdle{0};
};

}  // namespace CorvaneTest
