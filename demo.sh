#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job on real models: in core with the library's classes, then out of core with the
# companion program, whose frequencies are compared with the references that stand beside the data.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-packages.sh

# What ./test.sh has built is used; without it the tests are not built.
build=build/release
if [ ! -f $build/CMakeCache.txt ]; then
    build=build/demo
    cmake --preset release -DKVO_BUILD_TESTS=OFF -B $build
fi
cmake --build $build --parallel "$(nproc)" --target modes_in_core kvomtx
$build/examples/modes_in_core data

mkdir -p build/demo
kvomtx=$build/tools/kvomtx
$kvomtx spy data/bcsstk11.mtx -o build/demo/stiffness.png
$kvomtx modes data/bcsstk11.mtx data/bcsstm12.mtx --count 10 --reference data/reference/orecar.txt \
    -o build/demo/orecar.sim --picture build/demo/convergence.png
echo "Pictures: build/demo/stiffness.png (the pattern of K), build/demo/convergence.png; the modes: build/demo/orecar.sim; the program: $kvomtx"
