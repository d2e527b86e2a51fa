#!/usr/bin/env bash
# usage: check_exports.sh LIBRARY NAMES [LIBRARY NAMES ...]
# Every class (with its members) and every free function in a library's export table stands in its list of names, and the other way round.
# The Fortran-callable entry points are left to the test that compares them with their header.
set -euo pipefail
export LC_ALL=C
status=0
while [ $# -gt 0 ]; do
    exported=$(nm -DC --defined-only --without-symbol-versions "$1" | grep -v ' A ' | cut -d' ' -f3- | grep -vE '^(BLAC_|KVOSRV)' |
        sed -E 's/^(vtable|typeinfo|typeinfo name|VTT|guard variable) for //; s/\[abi:[^]]*\]//g; s/\(.*$//; s/<.*//; s/::.*//' | sort -u)
    if ! difference=$(diff <(grep -v '^#' "$2" | sort -u) <(printf '%s\n' "$exported")); then
        printf '%s: the export table (>) differs from %s (<):\n%s\n' "$1" "$2" "$difference"
        status=1
    fi
    shift 2
done
exit $status
