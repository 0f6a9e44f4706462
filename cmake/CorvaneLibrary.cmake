# corvane_add_library(<name>): the library <name> of the objects of <name>_objects, shared, or static where BUILD_SHARED_LIBS is
# OFF, and Corvane::<name> as its name. Sets CORVANE_SHARED to which of the two.
#
# A static one holds one object. From an archive of many a linker takes what is referred to, and nobody refers to what registers
# the error codes and the module. Its static objects come to be before those of the program, and the base library's first, as
# they do where each is loaded by itself; a linker goes by the order of the files otherwise, in which the program is the first.

include_guard(GLOBAL)

set(CORVANE_SHARED ON)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(CORVANE_SHARED OFF)
endif()

# _corvane_join_objects(<name> <file>): makes one object of those of <name>_objects.
function(_corvane_join_objects name file)
  set(priority_of_zps 00101) # those below are the compiler's
  set(priority_of_zn 00102)
  # What is not compiled yet cannot be joined.
  set_target_properties(${name}_objects PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
  add_custom_command(
    OUTPUT "${file}"
    COMMAND "${CMAKE_LINKER}" -r -o "${file}" "$<TARGET_OBJECTS:${name}_objects>"
    COMMAND "${CMAKE_OBJCOPY}" --rename-section .init_array=.init_array.${priority_of_${name}} "${file}"
    DEPENDS "$<TARGET_OBJECTS:${name}_objects>"
    COMMENT "Joining the objects of ${name}"
    COMMAND_EXPAND_LISTS VERBATIM)
endfunction()

function(corvane_add_library name)
  if(CORVANE_SHARED)
    add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  else()
    set(joined "${CMAKE_CURRENT_BINARY_DIR}/${name}${CMAKE_CXX_OUTPUT_EXTENSION}")
    _corvane_join_objects(${name} "${joined}")
    add_library(${name} STATIC "${joined}")
    set_source_files_properties("${joined}" PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
  endif()
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX) # it has no source of its own to tell
  add_library(Corvane::${name} ALIAS ${name})
endfunction()
