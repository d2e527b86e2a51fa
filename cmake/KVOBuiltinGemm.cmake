# The built-in DGEMM: the serial static BLIS and a small wrapper, linked beforehand into one object that shows a single name. Linked the
# usual way, the archive's own dgemm_ and xerbla_ would satisfy the forwards, and the provider would never be called.

find_library(KVO_BLIS_LIBRARY libblis.a PATH_SUFFIXES blis-serial DOC "Static BLIS 0.9, serial, position-independent" REQUIRED)
find_path(KVO_BLIS_INCLUDE_DIR blis.h PATH_SUFFIXES blis-serial DOC "Folder of that library's blis.h" REQUIRED)
mark_as_advanced(KVO_BLIS_LIBRARY KVO_BLIS_INCLUDE_DIR)

# kvo_add_kernel_object(TARGET FUNCTION source ...): an interface target that brings one object into what links to it. The object holds the
# sources and what they need of BLIS; of its names only FUNCTION can be seen.
# The target's property KVO_OBJECT is its path.
function(kvo_add_kernel_object target function)
    add_library(${target}_sources OBJECT ${ARGN})
    target_include_directories(${target}_sources SYSTEM PRIVATE ${KVO_BLIS_INCLUDE_DIR})
    set_target_properties(${target}_sources PROPERTIES
        C_STANDARD 11
        C_VISIBILITY_PRESET hidden
        POSITION_INDEPENDENT_CODE ON
        INTERPROCEDURAL_OPTIMIZATION OFF)
    target_link_libraries(${target}_sources PRIVATE $<BUILD_INTERFACE:kvo_warnings>)

    set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
    add_custom_command(
        OUTPUT ${object}
        COMMAND ${CMAKE_LINKER} -r $<TARGET_OBJECTS:${target}_sources> ${KVO_BLIS_LIBRARY} -o ${object}.all
        COMMAND ${CMAKE_OBJCOPY} --keep-global-symbol=${function} ${object}.all ${object}
        COMMAND ${CMAKE_COMMAND} -E rm ${object}.all
        DEPENDS ${target}_sources $<TARGET_OBJECTS:${target}_sources> ${KVO_BLIS_LIBRARY}
        COMMAND_EXPAND_LISTS VERBATIM)
    add_custom_target(${target}_object DEPENDS ${object})
    add_library(${target} INTERFACE)
    set_target_properties(${target} PROPERTIES KVO_OBJECT ${object})
    add_dependencies(${target} ${target}_object)
    target_link_libraries(${target} INTERFACE ${object} m)
endfunction()
