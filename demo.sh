#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job on real models: in core with the library's classes, then out of core with the
# companion program, whose frequencies are compared with the references that stand beside the data.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-packages.sh build

# The folder of ./test.sh, so that nothing is compiled twice, whichever comes first; "cmake --install build/release" works after either.
build=build/release
cmake --preset release
cmake --build $build --parallel "$(nproc)" --target kvo_installed modes_in_core
$build/examples/modes_in_core data

mkdir -p build/demo
kvomtx=$build/tools/kvomtx
$kvomtx spy data/bcsstk11.mtx -o build/demo/stiffness.png --force
$kvomtx modes data/bcsstk11.mtx data/bcsstm12.mtx --count 10 --reference data/reference/orecar.txt \
    -o build/demo/orecar.sim --picture build/demo/convergence.png --force
echo "Pictures: build/demo/stiffness.png (the pattern of K), build/demo/convergence.png; the modes: build/demo/orecar.sim; the program: $kvomtx"
