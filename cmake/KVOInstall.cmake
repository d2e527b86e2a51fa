# Installs libraries, headers, the Fortran module's source, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

# A folder of their own, which the CMake targets and pkg-config name: sources include headers by their bare names, and the folder that all
# libraries share holds none of ours.
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/KVOMtxLinearAlgebra)

set_target_properties(KVOMtxLinearAlgebra KVOMtxModes PROPERTIES INSTALL_RPATH $ORIGIN) # finds the platform beside it
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebraConfigVersion.cmake COMPATIBILITY SameMajorVersion)

# kvo_install_libraries(LIBDIR PREFIX [EXCLUDE_FROM_ALL]): all of it with the libraries in LIBDIR, as the components PREFIXruntime, PREFIXmodes
# and PREFIXdevelopment. Debian's packages have a folder of their own for the libraries, so that those of several architectures can be
# installed side by side; the CMake package and the pkg-config file lie in it and know their way to the headers from there.
function(kvo_install_libraries libdir prefix)
    set(package_dir ${libdir}/cmake/KVOMtxLinearAlgebra)
    set(made_files ${PROJECT_BINARY_DIR}/install-files/${libdir})

    install(TARGETS KVOPlatform KVOMtxLinearAlgebra EXPORT ${prefix}targets
        LIBRARY DESTINATION ${libdir} COMPONENT ${prefix}runtime NAMELINK_COMPONENT ${prefix}development ${ARGN}
        FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT ${prefix}development ${ARGN})
    # Apart: its factorization wants METIS and the run time of Fortran, which the matrix library does without.
    install(TARGETS KVOMtxModes EXPORT ${prefix}targets
        LIBRARY DESTINATION ${libdir} COMPONENT ${prefix}modes NAMELINK_COMPONENT ${prefix}development ${ARGN}
        FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT ${prefix}development ${ARGN})
    install(EXPORT ${prefix}targets NAMESPACE KVO:: FILE KVOMtxLinearAlgebraTargets.cmake
        DESTINATION ${package_dir} COMPONENT ${prefix}development ${ARGN})

    # A compiled Fortran module fits one compiler only, so its source is what is installed.
    install(FILES ${PROJECT_SOURCE_DIR}/fortran/kvo_mtx.f90 ${PROJECT_SOURCE_DIR}/modes/fortran/kvo_mtx_modes.f90
        DESTINATION ${header_dir} COMPONENT ${prefix}development ${ARGN})

    configure_package_config_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/KVOMtxLinearAlgebraConfig.cmake.in
        ${made_files}/KVOMtxLinearAlgebraConfig.cmake INSTALL_DESTINATION ${package_dir} PATH_VARS header_dir)
    install(FILES ${made_files}/KVOMtxLinearAlgebraConfig.cmake ${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebraConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT ${prefix}development ${ARGN})

    # Relative to the file itself, so that the installed tree can be moved.
    file(RELATIVE_PATH prefix_from_libdir /prefix/${libdir}/pkgconfig /prefix)
    set(KVO_PC_PREFIX "\${pcfiledir}/${prefix_from_libdir}")
    foreach(name KVOMtxLinearAlgebra KVOMtxModes)
        configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${name}.pc.in ${made_files}/${name}.pc @ONLY)
        install(FILES ${made_files}/${name}.pc DESTINATION ${libdir}/pkgconfig COMPONENT ${prefix}development ${ARGN})
    endforeach()
endfunction()

kvo_install_libraries(${CMAKE_INSTALL_LIBDIR} "")
