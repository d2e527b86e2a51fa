#!/usr/bin/env bash
# usage: check_install.sh BUILD_DIR CONSUMER CMAKE CXX FORTRAN FLAGS
set -euo pipefail
build=$1 consumer=$2 cmake=$3 cxx=$4 fortran=$5 flags=$6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" >"$work/install.log"
mv "$work/first" "$work/prefix" # an installed tree can be moved

build_project() { # SOURCE BUILD [OPTION OF THE BUILD...]
    "$cmake" -S "$1" -B "$2" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_Fortran_COMPILER="$fortran" \
        -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_Fortran_FLAGS="$flags" >"$work/configure.log"
    "$cmake" --build "$2" "${@:3}"
}

echo "== the README's own programs and recipes"
mkdir "$work/readme"
block() { awk -v first='```'"$1" '$0 == "```" { inside = 0 } inside; $0 == first { inside = 1 }' "$(dirname "$0")/../../README.md"; }
block cpp >"$work/readme/app.cpp" && block fortran >"$work/readme/solver.f90" && block make >"$work/readme/Makefile"
(
    echo 'cmake_minimum_required(VERSION 3.25)
project(readme LANGUAGES CXX Fortran)
add_executable(app app.cpp)'
    block cmake
) >"$work/readme/CMakeLists.txt"
build_project "$work/readme" "$work/readme/build"
[ "$("$work/readme/build/app")" = "0.0909091 0.636364" ]
"$work/readme/build/solver"
if [ -z "$flags" ]; then # make's gfortran takes no sanitizer
    (cd "$work/readme" && PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name KVOMtxLinearAlgebra.pc)") make --silent solver && ./solver)
fi

echo "== as a part of another project: the same names, without an installation"
mkdir "$work/host"
cat >"$work/host/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES C CXX Fortran)
include(FetchContent)
FetchContent_Declare(KVOMtxLinearAlgebra SOURCE_DIR "$(realpath "$(dirname "$0")/../..")" OVERRIDE_FIND_PACKAGE)
find_package(KVOMtxLinearAlgebra REQUIRED)
add_library(modules OBJECT \${KVOMtxLinearAlgebra_FORTRAN_MODULE_SOURCE} \${KVOMtxModes_FORTRAN_MODULE_SOURCE})
get_target_property(library KVO::MtxModes TYPE)
END
build_project "$work/host" "$work/host/build" --target modules

echo "== the examples as a project of their own"
build_project "$(dirname "$0")/../../examples" "$work/examples"
"$(dirname "$cmake")/ctest" --test-dir "$work/examples" --output-on-failure

echo "== by pkg-config"
export PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name KVOMtxLinearAlgebra.pc)")
libdir=$(pkg-config --variable=libdir KVOMtxLinearAlgebra)
# shellcheck disable=SC2046 # the flags are words
"$cxx" -std=c++20 $flags $(pkg-config --cflags KVOMtxLinearAlgebra) "$consumer" -o "$work/by_pkg_config" $(pkg-config --libs KVOMtxLinearAlgebra)
LD_LIBRARY_PATH=$libdir "$work/by_pkg_config"
"$cxx" -std=c++20 $flags $(pkg-config --cflags KVOMtxModes) "$(dirname "$0")/../../examples/effective_masses.cpp" -o "$work/modes_by_pkg_config" $(pkg-config --libs KVOMtxModes)
(cd "$work" && LD_LIBRARY_PATH=$libdir ./modes_by_pkg_config)

echo "== from C"
cat >"$work/caller.c" <<'END'
#include "KVOFortran.h"
#include "KVOModesFortran.h"
int main(void)
{
    int n = 3, one = 1;
    double x[] = {1.0, 2.0, 2.0};
    return BLAC_DNRM2(&n, x, &one) == 3.0 && KVOSRVMODESORDER(0) == 0 ? 0 : 1;
}
END
gcc -std=c99 -Wall -Wextra -Wstrict-prototypes -pedantic -Werror $flags $(pkg-config --cflags KVOMtxModes) "$work/caller.c" -o "$work/caller" \
    $(pkg-config --libs KVOMtxModes)
LD_LIBRARY_PATH=$libdir "$work/caller"
