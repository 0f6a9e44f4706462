# Sets CORVANE_CLI_IS_STATIC: whether our libraries and the C++ standard library are linked into the program.
#
# Loading them as shared libraries took 3.8 of the 19.1 million instructions of a run that ends at a refused connection, more
# than the program's own code. What is left to load is what libcurl brings with it.

include_guard(GLOBAL)
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

set(CORVANE_CLI_IS_STATIC OFF)
# A sanitizer's run-time looks for the standard library among the shared ones.
if(CORVANE_BUILD_CLI AND CORVANE_STATIC_CLI AND NOT CORVANE_SANITIZE)
  cmake_push_check_state()
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-libstdc++ -static-libgcc)
  # Not every system has it as an archive.
  check_cxx_source_compiles("
#include <string>
int main(int argc, char** argv) { return std::string(argv[argc - 1]).empty(); }" CORVANE_HAS_STATIC_STANDARD_LIBRARY)
  cmake_pop_check_state()
  set(CORVANE_CLI_IS_STATIC "${CORVANE_HAS_STATIC_STANDARD_LIBRARY}")
endif()
