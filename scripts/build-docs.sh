#!/usr/bin/env bash
# Builds the API reference, build/docs/reference/index.html; a warning is an error.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-packages.sh

cmake --preset docs
cmake --build --preset docs
echo "Made: build/docs/reference/index.html"
