#!/usr/bin/env bash
# usage: check_interfaces.sh MODULE HEADER LIBRARY FORTRAN_COMPILER CXX_COMPILER [CXX_OPTION ...]
# A header of Fortran-callable entry points, their Fortran module and the export table name the same, and header and module agree on every
# argument.
set -euo pipefail
export LC_ALL=C
module=$1 header=$2 library=$3 fortran=$4
shift 4
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# The module as C prototypes. Three types have no counterpart: Fortran has no unsigned integer, a complex array is interleaved doubles, and a
# pointer to a procedure tells no arguments.
"$fortran" -fc-prototypes -fsyntax-only -J "$folder" "$module" |
    sed -E 's/\blong ([a-z]+_length)\b/std::size_t \1/g; s/__GFORTRAN_DOUBLE_COMPLEX \*/double */g;
            s/int \(\*run\)\(\)/void (*run)(void*, int, void (*)(void*, int), void*)/' >"$folder/module.h"

# Declared twice with different arguments, an extern "C" function is an error.
printf '#include "%s"\n#include "%s"\n' "$header" "$folder/module.h" >"$folder/both.cpp"
"$@" -std=c++20 -fsyntax-only "$folder/both.cpp"

names() { grep -oE '\b(BLAC_|KVOSRV)[A-Z0-9_]+ ?\(' | tr -d ' (' | sort -u; }
printf '#include "%s"\n' "$header" >"$folder/header.cpp"
"$@" -std=c++20 -E -P "$folder/header.cpp" | names >"$folder/in_header"
names <"$folder/module.h" >"$folder/in_module"
nm -D --defined-only --without-symbol-versions "$library" | awk '{print $3}' | grep -E '^(BLAC_|KVOSRV)[A-Z0-9_]+$' | sort -u >"$folder/in_library"
[ -s "$folder/in_header" ]
diff "$folder/in_header" "$folder/in_module" || { echo "header (<) and module (>) differ" && exit 1; }
diff "$folder/in_header" "$folder/in_library" || { echo "header (<) and library (>) differ" && exit 1; }
