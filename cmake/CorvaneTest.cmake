# corvane_add_test(NAME <name> SOURCES <file>... [LIBS <target>...] [TIMEOUT <seconds>] [LABELS <label>...]
#                  [ENVIRONMENT <operation>...] [ONE_PROCESS] [RUN_SERIAL] [NO_MAIN])
#
# Builds the GoogleTest program <build>/bin/tests/<name> and registers every case of it with ctest as <name>.<case>,
# each run in a process of its own.
#   TIMEOUT      seconds for one registered test, 120 if not given.
#   ENVIRONMENT  further operations in the form of the test property ENVIRONMENT_MODIFICATION, "NAME=set:value".
#   ONE_PROCESS  registers the whole program as the one test <name>: for a fixture too costly to set up for each case.
#   RUN_SERIAL   never runs beside another test.
#   NO_MAIN      the sources have their own main().

include_guard(GLOBAL)
include(GoogleTest)

# libcurl obeys these by itself, and a test that reaches a proxy is no test of the loopback.
set(_corvane_test_environment "")
foreach(name IN ITEMS http_proxy https_proxy ftp_proxy all_proxy no_proxy)
  string(TOUPPER ${name} upper)
  list(APPEND _corvane_test_environment "${name}=unset:" "${upper}=unset:")
endforeach()
# A sanitizer that only prints would let the test pass.
list(APPEND _corvane_test_environment "ASAN_OPTIONS=set:detect_stack_use_after_return=1:strict_string_checks=1"
     "UBSAN_OPTIONS=set:print_stacktrace=1:halt_on_error=1" "TSAN_OPTIONS=set:halt_on_error=1:second_deadlock_stack=1")

function(corvane_add_test)
  cmake_parse_arguments(PARSE_ARGV 0 arg "ONE_PROCESS;RUN_SERIAL;NO_MAIN" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS;ENVIRONMENT")
  if(arg_UNPARSED_ARGUMENTS OR NOT arg_NAME OR NOT arg_SOURCES)
    message(FATAL_ERROR "corvane_add_test: needs NAME and SOURCES, does not know '${arg_UNPARSED_ARGUMENTS}'")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()

  add_executable(${arg_NAME} ${arg_SOURCES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS} GTest::gmock)
  if(NOT arg_NO_MAIN)
    target_link_libraries(${arg_NAME} PRIVATE GTest::gmock_main)
  endif()
  corvane_configure_target(${arg_NAME})
  set_target_properties(${arg_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin/tests")

  if(arg_ONE_PROCESS)
    add_test(NAME ${arg_NAME} COMMAND ${arg_NAME})
    set_tests_properties(
      ${arg_NAME}
      PROPERTIES TIMEOUT "${arg_TIMEOUT}"
                 RUN_SERIAL "${arg_RUN_SERIAL}"
                 LABELS "${arg_LABELS}"
                 ENVIRONMENT_MODIFICATION "${_corvane_test_environment};${arg_ENVIRONMENT}")
  else()
    _corvane_discover(${arg_NAME} "${arg_TIMEOUT}" "${arg_RUN_SERIAL}" "${arg_LABELS}" "${arg_ENVIRONMENT}")
  endif()
endfunction()

# The cases are asked for when ctest starts, not at each link: linking stays quick, and a program that cannot even list
# its cases fails the test run and not the build.
function(_corvane_discover name timeout serial labels environment)
  gtest_discover_tests(
    ${name}
    TEST_PREFIX "${name}."
    TEST_LIST ${name}_CASES
    NO_PRETTY_TYPES
    NO_PRETTY_VALUES
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60)
  # The cases are known only to ctest, and gtest_discover_tests loses properties whose value is a list; so ctest sets
  # them itself, from this file, which it reads after the discovery.
  set(file "${CMAKE_CURRENT_BINARY_DIR}/${name}_properties.cmake")
  file(
    GENERATE
    OUTPUT "${file}"
    CONTENT
      "if(${name}_CASES)
  set_tests_properties(
    \${${name}_CASES}
    PROPERTIES TIMEOUT \"${timeout}\"
               RUN_SERIAL \"${serial}\"
               LABELS \"${labels}\"
               ENVIRONMENT_MODIFICATION \"${_corvane_test_environment};${environment}\")
endif()
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${file}")
endfunction()

# corvane_add_script_test(NAME <name> COMMAND <argument>... [TIMEOUT <seconds>] [LABELS <label>...] [RUN_SERIAL])
#
# Registers a command as a test, under the same rules as the programs above. Exit status 77 means skipped. A generator
# expression that is a list becomes as many arguments.
function(corvane_add_script_test)
  cmake_parse_arguments(PARSE_ARGV 0 arg "RUN_SERIAL" "NAME;TIMEOUT" "COMMAND;LABELS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_test(NAME ${arg_NAME} COMMAND ${arg_COMMAND} COMMAND_EXPAND_LISTS)
  set_tests_properties(
    ${arg_NAME}
    PROPERTIES TIMEOUT ${arg_TIMEOUT}
               RUN_SERIAL ${arg_RUN_SERIAL}
               LABELS "${arg_LABELS}"
               SKIP_RETURN_CODE 77
               ENVIRONMENT_MODIFICATION "${_corvane_test_environment}")
endfunction()
