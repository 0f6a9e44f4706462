#include "tests/recorder/Allocations.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

thread_local Allocations* s_current = nullptr;
thread_local bool s_count = true;

}  // namespace

Allocations::Allocations(std::size_t spared, std::size_t count) : m_spared(spared), m_count(count) {
  if (s_current != nullptr) throw std::logic_error("the allocations are watched already");
  s_current = this;
}

Allocations::~Allocations() { s_current = nullptr; }

bool Allocations::Allow(std::size_t bytes) noexcept {
  Allocations* const watch = s_current;
  if (watch == nullptr || !s_count) return true;
  if (bytes > watch->m_largest) watch->m_largest = bytes;
  if (watch->m_spared > 0) {
    if (watch->m_spared != kAll) --watch->m_spared;
    return true;
  }
  if (watch->m_count == 0) return true;
  if (watch->m_count != kAll) --watch->m_count;
  ++watch->m_failed;
  return false;
}

AllocationsCount::AllocationsCount(bool count) noexcept : m_former(std::exchange(s_count, count)) {}

AllocationsCount::~AllocationsCount() { s_count = m_former; }

}  // namespace CorvaneTest

using CorvaneTest::Allocations;
using CorvaneTest::NextFunction;

// Every form of the operators is replaced, so that a sanitizer never sees memory of one kind freed as another.
// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are what allocates
__attribute__((visibility("default"))) void* operator new(std::size_t bytes) {
  void* const memory = Allocations::Allow(bytes) ? std::malloc(bytes == 0 ? 1 : bytes) : nullptr;
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
__attribute__((visibility("default"))) void* operator new[](std::size_t bytes) { return operator new(bytes); }
__attribute__((visibility("default"))) void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return Allocations::Allow(bytes) ? std::malloc(bytes == 0 ? 1 : bytes) : nullptr;
}
__attribute__((visibility("default"))) void* operator new[](std::size_t bytes, const std::nothrow_t& tag) noexcept {
  return operator new(bytes, tag);
}
__attribute__((visibility("default"))) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((visibility("default"))) void operator delete[](void* memory) noexcept { std::free(memory); }
__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
__attribute__((visibility("default"))) void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
__attribute__((visibility("default"))) void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
__attribute__((visibility("default"))) void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

// A sanitizer that is linked into the program itself has no "next" function; its own goes by this name.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" __attribute__((weak)) void* __interceptor_realloc(void* memory, std::size_t bytes);
extern "C" __attribute__((weak)) char* __interceptor_strdup(const char* text);
// NOLINTEND(bugprone-reserved-identifier)

CORVANE_TEST_STANDS_IN void* realloc(void* memory, std::size_t bytes) noexcept {
  static const NextFunction<void*(void*, std::size_t)> next("realloc");
  if (!Allocations::Allow(bytes)) return nullptr;
  return __interceptor_realloc != nullptr ? __interceptor_realloc(memory, bytes) : next(memory, bytes);
}

CORVANE_TEST_STANDS_IN char* strdup(const char* text) noexcept {
  static const NextFunction<char*(const char*)> next("strdup");
  if (!Allocations::Allow(std::strlen(text) + 1)) return nullptr;
  return __interceptor_strdup != nullptr ? __interceptor_strdup(text) : next(text);
}
