#!/usr/bin/env bash
# usage: check_provider.sh PROVIDER MULTIARCH TESTS PROBE
# Runs the tests of the BLAS layer on another provider, as a user swaps it: by the library path, without a rebuild. PROVIDER is the folder
# of a Debian alternative. Exits with 77 (skipped) when it is not installed.
set -euo pipefail
provider=$1 multiarch=$2 tests=$3 probe=$4

folder_of() { # LIBRARY PROVIDER
    update-alternatives --list "$1.so.3-$multiarch" 2>/dev/null | sed -n "s|/$2/$1.so.3\$|/$2|p"
}
blas=$(folder_of libblas "$provider")
lapack=$(folder_of liblapack "$provider")
lapack=${lapack:-$(folder_of liblapack lapack)} # a provider of BLAS alone goes with the reference LAPACK
if [ -z "$blas" ] || [ -z "$lapack" ]; then
    echo "SKIPPED: the provider $provider is not installed"
    exit 77
fi

expected=$("$probe" | tail -n 1)
export LD_LIBRARY_PATH=$blas:$lapack${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}

# The variables of the kernel library, which would stop or change it, must not reach the built-in product either.
{ read -r origin; read -r products; } < <(BLIS_ARCH_TYPE=99 BLIS_PACK_A=1 BLIS_NUM_THREADS=2 "$probe")
echo "DGEMM comes from $origin"
case $origin in
"$blas"/* | "$(realpath "$blas")"/*) ;;
*) echo "not from $blas" && exit 1 ;;
esac
if [ "$products" != "$expected" ]; then
    echo "the built-in product changed with the provider: $products, not $expected"
    exit 1
fi

# Its own error handler gets the report; some return.
status=0
report=$("$probe" xerbla 2>&1) || status=$?
echo "its error handler (exit status $status): $report"
grep -q PROBE <<<"$report" || { echo "the handler did not name the routine" && exit 1; }

export OMP_WAIT_POLICY=passive # OpenMP builds would spin while other tests run
exec "$tests" --gtest_brief=1 --gtest_filter=-BuiltinGemm.Products # compared above, bit by bit
