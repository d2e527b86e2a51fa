#!/usr/bin/env bash
# Compares the binary interface of the libraries with the recorded one of the last release, cmake/abi/*.xml.gz: what is added is fine, what is
# gone or changed would break programs that are not compiled anew. usage: scripts/check-abi.sh [--record] [BUILD_DIR]
# The build must have KVO_CHECK_ABI=ON, as that of the preset asan (build/asan) has. --record writes the files anew: when a release is made,
# so that its additions are held from then on, or with a new SONAME.
set -euo pipefail
record=
[ "${1:-}" != --record ] || { record=yes && shift; }
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath "${1:-$here/build/asan}")
recorded=$here/cmake/abi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work" --component development >/dev/null
headers=$work/include/KVOMtxLinearAlgebra

# Types that the installed headers do not define are nobody else's; where things stand in the sources is left out.
describe() { # LIBRARY
    abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only --suppressions "$recorded/internal.abignore" \
        --drop-undefined-syms --no-show-locs --no-parameter-names --no-corpus-path --no-comp-dir-path --no-elf-needed \
        --no-write-default-sizes "$build/$1.so"
}

status=0
for library in platform/libKVOPlatform libKVOMtxLinearAlgebra modes/libKVOMtxModes; do
    name=$(basename "$library")
    describe "$library" >"$work/now.xml"
    grep -q '<class-decl' "$work/now.xml" || { echo "$build was made without KVO_CHECK_ABI=ON: $name tells no types" >&2 && exit 2; }
    if [ -n "$record" ]; then
        gzip -9n <"$work/now.xml" >"$recorded/$name.xml.gz"
        echo "Recorded: $recorded/$name.xml.gz"
        continue
    fi
    gzip -dc "$recorded/$name.xml.gz" >"$work/recorded.xml"
    if ! abidiff --no-added-syms "$work/recorded.xml" "$work/now.xml" >"$work/report"; then
        sed "s|^|$name: |" "$work/report"
        status=1
    fi
done
[ $status = 0 ] || echo "Programs that are linked with the last release would break: restore what they use, or give the libraries a new SONAME (the project's
major version) and record the interface anew by scripts/check-abi.sh --record" >&2
exit $status
