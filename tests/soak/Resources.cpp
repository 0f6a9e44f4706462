#include "tests/soak/Resources.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/Deadline.h"

namespace CorvaneTest {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

constexpr std::size_t kMostHeapGrowth = std::size_t{512} << 10;
constexpr std::size_t kMostResidentGrowth = std::size_t{8} << 20;
// The C library keeps the stacks of threads that have ended, and it takes some rounds until all have been used.
constexpr std::size_t kSettledRounds = 30;
constexpr std::size_t kMostUnsettledGrowth = std::size_t{32} << 20;

std::size_t CountIn(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::size_t ResidentBytes() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// How much the values rise from the first to the last, by the line that fits them best: single ones are disturbed.
double RiseOf(const std::vector<double>& values) {
  const auto count = static_cast<double>(values.size());
  double sum = 0, weighted = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    sum += values[i];
    weighted += values[i] * static_cast<double>(i);
  }
  const double middle = (count - 1) / 2;
  const double slope = 12 * (weighted - middle * sum) / (count * (count * count - 1));
  return slope * (count - 1);
}

void JudgeMemory(const std::vector<Resources>& rounds, std::size_t Resources::*member, std::size_t most,
                 const std::string& name, std::vector<std::string>& growth) {
  std::vector<double> values;
  values.reserve(rounds.size());
  for (const Resources& round : rounds) values.push_back(static_cast<double>(round.*member));
  const double rise = RiseOf(values);
  if (rise > static_cast<double>(most)) growth.push_back(name + " grew by " + std::to_string(rise / 1024) + " KiB");
}

}  // namespace

Resources Resources::Now() {
  malloc_trim(0);
  const struct mallinfo2 heap = mallinfo2();
  return {ResidentBytes(), heap.uordblks + heap.hblkhd, CountIn("/proc/self/fd"), CountIn("/proc/self/task")};
}

Resources Resources::Settled(const Resources& expected) {
  const Deadline deadline = After(kPatience);
  Resources now = Now();
  while ((now.descriptors > expected.descriptors || now.threads > expected.threads) && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    now = Now();
  }
  return now;
}

std::vector<std::string> GrowthOf(const std::vector<Resources>& rounds) {
  std::vector<std::string> growth;
  const std::vector<Resources> warm(rounds.begin() + static_cast<std::ptrdiff_t>((rounds.size() + 4) / 5),
                                    rounds.end());
  if (warm.size() < 3) return {"too few rounds to see anything grow"};
  for (const Resources& round : warm) {
    const bool hasMore = round.descriptors > rounds.front().descriptors || round.threads > rounds.front().threads;
    if (!hasMore) continue;
    growth.push_back("descriptors from " + std::to_string(rounds.front().descriptors) + " to " +
                     std::to_string(round.descriptors) + ", threads from " + std::to_string(rounds.front().threads) +
                     " to " + std::to_string(round.threads));
    break;
  }
  if (kIsSanitized) return growth;
  JudgeMemory(warm, &Resources::heapBytes, kMostHeapGrowth, "the heap", growth);
  const std::size_t most = rounds.size() < kSettledRounds ? kMostUnsettledGrowth : kMostResidentGrowth;
  JudgeMemory(warm, &Resources::residentBytes, most, "resident memory", growth);
  return growth;
}

}  // namespace CorvaneTest
