#pragma once

#include <cstddef>
#include <limits>

// The program's own operator new and delete, linked with Allocations.cpp: they count what is alive, report blocks to a
// test, and can fail on demand.
namespace CorvaneTest {

// Blocks made by operator new and not yet freed, of all threads.
std::size_t LiveAllocations();

// While it lives, the allocations of the thread that made it fail with std::bad_alloc after `count` have succeeded.
class FailingAllocations {
 public:
  explicit FailingAllocations(std::size_t count);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
};

// Called with each block that operator new has made, and that operator delete is about to free. Must not allocate.
// Null: nobody.
struct AllocationWatch {
  void (*made)(void* block, std::size_t size) = nullptr;
  void (*freed)(void* block) = nullptr;
};
void WatchAllocations(AllocationWatch watch);

}  // namespace CorvaneTest
