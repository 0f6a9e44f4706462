# corvane_configure_target(<target>): the settings that every target built here shares. All of them are PRIVATE, so
# that a consumer never inherits our warnings or hardening.
#
# corvane_configure_library(<target>): in addition, soname, include path and install rules of a shared library whose
# public headers are in its file set HEADERS.

include_guard(GLOBAL)
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

check_pie_supported()

# A GNU unique symbol pins its library in the process: dlclose would then unload nothing. Clang never emits them and
# does not know the option.
check_cxx_compiler_flag(-fno-gnu-unique CORVANE_HAS_NO_GNU_UNIQUE)

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
  _corvane_instrument(${target})
endfunction()

function(_corvane_harden target)
  target_compile_options(${target} PRIVATE -fstack-protector-strong)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
  if(NOT CORVANE_SANITIZE)
    # The fortified functions need the optimiser, and they would hide calls from the sanitizers' interceptors.
    target_compile_options(
      ${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
    # A sanitized library resolves the run-time's symbols from the program, so this check is for the others.
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
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
    target_compile_options(${target} PRIVATE --coverage)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

function(corvane_configure_library target)
  set_target_properties(
    ${target}
    PROPERTIES VERSION 1.0
               SOVERSION 1.0
               INSTALL_RPATH "$ORIGIN")
  install(
    TARGETS ${target}
    EXPORT CorvaneTargets
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT devel
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT devel)
endfunction()
