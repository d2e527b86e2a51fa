# Installs libraries, headers, the Fortran module's source, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

# A folder of their own, which the CMake targets and pkg-config name: sources include headers by their bare names, and the folder that all
# libraries share holds none of ours.
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/KVOMtxLinearAlgebra)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KVOMtxLinearAlgebra)

set_target_properties(KVOMtxLinearAlgebra PROPERTIES INSTALL_RPATH $ORIGIN) # finds the platform beside it
install(TARGETS KVOPlatform KVOMtxLinearAlgebra EXPORT KVOMtxLinearAlgebraTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development)
# Apart: its factorization wants METIS and the run time of Fortran, which the matrix library does without.
install(TARGETS KVOMtxModes EXPORT KVOMtxLinearAlgebraTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT modes NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development)
install(EXPORT KVOMtxLinearAlgebraTargets NAMESPACE KVO:: DESTINATION ${package_dir} COMPONENT development)

# A compiled Fortran module fits one compiler only, so its source is what is installed.
install(FILES ${PROJECT_SOURCE_DIR}/fortran/kvo_mtx.f90 ${PROJECT_SOURCE_DIR}/modes/fortran/kvo_mtx_modes.f90
    DESTINATION ${header_dir} COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KVOMtxLinearAlgebraConfig.cmake.in
    ${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebraConfig.cmake INSTALL_DESTINATION ${package_dir} PATH_VARS header_dir)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebraConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
        ${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebraConfig.cmake
        ${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebraConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)

# Relative to the file itself, so that the installed tree can be moved.
file(RELATIVE_PATH prefix_from_libdir /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
set(KVO_PC_PREFIX "\${pcfiledir}/${prefix_from_libdir}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/KVOMtxLinearAlgebra.pc.in ${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebra.pc @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/KVOMtxModes.pc.in ${PROJECT_BINARY_DIR}/KVOMtxModes.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/KVOMtxLinearAlgebra.pc ${PROJECT_BINARY_DIR}/KVOMtxModes.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
