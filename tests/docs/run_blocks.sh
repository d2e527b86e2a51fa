#!/usr/bin/env bash
# usage: run_blocks.sh PAGE BUILD_DIR CMAKE CXX FORTRAN PYTHON
# Runs the code of a page of README.md or docs/ as it stands there: its shell, C++, Fortran and Python, in this order, each kind from top to
# bottom, in a folder of its own, where `data` is that of the checkout and kvomtx on the path. A block without its surroundings has them in a
# comment before it that begins with "<!-- around:" and shows its place by a line BLOCK. What cannot be run here says so by its language: text
# and matlab. Other tests run those of the table below.
set -euo pipefail
source=$(realpath "$(dirname "$0")/../..")
page=$1 build=$(realpath "$2") cmake=$3 cxx=$4 fortran=$5 python=$6
export PATH=$build/tools:$PATH PYTHONPATH=$build/python PYTHONDONTWRITEBYTECODE=1 OPENBLAS_NUM_THREADS=1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/blocks" "$work/here"
ln -s "$source/data" "$work/here/data"

# The blocks as NUMBER.LANGUAGE, the number that of the line above its first; with their surroundings.
awk -v page="$page" -v folder="$work/blocks" '
    function fail(text) { print page ":" FNR ": " text; failed = 1 }
    function put(line) { printf "%s\n", line > file }
    /^<!-- around:/ { surroundings = 1; count = 0; next }
    surroundings && /^-->/ { surroundings = 0; next }
    surroundings { around[++count] = $0; next }
    /^ *```/ && !inside {
        language = $0; sub(/^ *```/, "", language)
        if (language !~ /^(sh|cpp|fortran|python|cmake|make|text|matlab)$/) fail("a block of the language \"" language "\": none that is known")
        inside = 1; file = sprintf("%s/%05d.%s", folder, FNR, language)
        for (i = 1; i <= count && around[i] != "BLOCK"; ++i) put(around[i])
        next
    }
    /^ *```/ { inside = 0; while (++i <= count) put(around[i]); count = 0; put(""); close(file); next }
    inside { put($0); next }
    /^    / && before == "" && !item { fail("code that is only indented: say its language, or text") }
    /^ *([-*]|[0-9]+\.) / { item = 1 }
    /^[^ ]/ && !/^([-*]|[0-9]+\.) / { item = 0 }
    { before = $0 }
    END { exit failed }' "$source/$page"

# Who else runs a block that needs more than this folder.
elsewhere() { # LANGUAGE
    case $page:$1 in
    README.md:cpp | README.md:fortran | README.md:cmake | README.md:make) echo install.consumer ;;
    docs/database-format.md:python) echo sim.other_readers ;;
    docs/tutorial.md:*) echo example.tutorial_page ;;
    esac
}
cd "$work/here"
blocks() { # LANGUAGE: the files of those that are run here
    [ -n "$(elsewhere "$1")" ] || find "$work/blocks" -name "*.$1" | sort
}
each() { # LANGUAGE COMMAND...: runs the command on each block
    local block
    for block in $(blocks "$1"); do
        "${@:2}" "$block" >"$work/said" 2>&1 || { cat "$work/said"; echo "FAILED: $page:$((10#$(basename "$block" ".$1"))): the block of $1"; exit 1; }
    done
}
compiled() { # COMPILER OPTION... FILE: compiles against an installation, and runs
    # shellcheck disable=SC2046 # the flags are words
    "$@" -o "$work/program" $(pkg-config --libs KVOMtxModes) -Wl,-rpath,"$(pkg-config --variable=libdir KVOMtxModes)" && "$work/program"
}

each sh bash -euo pipefail
if [ -n "$(blocks cpp)$(blocks fortran)" ]; then
    "$cmake" --install "$build" --prefix "$work/prefix" >/dev/null
    PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name KVOMtxModes.pc)")
    export PKG_CONFIG_PATH
    # shellcheck disable=SC2046
    each cpp compiled "$cxx" -std=c++20 -Wall -I"$source/examples" $(pkg-config --cflags-only-I KVOMtxModes) -x c++
    each fortran compiled "$fortran" -J"$work" "$source/fortran/kvo_mtx.f90" "$source/modes/fortran/kvo_mtx_modes.f90" -x f95
fi
# shellcheck disable=SC2046 # the files are words
"$python" - "$page" $(blocks python) <<END # one after the other in one process, as in a notebook
import sys
names = {}
for block in sys.argv[2:]:
    exec(compile(open(block).read(), f"{sys.argv[1]}, the block at line {int(block[-12:-7])}", "exec"), names)
END
