#!/usr/bin/env bash
# Fails when a C++ source is not formatted as .clang-format says; with --fix, formats it.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(--dry-run --Werror)
[ "${1:-}" != --fix ] || mode=(-i)
git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp' | xargs clang-format "${mode[@]}"
