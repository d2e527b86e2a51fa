#!/usr/bin/env bash
# Measures everything that docs/measurements.md shows, on a quiet machine in some 20 to 30 minutes: builds the benchmarks, runs them, compares the
# figures with their aims and writes docs/measurements/MODEL.md. Ends with 1 and a list where an aim is missed. --help tells how to run parts.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset bench > /dev/null
cmake --build --preset bench
exec /usr/bin/python3 benchmarks/measure.py "$@" # Debian's, which has its h5py
