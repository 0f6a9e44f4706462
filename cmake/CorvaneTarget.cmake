# corvane_configure_target(<target>): the settings that every target built here shares. All of them are PRIVATE, so
# that a consumer never inherits our warnings or hardening.
#
# A folder that sets CORVANE_COMPILE_QUICKLY has its own targets compiled without optimisation and several sources at once, and what
# they execute is not counted: they are what tests.
#
# corvane_configure_library(<target>): in addition, soname and, with CORVANE_INSTALL, install rules of a library whose public
# headers are in its file set HEADERS.

include_guard(GLOBAL)
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
include(CMakePushCheckState)

check_pie_supported()

# A GNU unique symbol pins its library in the process: dlclose would then unload nothing. Clang never emits them and
# does not know the option.
check_cxx_compiler_flag(-fno-gnu-unique CORVANE_HAS_NO_GNU_UNIQUE)

# Not every compiler knows these, nor every processor.
check_cxx_compiler_flag(-fstack-clash-protection CORVANE_HAS_STACK_CLASH_PROTECTION)
check_cxx_compiler_flag(-fcf-protection CORVANE_HAS_CF_PROTECTION)

# What is shipped: these builds are hardened in full, and come out the same wherever they are made.
set(_corvane_shipped "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")

# Sets `result` to whether the compiler or the flags of this build define a fortify level. The answer is not kept, since the
# flags may change.
function(_corvane_find_fortify_level result)
  string(TOUPPER "${CMAKE_BUILD_TYPE}" config)
  cmake_push_check_state()
  set(CMAKE_REQUIRED_FLAGS "-O2 ${CMAKE_CXX_FLAGS_${config}}") # some compilers define it only when they optimise
  set(CMAKE_REQUIRED_QUIET ON)
  unset(CORVANE_FORTIFY_LEVEL_IS_SET CACHE)
  check_cxx_source_compiles("
#ifndef _FORTIFY_SOURCE
#error no level
#endif
int main() {}" CORVANE_FORTIFY_LEVEL_IS_SET)
  cmake_pop_check_state()
  set(${result} "${CORVANE_FORTIFY_LEVEL_IS_SET}" PARENT_SCOPE)
endfunction()

_corvane_find_fortify_level(_corvane_fortify_level_is_set)

function(corvane_configure_target target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(
    ${target}
    PROPERTIES CXX_EXTENSIONS OFF
               C_VISIBILITY_PRESET hidden
               CXX_VISIBILITY_PRESET hidden
               VISIBILITY_INLINES_HIDDEN ON
               POSITION_INDEPENDENT_CODE ON
               COMPILE_WARNING_AS_ERROR ${CORVANE_WERROR}
               RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin"
               LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 reports an overlap in the standard library's own operator+ for a literal and a string (its bug 105651).
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
  endif()
  if(CORVANE_HAS_NO_GNU_UNIQUE)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
  endif()
  _corvane_harden(${target})
  _corvane_make_reproducible(${target})
  _corvane_instrument(${target})
  if(CORVANE_COMPILE_QUICKLY)
    # Last of all options, so that it holds. The fortified functions need the optimiser.
    target_compile_options(${target} PRIVATE -O0 -U_FORTIFY_SOURCE)
    corvane_join_sources(${target})
  endif()
endfunction()

function(_corvane_harden target)
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
  if(CORVANE_SANITIZE)
    return()
  endif()
  # A sanitized library resolves the run-time's symbols from the program, so this check is for the others.
  target_link_options(${target} PRIVATE -Wl,-z,defs)
  if(CORVANE_HAS_STACK_CLASH_PROTECTION)
    target_compile_options(${target} PRIVATE -fstack-clash-protection)
  endif()
  if(CORVANE_HAS_CF_PROTECTION)
    target_compile_options(${target} PRIVATE -fcf-protection)
  endif()
  if(NOT _corvane_fortify_level_is_set)
    # The fortified functions need the optimiser, and they would hide calls from the sanitizers' interceptors.
    target_compile_options(${target} PRIVATE $<${_corvane_shipped}:-D_FORTIFY_SOURCE=2>)
  endif()
endfunction()

# Nothing of the folders and of the time of the build comes into what is shipped: whoever builds the same sources gets the same
# bytes. An absolute path in the run path would leave its length behind even after the installation has replaced it.
function(_corvane_make_reproducible target)
  set_target_properties(${target} PROPERTIES BUILD_RPATH_USE_ORIGIN ON)
  target_compile_options(
    ${target} PRIVATE $<${_corvane_shipped}:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>
                      $<${_corvane_shipped}:-ffile-prefix-map=${PROJECT_BINARY_DIR}=build>
                      $<${_corvane_shipped}:-Wdate-time>)
endfunction()

function(_corvane_instrument target)
  if(CORVANE_SANITIZE)
    set(flags -fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # Instrumentation hides initialisations from this check (GCC's manual says so under -fsanitize), in std::regex for
      # one. The other builds keep it.
      target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
    target_compile_options(${target} PRIVATE ${flags} -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE ${flags})
  endif()
  if(CORVANE_COVERAGE)
    target_link_options(${target} PRIVATE --coverage) # for the objects of others, too
    if(NOT CORVANE_COMPILE_QUICKLY) # what tests is not what is measured
      corvane_count_lines(${target})
    endif()
  endif()
endfunction()

# corvane_count_lines(<target>): has its sources count what is executed, when that is asked for. For a target among the tests that
# compiles a source of the library anew.
function(corvane_count_lines target)
  if(CORVANE_COVERAGE)
    # Threads that count at once must not lose each other's counts: below zero they are refused when they are read.
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
  endif()
endfunction()

# corvane_join_sources(<target>): has several of its sources compiled as one when CORVANE_JOIN_SOURCES is ON. Most of what the
# compiler does for a test it does for the headers of GoogleTest, and for the program for those of its libraries, once for each
# source. Each still has to compile alone: in the debug preset and for the analyses it does.
function(corvane_join_sources target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD "${CORVANE_JOIN_SOURCES}" UNITY_BUILD_BATCH_SIZE 6)
endfunction()

function(corvane_configure_library target)
  set_target_properties(${target} PROPERTIES VERSION 1.0 SOVERSION 1.0
                                             ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
  if(NOT CORVANE_INSTALL)
    return()
  endif()
  install(
    TARGETS ${target}
    EXPORT CorvaneTargets
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT devel
    ARCHIVE COMPONENT devel
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT devel)
endfunction()
