# Debian packages of what KVOInstall.cmake and tools/ install, one per component; scripts/build-packages.sh makes them.

find_program(KVO_DPKG_SHLIBDEPS dpkg-shlibdeps DOC "Tells which packages a program's libraries come from")
mark_as_advanced(KVO_DPKG_SHLIBDEPS)
if(NOT PROJECT_IS_TOP_LEVEL OR NOT KVO_BUILD_TOOLS OR NOT KVO_DPKG_SHLIBDEPS)
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# The libraries in the folder of the architecture. No other installation has these components, nor a package those of lib/.
kvo_install_libraries(lib/${CMAKE_LIBRARY_ARCHITECTURE} debian_ EXCLUDE_FROM_ALL)
set(CPACK_COMPONENTS_ALL debian_runtime debian_modes debian_development debian_documents tools)
if(KVO_BUILD_MPI)
    list(APPEND CPACK_COMPONENTS_ALL mpi)
endif()
if(KVO_BUILD_PYTHON)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # the first line of each description below is that package's own
set(KVO_MAINTAINER "KVOMtxLinearAlgebra developers <maintainers@kvomtxlinearalgebra.org>" CACHE STRING
    "Who answers for the Debian packages: NAME <ADDRESS>")
set(CPACK_PACKAGE_CONTACT ${KVO_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/packages/finish_tree.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/packages/finish_packages.cmake)
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip) # that script packs again
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What the libraries and kvomtx need is read from the files themselves. BLAS and LAPACK come out as "libblas3 | libblas.so.3" and
# "liblapack3 | liblapack.so.3": any provider that the system's alternatives know.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/modes)

# Headers, libraries and program of different versions never meet.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEBIAN_MODES_DEPENDS debian_runtime)
set(CPACK_COMPONENT_DEBIAN_DEVELOPMENT_DEPENDS debian_runtime debian_modes)
set(CPACK_COMPONENT_TOOLS_DEPENDS debian_runtime debian_modes)
set(CPACK_COMPONENT_MPI_DEPENDS debian_runtime debian_modes)
set(CPACK_COMPONENT_PYTHON_DEPENDS debian_runtime debian_modes)

