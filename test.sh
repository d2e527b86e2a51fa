#!/usr/bin/env bash
# Installs what is missing, builds and runs every test. usage: ./test.sh [PRESET ...] (default: release)
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-packages.sh

for preset in "${@:-release}"; do
    cmake --preset "$preset"
    cmake --build --preset "$preset" --parallel "$(nproc)"
    ctest --preset "$preset" --parallel "$(nproc)"
done
