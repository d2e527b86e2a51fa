# Run by CPack after it packed. What its generator has no words for: packages of several architectures side by side, the names that each
# library shows with the version that they came with (symbols), and the loader's cache by a trigger alone, without scripts.
# "(symver)NODE VERSION" stands for all names of that node of the version script; a name without a node is an error (-c4).
if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return() # the source archive
endif()
find_program(DPKG_DEB dpkg-deb REQUIRED)
find_program(DPKG_GENSYMBOLS dpkg-gensymbols REQUIRED)

set(templates ${CMAKE_CURRENT_LIST_DIR}/symbols)
foreach(package_file IN LISTS CPACK_PACKAGE_FILES)
    set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND ${DPKG_DEB} --raw-extract ${package_file} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)

    file(STRINGS ${tree}/DEBIAN/control package REGEX "^Package: ")
    string(REPLACE "Package: " "" package ${package})
    set(kind "")
    if(package MATCHES "^lib.*-doc$")
        set(kind "Multi-Arch: foreign\n")
    elseif(package MATCHES "^lib")
        set(kind "Multi-Arch: same\n")
    endif()
    file(READ ${tree}/DEBIAN/control control)
    file(WRITE ${tree}/DEBIAN/control "${kind}${control}")
    if(EXISTS ${templates}/${package}.symbols)
        execute_process(
            COMMAND ${DPKG_GENSYMBOLS} -c4 -p${package} -v${CPACK_PACKAGE_VERSION} -P${tree} -I${templates}/${package}.symbols
            WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
    endif()

    execute_process(COMMAND ${DPKG_DEB} --root-owner-group -Zxz -z1 --build ${tree} ${package_file} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endforeach()
