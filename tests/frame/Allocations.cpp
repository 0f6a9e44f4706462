#include "tests/frame/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

constinit std::atomic<std::size_t> live{0};
constinit std::atomic<void (*)(void*, std::size_t)> watchMade{nullptr};
constinit std::atomic<void (*)(void*)> watchFreed{nullptr};
constinit thread_local std::size_t left = kNoLimit;  // allocations of this thread that still succeed

void* Make(std::size_t size) {
  if (left == 0) throw std::bad_alloc();
  if (left != kNoLimit) --left;
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  ++live;
  if (void (*const made)(void*, std::size_t) = watchMade) made(block, size);
  return block;
}

void Free(void* block) noexcept {
  if (block == nullptr) return;
  if (void (*const freed)(void*) = watchFreed) freed(block);
  --live;
  std::free(block);
}

}  // namespace

std::size_t LiveAllocations() { return live; }

FailingAllocations::FailingAllocations(std::size_t count) { left = count; }
FailingAllocations::~FailingAllocations() { left = kNoLimit; }

void WatchAllocations(AllocationWatch watch) {
  watchMade = watch.made;
  watchFreed = watch.freed;
}

}  // namespace CorvaneTest

// The aligned and the nothrow forms stay the standard library's; the library under test uses neither.
CORVANE_TEST_REPLACES void* operator new(std::size_t size) { return CorvaneTest::Make(size); }
CORVANE_TEST_REPLACES void* operator new[](std::size_t size) { return CorvaneTest::Make(size); }
CORVANE_TEST_REPLACES void operator delete(void* block) noexcept { CorvaneTest::Free(block); }
CORVANE_TEST_REPLACES void operator delete[](void* block) noexcept { CorvaneTest::Free(block); }
CORVANE_TEST_REPLACES void operator delete(void* block, std::size_t) noexcept { CorvaneTest::Free(block); }
CORVANE_TEST_REPLACES void operator delete[](void* block, std::size_t) noexcept { CorvaneTest::Free(block); }
