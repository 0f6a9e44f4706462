#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

// A program's own definition of a function that a shared library has too: it takes the library's place for every caller in the
// process, since the symbols that a program exports come before those of all libraries. (The linker exports those that a library
// it sees refers to; ENABLE_EXPORTS in CMake exports the rest.) The tests watch the library through such definitions.
#define CORVANE_TEST_REPLACES __attribute__((visibility("default")))
#define CORVANE_TEST_STANDS_IN extern "C" CORVANE_TEST_REPLACES  // for a function of C

namespace CorvaneTest {

// The function that the program's own definition hides: the next of that name in the order of the loaded libraries. Ends the
// process when there is none: whoever replaces a function that nobody has would test nothing.
template <class Signature>
class NextFunction {
 public:
  explicit NextFunction(const char* name) : m_function(reinterpret_cast<Signature*>(dlsym(RTLD_NEXT, name))) {
    if (m_function != nullptr) return;
    std::fprintf(stderr, "nothing to pass %s on to\n", name);
    std::abort();
  }

  template <class... Arguments>
  decltype(auto) operator()(Arguments&&... arguments) const {
    return m_function(std::forward<Arguments>(arguments)...);
  }

 private:
  Signature* m_function;
};

}  // namespace CorvaneTest
