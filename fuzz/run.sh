#!/usr/bin/env bash
# usage: run.sh FUZZER [RUNS [BUILD_DIR]]: lets a fuzzer loose, from its seeds and what its earlier runs found on.
# A finding ends the run with status 1; its input stays in BUILD_DIR/fuzz/FUZZER-findings.
set -euo pipefail
source=$(cd "$(dirname "$0")" && pwd)
fuzzer=${1:?which? sparse_import_fuzz, matrix_market_fuzz, matrix_file_fuzz or database_fuzz} runs=${2:-10000000} build=${3:-$source/../build/fuzz}

folder=$build/fuzz/$fuzzer
mkdir -p "$folder-corpus" "$folder-findings"
length=600
[ "$fuzzer" != matrix_file_fuzz ] || length=1500 # archives are longer
options=(-runs="$runs" -timeout=10 -max_len=$length -print_final_stats=1 -artifact_prefix="$folder-findings/")
[ ! -e "$source/$fuzzer.dict" ] || options+=(-dict="$source/$fuzzer.dict")
[ "$fuzzer" != database_fuzz ] || options+=(-detect_leaks=0) # HDF5 keeps free lists, and loses memory over damaged files
"$folder" "${options[@]}" "$folder-corpus" "$folder-seeds"
