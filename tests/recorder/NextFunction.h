#pragma once

#include <dlfcn.h>

#include <cstdlib>

// The program's definition of a function that a shared library has too. Symbols of the program come before those of all
// libraries, so the libraries call the program's.
#define CORVANE_TEST_STANDS_IN extern "C" __attribute__((visibility("default")))

namespace CorvaneTest {

// The function that the program's own definition hides: the next of that name in the order of the loaded libraries.
template <class Signature>
class NextFunction {
 public:
  explicit NextFunction(const char* name) : m_function(reinterpret_cast<Signature*>(dlsym(RTLD_NEXT, name))) {
    if (m_function == nullptr) std::abort();  // not a library of this process: nothing could be tested
  }

  template <class... Arguments>
  auto operator()(Arguments... arguments) const {
    return m_function(arguments...);
  }

 private:
  Signature* m_function;
};

}  // namespace CorvaneTest
