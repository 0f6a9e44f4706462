#include "tests/frame/ProcessFootprint.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>

namespace CorvaneTest {
namespace {

// A sanitizer's run-time keeps books of its own in the heap and in mappings (an exit function for each static
// destructor, for example), and replaces malloc, whose statistics then stand still. AddressSanitizer's leak check at
// the program's end covers the heap instead.
constexpr bool IsMeasurable() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return false;
#elif defined(__has_feature)
  return !(__has_feature(address_sanitizer) || __has_feature(thread_sanitizer));
#else
  return true;
#endif
}

std::size_t CountMappings(const std::string& part) {
  std::ifstream maps("/proc/self/maps");
  std::size_t count = 0;
  for (std::string line; std::getline(maps, line);) count += line.find(part) != std::string::npos;
  return count;
}

}  // namespace

Footprint Footprint::Now() {
  Footprint now;
  now.heapBytes = mallinfo2().uordblks;
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  now.residentKilobytes = resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
  now.mappings = CountMappings("");
  return now;
}

std::ostream& operator<<(std::ostream& out, const Footprint& footprint) {
  return out << footprint.heapBytes << " bytes of heap, " << footprint.residentKilobytes << " KiB resident, "
             << footprint.mappings << " mappings";
}

void ExpectNoGrowth(const Footprint& before, const Footprint& after, std::size_t cycles) {
  if (!IsMeasurable()) return;
  EXPECT_LE(after.heapBytes, before.heapBytes + 16 * cycles) << before << "; then " << after;
  EXPECT_LE(after.residentKilobytes, before.residentKilobytes + 512) << before << "; then " << after;
  EXPECT_LE(after.mappings, before.mappings) << before << "; then " << after;
}

std::size_t MappingsOf(const std::string& part) { return CountMappings(part); }

}  // namespace CorvaneTest
