find_program(KVO_BFD_LINKER ld.bfd DOC "GNU's linker, which gives common blocks a place" REQUIRED)
mark_as_advanced(KVO_BFD_LINKER)

# kvo_add_local_object(TARGET FUNCTION SOURCES file... ARCHIVES file... INCLUDES folder...): an interface target that brings one object into
# what links to it: the sources, in C, and what they need of static archives. Of its names only FUNCTION can be seen, so that a host that
# brings the same library, in another version or build, never meets these names.
#
# Common blocks of Fortran are given their place here, or they would stay global. A function of the sources goes before one of the same name
# in an archive. The target's property KVO_OBJECT is the object's path.
function(kvo_add_local_object target function)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;ARCHIVES;INCLUDES")
    add_library(${target}_sources OBJECT ${arg_SOURCES})
    target_include_directories(${target}_sources SYSTEM PRIVATE ${arg_INCLUDES})
    set_target_properties(${target}_sources PROPERTIES
        C_STANDARD 11
        C_VISIBILITY_PRESET hidden
        POSITION_INDEPENDENT_CODE ON
        INTERPROCEDURAL_OPTIMIZATION OFF)
    target_link_libraries(${target}_sources PRIVATE $<BUILD_INTERFACE:kvo_warnings>)

    set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
    add_custom_command(
        OUTPUT ${object}
        COMMAND ${KVO_BFD_LINKER} -r -d -z muldefs $<TARGET_OBJECTS:${target}_sources> --start-group ${arg_ARCHIVES} --end-group -o ${object}.all
        COMMAND ${CMAKE_OBJCOPY} --keep-global-symbol=${function} ${object}.all ${object}
        COMMAND ${CMAKE_COMMAND} -E rm ${object}.all
        DEPENDS ${target}_sources $<TARGET_OBJECTS:${target}_sources> ${arg_ARCHIVES}
        COMMAND_EXPAND_LISTS VERBATIM)
    add_custom_target(${target}_object DEPENDS ${object})
    add_library(${target} INTERFACE)
    set_target_properties(${target} PROPERTIES KVO_OBJECT ${object})
    add_dependencies(${target} ${target}_object)
    target_link_libraries(${target} INTERFACE ${object})
endfunction()
