#!/usr/bin/env bash
# usage: check_linkage.sh LIBRARY PROVIDER_HEADER BUILTIN_OBJECT
# The library leaves every routine of the provider to whatever libblas.so.3 and liblapack.so.3 the system has: it needs these two by their
# generic names, imports each routine, and holds none, although the kernel library built into it has many of the same name.
set -euo pipefail
export LC_ALL=C
library=$1 header=$2 object=$3
status=0
fail() { echo "$*"; status=1; }

needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for name in libblas.so.3 liblapack.so.3; do
    grep -qx "$name" <<<"$needed" || fail "does not need $name"
done
if grep -E 'openblas|blis|mkl|atlas' <<<"$needed"; then fail "needs a provider by its own name"; fi
if readelf -d "$library" | grep TEXTREL; then fail "is not position-independent"; fi

routines=$(grep -oE '\b[a-z0-9]+_ *\(' "$header" | tr -d ' (' | sort -u)
[ "$(wc -l <<<"$routines")" -gt 50 ] || fail "no routines in $header"
missing=$(comm -23 <(echo "$routines") <(nm -D --undefined-only "$library" | awk '{print $2}' | sort -u))
[ -z "$missing" ] || fail "does not import: $missing"
held=$(comm -12 <(echo "$routines") <(nm --defined-only "$library" | awk '{print $3}' | sort -u))
[ -z "$held" ] || fail "has its own: $held"

if nm -D --defined-only "$library" | grep -E ' (bli_|bla_|cblas_|BLIS_|kvo_)'; then fail "shows names of the built-in product"; fi
shown=$(nm -g --defined-only "$object" | awk 'NF == 3 {print $3}')
[ "$shown" = kvo_builtin_dgemm ] || fail "the built-in product's object shows: $shown"
exit $status
