# The API reference in HTML: the public headers, the Fortran module and the documents of docs/, with README.md as its first page.
# A warning, such as a public name without a docstring or a link that leads nowhere, fails the build; so does a link that Doxygen did not
# take for one, of which it does not warn (its text goes over the end of a line), and the builder's path in a page.

option(KVO_BUILD_DOCS "Build and install the API reference (Doxygen)" OFF)
if(NOT KVO_BUILD_DOCS)
    return()
endif()
find_package(Doxygen 1.9.4 REQUIRED)

set(sources ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md ${PROJECT_SOURCE_DIR}/SECURITY.md
    ${PROJECT_SOURCE_DIR}/THIRD-PARTY.md ${PROJECT_SOURCE_DIR}/examples/README.md
    ${PROJECT_SOURCE_DIR}/fortran/kvo_mtx.f90 ${PROJECT_SOURCE_DIR}/modes/fortran/kvo_mtx_modes.f90)
foreach(target KVOMtxLinearAlgebra KVOMtxModes KVOPlatform)
    get_target_property(headers ${target} HEADER_SET)
    list(APPEND sources ${headers})
endforeach()
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md) # a page needs no entry anywhere else
list(APPEND sources ${pages})

set(groups ${CMAKE_CURRENT_LIST_DIR}/docs/groups.dox)
list(APPEND sources ${groups})
set(DOXYGEN_EXAMPLE_PATH ${PROJECT_SOURCE_DIR}/examples)
set(DOXYGEN_EXAMPLE_RECURSIVE YES)
# Parts of others that stand in installed headers only because these need them.
set(DOXYGEN_EXCLUDE_SYMBOLS *::Repr KVOBasMaker KVOBasUnusedFile KVOBasFolderMark omi_SingletonBase atr_StringBase
    cow_BtreeStack cow_BtreeChanges cow_BtreeNodeLink cow_BtreeNode cow_BtreePool cow_Direct)

set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
set(DOXYGEN_HTML_OUTPUT reference)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/README.md)
set(DOXYGEN_IMAGE_PATH ${PROJECT_SOURCE_DIR}/docs)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR})
set(DOXYGEN_FILTER_PATTERNS
    "*.h=sed -E -f ${CMAKE_CURRENT_LIST_DIR}/docs/header.sed"
    "*.f90=sed -E -f ${CMAKE_CURRENT_LIST_DIR}/docs/fortran.sed")
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_ALIASES "complexity=@par Complexity^^")
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED KVO_EXPORT=)
set(DOXYGEN_HAVE_DOT NO)

set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_WARN_IF_INCOMPLETE_DOC NO) # docstrings name the parameters of which there is something to say
# Built anew when one of these has changed.
doxygen_add_docs(docs ALL USE_STAMP_FILE ${sources})
file(GLOB images CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/images/*)
add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/docs.stamp APPEND
    DEPENDS ${images} ${CMAKE_CURRENT_LIST_DIR}/docs/header.sed ${CMAKE_CURRENT_LIST_DIR}/docs/fortran.sed)
add_custom_command(TARGET docs POST_BUILD # README.md shows pictures by their path
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/docs/images ${PROJECT_BINARY_DIR}/reference/docs/images)
add_custom_command(TARGET docs POST_BUILD
    COMMAND ${CMAKE_COMMAND} -D pages=${PROJECT_BINARY_DIR}/reference -D source=${PROJECT_SOURCE_DIR}
        -P ${CMAKE_CURRENT_LIST_DIR}/docs/check_pages.cmake)
add_custom_command(TARGET docs POST_BUILD
    COMMAND ${CMAKE_COMMAND} -D pages=${PROJECT_BINARY_DIR}/reference -D groups=${groups} -P ${CMAKE_CURRENT_LIST_DIR}/docs/check_groups.cmake)
install(DIRECTORY ${PROJECT_BINARY_DIR}/reference DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
