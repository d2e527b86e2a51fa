# vcpkg: an overlay port (--overlay-ports=packaging). The source archive lies beside this file: cpack --config build/release/CPackSourceConfig.cmake.
# The system has make, flex, bison and gfortran, which vcpkg does not bring, and the libraries are shared: x64-linux-dynamic.
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
vcpkg_extract_source_archive(SOURCE_PATH ARCHIVE "${CMAKE_CURRENT_LIST_DIR}/kvomtxlinearalgebra-${VERSION}.tar.xz")

# Compiled in: as static, position-independent archives, which packaging/build-parts.sh makes.
set(parts "${CURRENT_BUILDTREES_DIR}/parts")
foreach(part IN ITEMS
        "blis|https://github.com/flame/blis/archive/0.9.0.tar.gz"
        "scotch|https://gitlab.inria.fr/scotch/scotch/-/archive/v7.0.3/scotch-v7.0.3.tar.gz"
        "mumps|https://mumps-solver.org/MUMPS_5.5.1.tar.gz")
    string(REGEX MATCH "^([a-z]+)[|](.*)$" unused "${part}")
    set(name "${CMAKE_MATCH_1}")
    set(url "${CMAKE_MATCH_2}")
    # Beside this file, or fetched before anything is built.
    set(archive "${CMAKE_CURRENT_LIST_DIR}/${name}.tar.gz")
    if(NOT EXISTS "${archive}")
        vcpkg_download_distfile(archive URLS "${url}" FILENAME "kvomtxlinearalgebra-${name}.tar.gz" SKIP_SHA512)
    endif()
    vcpkg_extract_source_archive(${name}_source ARCHIVE "${archive}")
endforeach()
set(ENV{CPATH} "${CURRENT_INSTALLED_DIR}/include")
vcpkg_execute_required_process(
    COMMAND "${SOURCE_PATH}/packaging/build-parts.sh" "${parts}" "${blis_source}" "${scotch_source}" "${mumps_source}"
    WORKING_DIRECTORY "${CURRENT_BUILDTREES_DIR}"
    LOGNAME build-parts-${TARGET_TRIPLET})

vcpkg_check_features(OUT_FEATURE_OPTIONS features FEATURES tools KVO_BUILD_TOOLS)
vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS
        ${features}
        -DKVO_BUILD_TESTS=OFF
        -DKVO_BUILD_EXAMPLES=OFF
        -DBLA_VENDOR=All
        "-DCMAKE_LIBRARY_PATH=${parts}/lib"
        "-DCMAKE_INCLUDE_PATH=${parts}/include")
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/KVOMtxLinearAlgebra)
vcpkg_fixup_pkgconfig()
if("tools" IN_LIST FEATURES)
    vcpkg_copy_tools(TOOL_NAMES kvomtx AUTO_CLEAN)
endif()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE" "${SOURCE_PATH}/THIRD-PARTY.md"
    "${blis_source}/LICENSE" "${scotch_source}/LICENSE_en.txt" "${mumps_source}/LICENSE")
