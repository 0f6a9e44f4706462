#include "tests/soak/SoakTally.h"

#include <algorithm>
#include <cstdio>

#include <Corvane/TransferErrorCodes.h>

#include "tests/loopback/TransferTesting.h"

namespace CorvaneTest {
namespace {

using Corvane::ZResult;

// What no fault of a server explains. A mirror that is aborted while it fetches its listing has not started.
bool IsImpossible(const std::string& operation, ZResult code) {
  if (code == Corvane::TRANSFER_E_NOT_STARTED) return operation != "ZMultiDownload";
  return code == Corvane::TRANSFER_E_SYSTEM_INIT || code == Corvane::TRANSFER_E_INVALID_URL ||
         code == Corvane::TRANSFER_E_IN_PROGRESS || code == Corvane::TRANSFER_E_DISK_SPACE ||
         code == Corvane::BASE_E_IN_USE || code == Corvane::BASE_E_BUSY || code == CurlFailure(kPeerNotVerified) ||
         code == CurlFailure(kOutOfMemory) || code == CurlFailure(kBadArgument);
}

}  // namespace

void SoakTally::Count(const SoakResult& result) {
  {
    const std::lock_guard lock(m_mutex);
    Row& row = m_rows[result.operation];
    ++row.operations;
    row.bytes += result.bytes;
    ++(Corvane::IsFailure(result.code) ? row.failures[result.code] : row.successes);
  }
  if (!result.problem.empty()) Fail(result.operation + " ended with " + Hex(result.code) + ": " + result.problem);
  if (IsImpossible(result.operation, result.code)) Fail(result.operation + " ended with " + Hex(result.code));
}

void SoakTally::CountAbort(std::chrono::milliseconds time) {
  ++m_aborts;
  const std::lock_guard lock(m_mutex);
  m_slowestAbort = std::max(m_slowestAbort, time);
}

void SoakTally::Fail(const std::string& what) {
  constexpr std::size_t kRemembered = 20;
  const std::lock_guard lock(m_mutex);
  if (m_failures.size() == kRemembered) return;
  m_failures.push_back(what);
  std::printf("FAILED: %s\n", what.c_str());
  std::fflush(stdout);
}

bool SoakTally::HasFailed() const {
  const std::lock_guard lock(m_mutex);
  return !m_failures.empty();
}

unsigned long long SoakTally::Operations() const {
  const std::lock_guard lock(m_mutex);
  unsigned long long count = 0;
  for (const auto& entry : m_rows) count += entry.second.operations;
  return count;
}

unsigned long long SoakTally::Bytes() const {
  const std::lock_guard lock(m_mutex);
  unsigned long long bytes = 0;
  for (const auto& entry : m_rows) bytes += entry.second.bytes;
  return bytes;
}

std::vector<std::string> SoakTally::Missing() const {
  constexpr const char* kOperations[] = {
      "Download, text", "Download, sink", "Download, part", "DownloadFile",  "DownloadFile, resumed", "Post",
      "PostData",       "PostFile",       "ZMultiDownload", "ZTreeDownload", "ZTreeDownload, plan",   "ZGetHostByName"};
  std::vector<std::string> missing;
  const std::lock_guard lock(m_mutex);
  for (const char* const operation : kOperations) {
    const auto row = m_rows.find(operation);
    if (row == m_rows.end() || row->second.successes == 0) missing.push_back(std::string("success of ") + operation);
  }
  if (m_aborts == 0) missing.emplace_back("an abort of what runs");
  if (m_destroyedRunning == 0) missing.emplace_back("a destruction during an operation");
  return missing;
}

void SoakTally::Print() const {
  const std::lock_guard lock(m_mutex);
  std::printf("%-22s %12s %12s %14s\n", "operation", "operations", "successes", "bytes proven");
  for (const auto& [name, row] : m_rows) {
    std::printf("%-22s %12llu %12llu %14llu\n", name.c_str(), row.operations, row.successes, row.bytes);
  }
  for (const auto& [name, row] : m_rows) {
    for (const auto& [code, count] : row.failures) {
      std::printf("%-22s %s: %llu\n", name.c_str(), Hex(code).c_str(), count);
    }
  }
  std::printf("aborts %llu, the slowest after %lld ms; destructions during an operation %llu, between %llu\n",
              m_aborts.load(), static_cast<long long>(m_slowestAbort.count()), m_destroyedRunning.load(),
              m_destroyedIdle.load());
}

}  // namespace CorvaneTest
