#!/usr/bin/env bash
# usage: check_recipes.sh BUILD_DIR CPACK CMAKE
# The recipes of packaging/, as far as a machine without their tools can tell: they parse, give options that there are, and the archive that
# they build from holds what the repository does, and can be configured with their options.
set -euo pipefail
build=$(realpath "$1") cpack=$2 cmake=$3
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
fail() { printf 'FAILED: %s\n' "$*"; failed=1; }

python3 - <<'END' || fail "a recipe does not parse"
import ast, json, yaml
ast.parse(open("packaging/spack/package.py").read())
json.load(open("packaging/vcpkg/vcpkg.json"))
assert yaml.safe_load(open("packaging/conda/recipe.yaml"))["build"]["script"]
END
# Parsed as a whole before it is run: the first command that only vcpkg knows is what it stops at.
said=$("$cmake" -P packaging/vcpkg/portfile.cmake 2>&1) && fail "vcpkg's commands are missing, but its recipe runs"
grep -q 'Unknown CMake command "vcpkg_check_linkage"' <<<"$said" || fail "vcpkg's recipe does not parse: $said"
bash -n packaging/build-parts.sh || fail "build-parts.sh does not parse"
for option in $(grep -rhoE 'KVO_[A-Z_]+' packaging | sort -u); do
    grep -q "^$option:" "$build/CMakeCache.txt" || fail "a recipe gives $option, which there is not"
done

"$cpack" --config "$build/CPackSourceConfig.cmake" -B "$work" >"$work/log" 2>&1 || { cat "$work/log" && exit 1; }
mkdir "$work/source"
tar -C "$work/source" --strip-components=1 -xf "$work"/kvomtxlinearalgebra-*.tar.xz
if [ -e .git ]; then
    difference=$(diff <(git ls-files | sort) <(cd "$work/source" && find . ! -type d -printf '%P\n' | sort)) || fail "repository (<) and archive (>): $difference"
fi
"$cmake" -S "$work/source" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_EXAMPLES=OFF >"$work/log" 2>&1 || { cat "$work/log" && fail "the archive cannot be configured"; }
exit $failed
