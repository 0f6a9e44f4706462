# Installs what the targets do not install by themselves: the program, the CMake package and the pkg-config files. All
# of it finds its parts relative to its own place, so that an installed tree may be moved.

include_guard(GLOBAL)
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Corvane")

install(
  EXPORT CorvaneTargets
  NAMESPACE Corvane::
  DESTINATION "${package_dir}"
  COMPONENT devel)

set_target_properties(zn PROPERTIES INSTALL_RPATH "$ORIGIN") # where the base library is; that one needs none of ours
if(TARGET corvane)
  set_target_properties(corvane PROPERTIES EXPORT_NAME cli)
  if(NOT CORVANE_CLI_IS_STATIC)
    file(RELATIVE_PATH lib_from_bin "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
    set_target_properties(corvane PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
  endif()
  install(
    TARGETS corvane
    EXPORT CorvaneCliTargets
    RUNTIME COMPONENT cli)
  # A file of its own: the package is usable where the development files are installed and the program is not.
  install(
    EXPORT CorvaneCliTargets
    NAMESPACE corvane::
    DESTINATION "${package_dir}"
    COMPONENT cli)
endif()

configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/CorvaneConfig.cmake.in" "${PROJECT_BINARY_DIR}/cmake/CorvaneConfig.cmake"
  INSTALL_DESTINATION "${package_dir}")
# The soname carries both numbers: another minor release is another interface.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/cmake/CorvaneConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/cmake/CorvaneConfig.cmake" "${PROJECT_BINARY_DIR}/cmake/CorvaneConfigVersion.cmake"
  DESTINATION "${package_dir}"
  COMPONENT devel)

file(RELATIVE_PATH prefix_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
set(pkgconfig_prefix "\${pcfiledir}/${prefix_from_pkgconfig}")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  # pkg-config leaves out the folders that the compiler searches anyway only when it sees them by these names.
  set(pkgconfig_prefix /usr)
endif()
set(pkgconfig_needs_of_zn "")
set(pkgconfig_needs_of_zps "")
set(pkgconfig_threads "")
if(NOT CORVANE_SHARED)
  # Not in the private fields: with `pkg-config --static` came all that an archive of libcurl would need, which few systems have.
  set(pkgconfig_needs_of_zn ", libcurl, libcrypto")
  set(pkgconfig_needs_of_zps "Requires: libcurl\n")
  if(CMAKE_THREAD_LIBS_INIT)
    set(pkgconfig_threads " ${CMAKE_THREAD_LIBS_INIT}")
  endif()
endif()
foreach(name IN ITEMS zn zps)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in" "${PROJECT_BINARY_DIR}/cmake/${name}.pc" @ONLY)
  install(
    FILES "${PROJECT_BINARY_DIR}/cmake/${name}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT devel)
endforeach()

install(
  FILES "${PROJECT_SOURCE_DIR}/LICENSE"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT runtime)
# The README with all that its links, and those of the pages, lead to.
install(
  FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_SOURCE_DIR}/CONTRIBUTING.md"
        "${PROJECT_SOURCE_DIR}/SECURITY.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT devel)
install(
  DIRECTORY "${PROJECT_SOURCE_DIR}/docs"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT devel
  FILES_MATCHING
  PATTERN "*.md"
  PATTERN "*.svg"
  PATTERN man EXCLUDE
  PATTERN site EXCLUDE)
install(
  DIRECTORY "${PROJECT_SOURCE_DIR}/examples"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  COMPONENT devel
  FILES_MATCHING
  PATTERN "*.md"
  PATTERN "*.cpp"
  PATTERN "*.h")
# Named after the package, as files of this folder are shared with all libraries; the names of the classes are in the pages' NAME,
# where the index of the manual takes them from.
set(manual "${PROJECT_SOURCE_DIR}/docs/man")
install(
  FILES "${manual}/corvane-zgethostbyname.3" "${manual}/corvane-zmultidownload.3" "${manual}/corvane-zthrottle.3"
        "${manual}/corvane-ztransfer.3" "${manual}/corvane-ztransferoptions.3" "${manual}/corvane-ztreedownload.3"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man3"
  COMPONENT devel)
