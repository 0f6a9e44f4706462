#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

// A program's own definition of a function takes the place of the one in a shared library, for every caller in the process,
// as long as the program exports it (ENABLE_EXPORTS in CMake). The tests watch the library through such definitions, which
// record the call and pass it on.
#define CORVANE_TEST_PREEMPTS __attribute__((visibility("default")))

namespace CorvaneTest {

// The definition that the program's own one hides. Ends the process when there is none: whoever preempts a function that
// nobody has would test nothing.
template <class Function>
Function* Preempted(const char* symbol) {
  void* const address = dlsym(RTLD_NEXT, symbol);
  if (address == nullptr) {
    std::fprintf(stderr, "nothing to pass %s on to\n", symbol);
    std::abort();
  }
  return reinterpret_cast<Function*>(address);
}

}  // namespace CorvaneTest