set(CPACK_DEBIAN_DEBIAN_RUNTIME_PACKAGE_NAME libkvomtxlinearalgebra${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# What other packages' programs come to need of the libraries: this version's names or newer ones. CPack itself would name the revision, too.
configure_file(${CMAKE_CURRENT_LIST_DIR}/packages/shlibs.in ${PROJECT_BINARY_DIR}/package-control/shlibs @ONLY)
set(CPACK_DEBIAN_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/packages/triggers ${PROJECT_BINARY_DIR}/package-control/shlibs)
set(CPACK_DEBIAN_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libopenblas0 | libblis4 | libatlas3-base") # tuned to the processor, unlike libblas3
set(CPACK_DEBIAN_DEBIAN_RUNTIME_DESCRIPTION "Matrix linear algebra for finite-element solvers - libraries
Dense and sparse matrices in memory with products, factorization and a
generalized eigensolver, the same out of core in a simulation database on
HDF5, and a Fortran-callable layer over BLAS and LAPACK that is not bound to
one provider.
.
This package holds the shared libraries.")

set(CPACK_DEBIAN_DEBIAN_MODES_PACKAGE_NAME libkvomtxmodes${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEBIAN_MODES_PACKAGE_SECTION libs)
configure_file(${CMAKE_CURRENT_LIST_DIR}/packages/shlibs_modes.in ${PROJECT_BINARY_DIR}/package-control/modes/shlibs @ONLY)
set(CPACK_DEBIAN_DEBIAN_MODES_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/packages/triggers ${PROJECT_BINARY_DIR}/package-control/modes/shlibs)
set(CPACK_DEBIAN_DEBIAN_MODES_DESCRIPTION "Natural modes of finite-element models - library
The lowest eigenpairs of a sparse stiffness and mass pair, or all of an
interval, by block Lanczos with shift-invert, none missed; and the sparse
symmetric factorization behind it, in memory or on disk.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkvomtxlinearalgebra-dev)
set(CPACK_DEBIAN_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF) # it holds no program or library of its own
set(CPACK_DEBIAN_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "cmake, g++, gfortran, pkg-config")
set(CPACK_DEBIAN_DEBIAN_DEVELOPMENT_DESCRIPTION "Matrix linear algebra for finite-element solvers - development files
Headers, the source of the Fortran module kvo_mtx, and the files that CMake
and pkg-config need to build and link programs against the libraries, which
lie in their own package.")

set(CPACK_DEBIAN_DEBIAN_DOCUMENTS_PACKAGE_NAME libkvomtxlinearalgebra-doc)
set(CPACK_DEBIAN_DEBIAN_DOCUMENTS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DEBIAN_DOCUMENTS_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEBIAN_DOCUMENTS_PACKAGE_SUGGESTS libkvomtxlinearalgebra-dev)
set(CPACK_DEBIAN_DEBIAN_DOCUMENTS_DESCRIPTION "Matrix linear algebra for finite-element solvers - documents
How the library and its programs work, are used, and what they measure;
examples in C++, Fortran and Python; and the reference of all classes and
entry points.")
# As in the checkout, where they name each other. The reference is that of scripts/build-docs.sh, where it was run.
set(document_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/libkvomtxlinearalgebra-doc)
install(FILES README.md CONTRIBUTING.md SECURITY.md THIRD-PARTY.md DESTINATION ${document_dir} COMPONENT debian_documents EXCLUDE_FROM_ALL)
install(DIRECTORY docs examples DESTINATION ${document_dir} COMPONENT debian_documents EXCLUDE_FROM_ALL
    PATTERN kvomtx*.1 EXCLUDE PATTERN __pycache__ EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/reference DESTINATION ${document_dir} COMPONENT debian_documents EXCLUDE_FROM_ALL OPTIONAL)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/packages/libkvomtxlinearalgebra-doc.doc-base RENAME libkvomtxlinearalgebra-doc
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc-base COMPONENT debian_documents EXCLUDE_FROM_ALL)

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kvomtx)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "fonts-dejavu-core | fonts-liberation | fonts-freefont-ttf") # pictures have text
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Natural frequencies and matrix files of finite-element models
Computes the lowest natural frequencies and mode shapes of a stiffness and
mass pair out of core, makes brick models, looks at, converts, draws and
multiplies matrices in files and simulation databases.")

set(CPACK_DEBIAN_MPI_PACKAGE_NAME kvomtx-mpi)
set(CPACK_DEBIAN_MPI_PACKAGE_SECTION science)
set(CPACK_DEBIAN_MPI_PACKAGE_RECOMMENDS openmpi-bin)
set(CPACK_DEBIAN_MPI_DESCRIPTION "Natural frequencies of finite-element models on many processes
Computes the lowest natural frequencies and mode shapes of a stiffness and
mass pair, and products of stored matrices, on the ranks of mpirun, by
SLEPc, MUMPS and ScaLAPACK.
.
Debian's PETSc, which it links, has parts under the GPL: this package is for
use under their terms, and no other one needs it.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kvo)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
# The extension is that of one version of Python.
if(KVO_BUILD_PYTHON)
    math(EXPR kvo_next_python "${KVO_PYTHON_MINOR} + 1")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
        "python3 (>= 3.${KVO_PYTHON_MINOR}), python3 (<< 3.${kvo_next_python}), python3-numpy, python3-scipy")
endif()
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-matplotlib, python3-tqdm, kvomtx")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Matrices and natural modes of finite-element models - Python
Simulation databases slice by slice as arrays of NumPy, their sparse matrices
as those of SciPy, mapped where they lie, products out of core, matrix files,
and the lowest natural modes of a stiffness and mass pair, none missed.")

# The text in NAME as a field's value that goes over lines: each begins with a space, an empty one is a full stop.
function(kvo_indent_paragraphs name)
    string(STRIP "${${name}}" text)
    string(REGEX REPLACE "[ \t]+\n" "\n" text "${text}")
    string(REGEX REPLACE "\n\n+" "\n.\n" text "${text}")
    string(REPLACE "\n" "\n " text " ${text}")
    set(${name} "${text}" PARENT_SCOPE)
endfunction()

# What only Debian wants, so left out of a plain installation: the changes, and the notices of what was compiled in.
# kvo_add_package_documents(COMPONENT [TERMS TEXT] [COMPILED_IN PACKAGE...])
function(kvo_add_package_documents component)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TERMS" "COMPILED_IN")
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(folder ${PROJECT_BINARY_DIR}/package-documents/${component})

    string(TIMESTAMP date "%a, %d %b %Y 00:00:00 +0000" UTC)
    configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/packages/changelog.Debian.in ${folder}/changelog.Debian @ONLY)
    kvo_add_gzipped_file(${component}_debian_changelog ${folder}/changelog.Debian ${folder}/changelog.Debian.gz)

    # Machine-readable: the project's licence as LICENSE states it, and the whole notice of each part, which is to go with the binary.
    file(READ ${PROJECT_SOURCE_DIR}/LICENSE licence)
    string(REGEX MATCH "SPDX-License-Identifier: ([^\n]+)" unused "${licence}")
    set(identifier ${CMAKE_MATCH_1})
    string(REGEX MATCH "\nCopyright ([^\n]+)" unused "${licence}")
    set(holder ${CMAKE_MATCH_1})
    kvo_indent_paragraphs(licence)
    set(copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: ${PROJECT_NAME}
Upstream-Contact: ${KVO_MAINTAINER}
${arg_TERMS}
Files: *
Copyright: ${holder}
License: ${identifier}

License: ${identifier}
${licence}
")
    foreach(part IN LISTS arg_COMPILED_IN)
        if(EXISTS /usr/share/doc/${part}/copyright)
            file(READ /usr/share/doc/${part}/copyright notice)
            string(REGEX MATCH "\nFiles: +[*]\nCopyright: ([^\n]*(\n +[^\n]*)*)\nLicense: +([^\n ]+)" unused "${notice}")
            set(holder ${CMAKE_MATCH_1})
            set(identifier ${CMAKE_MATCH_3}-of-${part}) # texts under one name differ from part to part
            kvo_indent_paragraphs(notice)
            string(APPEND copyright "
Files: compiled-in/${part}/*
Copyright: ${holder}
License: ${identifier}
Comment: Parts of Debian's package ${part} are compiled in.

License: ${identifier}
${notice}
")
        endif()
    endforeach()
    file(CONFIGURE OUTPUT ${folder}/copyright CONTENT "@copyright@" @ONLY)

    install(FILES ${folder}/copyright ${folder}/changelog.Debian.gz ${PROJECT_BINARY_DIR}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
kvo_add_gzipped_file(project_changelog ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_BINARY_DIR}/changelog.gz)
kvo_add_package_documents(debian_runtime COMPILED_IN libblis-serial-dev)
kvo_add_package_documents(debian_modes COMPILED_IN libmumps-seq-dev libscotch-dev)
kvo_add_package_documents(debian_development)
kvo_add_package_documents(debian_documents)
kvo_add_package_documents(tools COMPILED_IN libcli11-dev nlohmann-json3-dev)
if(KVO_BUILD_PYTHON)
    kvo_add_package_documents(python COMPILED_IN pybind11-dev)
    add_dependencies(kvo_python python_debian_changelog project_changelog) # the component is installed for wheels, too
    set(python_contents kvo_python python_debian_changelog)
endif()
add_custom_target(package_contents DEPENDS ${python_contents} KVOMtxLinearAlgebra KVOMtxModes kvomtx kvomtx_manual project_changelog
    debian_runtime_debian_changelog debian_modes_debian_changelog debian_development_debian_changelog debian_documents_debian_changelog
    tools_debian_changelog)
if(KVO_BUILD_MPI)
    kvo_add_package_documents(mpi COMPILED_IN libcli11-dev nlohmann-json3-dev TERMS "Comment:
 The program links Debian's build of PETSc (libpetsc-real), which links libraries
 under the GNU General Public License, such as FFTW and parts of SuiteSparse. The
 program as a whole is therefore for use under the terms of that license, version 3
 (/usr/share/common-licenses/GPL-3). No other package of this project links any of
 it or depends on this one.
")
    add_dependencies(package_contents kvomtx-mpi kvomtx_mpi_manual mpi_debian_changelog)
endif()

# "cpack --config CPackSourceConfig.cmake" makes the archive that the recipes of packaging/ build from: the checkout without what is built or
# left behind in it.
set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME kvomtxlinearalgebra-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES "^${PROJECT_SOURCE_DIR}/(build|install)/" "/[.]git/" "/[.]git$" "/[.]cache/" "/__pycache__/" "[.]sim$" "[.]sim[.]journal$"
    "/compile_commands[.]json$")

include(CPack)
