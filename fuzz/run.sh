#!/usr/bin/env bash
# usage: run.sh [RUNS [BUILD_DIR]]: fuzzes the readers of sparse matrix files, from the seeds and what earlier runs found on.
# A finding ends the run with status 1; its input stays in BUILD_DIR/fuzz/findings.
set -euo pipefail
source=$(cd "$(dirname "$0")" && pwd)
runs=${1:-10000000} build=${2:-$source/../build/fuzz}

mkdir -p "$build/fuzz/corpus" "$build/fuzz/findings"
"$build/fuzz/sparse_import_fuzz" -runs="$runs" -timeout=10 -max_len=600 -print_final_stats=1 \
    -dict="$source/sparse_import.dict" -artifact_prefix="$build/fuzz/findings/" "$build/fuzz/corpus" "$build/fuzz/seeds"
