#!/usr/bin/env bash
# Makes the Debian packages of the release build and checks them. usage: scripts/build-packages.sh (they go to build/packages)
set -euo pipefail
cd "$(dirname "$0")/.."
export KVO_BUILD_MPI=ON # kvomtx-mpi has a package, too
scripts/build-docs.sh # the reference; nothing is done where it stands

cmake --preset release
cmake --build --preset release --target package_contents --parallel "$(nproc)"
tests/install/check_packages.sh build/release cpack cmake build/packages
tests/install/check_recipes.sh build/release cpack cmake
printf 'Made: %s\n' build/packages/*.deb
