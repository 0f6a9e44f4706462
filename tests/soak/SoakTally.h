#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tests/soak/SoakObject.h"

namespace CorvaneTest {

// What a soak has done and seen.
// Thread safety: every member from any thread.
class SoakTally {
 public:
  void Count(const SoakResult& result);
  void CountAbort(std::chrono::milliseconds time);
  void CountDestruction(bool isRunning) { ++(isRunning ? m_destroyedRunning : m_destroyedIdle); }

  // Something that must not be. The first few are remembered, and printed at once.
  void Fail(const std::string& what);
  [[nodiscard]] bool HasFailed() const;

  // Of all rounds so far.
  [[nodiscard]] unsigned long long Operations() const;
  [[nodiscard]] unsigned long long Bytes() const;

  // Names of what has not happened at all: successes of each operation, and disturbances.
  [[nodiscard]] std::vector<std::string> Missing() const;
  void Print() const;

 private:
  struct Row {
    unsigned long long operations = 0, successes = 0, bytes = 0;
    std::map<Corvane::ZResult, unsigned long long> failures;  // their numbers by their codes
  };

  mutable std::mutex m_mutex;
  std::map<std::string, Row> m_rows;  // by operation; this and the next two: guarded by m_mutex
  std::vector<std::string> m_failures;
  std::chrono::milliseconds m_slowestAbort{0};
  std::atomic<unsigned long long> m_aborts{0};
  std::atomic<unsigned long long> m_destroyedRunning{0};
  std::atomic<unsigned long long> m_destroyedIdle{0};
};

}  // namespace CorvaneTest
