#!/usr/bin/env bash
# Installs what is missing, builds and runs the main job on a real model: factors a stiffness matrix, solves with it and takes the
# eigenpairs of the stiffness and mass pair.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-packages.sh

cmake --preset release -DKVO_BUILD_TESTS=OFF -B build/demo
cmake --build build/demo --parallel "$(nproc)"
build/demo/examples/modes_in_core data
