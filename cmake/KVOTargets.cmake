# What every target of the project has in common.

if((CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
    OR (CMAKE_CXX_COMPILER_ID STREQUAL Clang AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 14))
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} is ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}; g++ 12 or Clang 14 is the least (docs/building.md)")
endif()

add_library(kvo_warnings INTERFACE)
target_compile_options(kvo_warnings INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Wmissing-declarations>
    $<$<COMPILE_LANGUAGE:Fortran>:-Wall -Wextra>)

# The checks of the presets asan and tsan; a report ends the process, or lets it fail at its end.
set(KVO_SANITIZE "" CACHE STRING "Sanitizers to compile with: none, \"address,undefined\" or \"thread\"")
add_library(kvo_sanitizers INTERFACE)
if(KVO_SANITIZE)
    target_compile_options(kvo_sanitizers INTERFACE -fsanitize=${KVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(kvo_sanitizers INTERFACE -fsanitize=${KVO_SANITIZE})
endif()
if(KVO_BUILD_FUZZERS)
    target_compile_options(kvo_sanitizers INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:-fsanitize=fuzzer-no-link>)
endif()

# kvo_precompile_headers(HOLDER COMPILE LINKS LIBRARY... HEADERS HEADER...): the headers are compiled once, in the library HOLDER, for targets
# that kvo_use_precompiled_headers() names; the function COMPILE makes it be compiled as they are. Reading what most sources include takes a
# third to a half of the time that compiling them does. Not with a compiler cache, which is worth more and passes by precompiled headers unless
# it is told of them.
function(kvo_precompile_headers holder compile)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "LINKS;HEADERS")
    if(NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
        file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${holder}.cpp CONTENT "")
        add_library(${holder} OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${holder}.cpp)
        target_compile_features(${holder} PRIVATE cxx_std_20)
        cmake_language(CALL ${compile} ${holder})
        target_link_libraries(${holder} PRIVATE ${arg_LINKS})
        target_precompile_headers(${holder} PRIVATE ${arg_HEADERS})
    endif()
endfunction()

function(kvo_use_precompiled_headers target holder)
    if(TARGET ${holder})
        target_precompile_headers(${target} REUSE_FROM ${holder})
    endif()
endfunction()

# abidiff reads types and signatures from the libraries' debug information. Where no variables are tracked, it takes a tenth of the time.
option(KVO_CHECK_ABI "Compile the libraries so that their binary interface can be compared with the recorded one (GCC), and test it" OFF)

# A shared library with hidden visibility that exports what its version script names: hidden visibility alone still shows the
# instantiations of standard templates.
function(kvo_add_shared_library target export_name version_script)
    add_library(${target} SHARED)
    add_library(KVO::${export_name} ALIAS ${target})
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${export_name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        VERIFY_INTERFACE_HEADER_SETS ON
        LINK_DEPENDS ${version_script})
    kvo_compile_as_library(${target})
    kvo_use_precompiled_headers(${target} kvo_library_headers)
    target_link_options(${target} PRIVATE LINKER:--version-script=${version_script} LINKER:--no-undefined)
    if(KVO_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES Clang)
        # Clang leaves the sanitizer's symbols to the program.
        target_link_options(${target} PRIVATE LINKER:--warn-unresolved-symbols)
    endif()
endfunction()

function(kvo_compile_as_library target)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    # FMA contraction is off: vectorised and plain loops must round alike.
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-ffp-contract=off>)
    if(KVO_CHECK_ABI)
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-g2 -fno-var-tracking>)
    endif()
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:kvo_warnings> $<BUILD_INTERFACE:kvo_sanitizers>)
endfunction()

# kvo_add_room(LIBRARY ROOM SEES ROOM... SOURCES FILE...): the sources of one folder of a shared library. They see the public headers, those
# of their own folder and those of the rooms named, which were added before: an include against the order of the rooms finds no file.
# Where rooms have public headers themselves, INCLUDES names what they see instead of all public headers. With the word TOGETHER they are
# compiled as one unit, a third to an eighth of the work where they instantiate the same templates; no two may have a name of their own in
# common then.
function(kvo_add_room library room)
    cmake_parse_arguments(PARSE_ARGV 2 arg "TOGETHER" "" "INCLUDES;SEES;SOURCES")
    if(NOT arg_INCLUDES)
        set(arg_INCLUDES $<TARGET_PROPERTY:${library},INCLUDE_DIRECTORIES>)
    endif()
    set(target ${library}_${room})
    add_library(${target} OBJECT ${arg_SOURCES})
    target_compile_features(${target} PRIVATE cxx_std_20)
    kvo_compile_as_library(${target})
    kvo_use_precompiled_headers(${target} kvo_library_headers)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ${arg_TOGETHER} UNITY_BUILD_BATCH_SIZE 0)
    target_include_directories(${target} PRIVATE ${arg_INCLUDES})
    kvo_join_room(${library} ${room} ${arg_SEES})
endfunction()

# kvo_add_program_room(PROGRAM ROOM SEES ROOM... SOURCES FILE... LINKS LIBRARY...): the same for a program, whose other sources see all of its
# rooms. LINKS are what the room needs beside what every program does.
function(kvo_add_program_room program room)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SEES;SOURCES;LINKS")
    set(target ${program}_${room})
    add_library(${target} OBJECT ${arg_SOURCES})
    kvo_compile_as_program(${target})
    kvo_use_precompiled_headers(${target} ${program}_headers)
    target_link_libraries(${target} PRIVATE ${arg_LINKS})
    target_link_libraries(${program} PRIVATE ${arg_LINKS})
    target_include_directories(${program} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    kvo_join_room(${program} ${room} ${arg_SEES})
endfunction()

# The headers of the folder are seen by its sources and by those of later rooms.
function(kvo_join_room owner room)
    set(target ${owner}_${room})
    target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    foreach(seen ${ARGN})
        target_include_directories(${target} PRIVATE $<TARGET_PROPERTY:${owner}_${seen},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
    target_sources(${owner} PRIVATE $<TARGET_OBJECTS:${target}>)
endfunction()

# A program of the tests, benchmarks or examples.
function(kvo_add_program target)
    add_executable(${target} ${ARGN})
    kvo_compile_as_program(${target})
endfunction()

function(kvo_compile_as_program target)
    target_compile_features(${target} PRIVATE cxx_std_20)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    target_link_libraries(${target} PRIVATE KVO::MtxLinearAlgebra kvo_warnings kvo_sanitizers)
endfunction()

# kvo_add_gzipped_file(TARGET FILE RESULT): RESULT is FILE, packed without its name and time, so that equal input gives equal bytes.
function(kvo_add_gzipped_file target file result)
    find_program(KVO_GZIP gzip REQUIRED)
    mark_as_advanced(KVO_GZIP)
    add_custom_command(OUTPUT ${result} COMMAND ${KVO_GZIP} -9nc ${file} > ${result} DEPENDS ${file} VERBATIM)
    add_custom_target(${target} ALL DEPENDS ${result})
endfunction()
