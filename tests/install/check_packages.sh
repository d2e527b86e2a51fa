#!/usr/bin/env bash
# usage: check_packages.sh BUILD_DIR CPACK CMAKE [PACKAGE_DIR]
# Makes the Debian packages of a build, in PACKAGE_DIR if it is given, and checks what they hold, what they need and that the program in
# them runs.
set -euo pipefail
export LC_ALL=C
build=$1 cpack=$2 cmake=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
packages=${4:-$work/packages}
mkdir -p "$packages"
packages=$(realpath "$packages") build=$(realpath "$build")
rm -f "$packages"/*.deb
"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$packages" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; exit 1; }
rm -rf "$packages/_CPack_Packages"

failed=0
fail() { printf 'FAILED: %s\n' "$*"; failed=1; }
expect() { # TEXT PATTERN WHAT
    grep -qE -- "$2" <<<"$1" || fail "$3: no /$2/ in: $1"
}

version=$(dpkg-deb -f "$packages"/kvomtx_*.deb Version)
major=${version%%.*} library_version=${version%-*}
runtime=libkvomtxlinearalgebra$major modes=libkvomtxmodes$major development=libkvomtxlinearalgebra-dev tools=kvomtx
documents=libkvomtxlinearalgebra-doc
lib=usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
mpi=
! [ -e "$build/tools/mpi/kvomtx-mpi" ] || mpi=kvomtx-mpi # it is an option
python=
! [ -e "$build/python/kvo" ] || python=python3-kvo # so is this
names=$(for deb in "$packages"/*.deb; do dpkg-deb -f "$deb" Package; done | sort)
[ "$names" = "$(printf '%s\n' $tools $mpi $development $documents $runtime $modes $python | sort)" ] || fail "other packages than these: $names"

# What each package holds and nothing else may be in it.
libraries="$lib/libKVO(MtxLinearAlgebra|Platform)\.so"
modes_library="$lib/libKVOMtxModes\.so"
for package in $runtime $modes $development $documents $tools $mpi $python; do
    dpkg-deb -x "$packages/${package}"_*.deb "$work/$package"
    dpkg-deb -x "$packages/${package}"_*.deb "$work/root"
    case $package in
    "$runtime") own="$libraries\.$major(\.[0-9.]+)?" ;;
    "$modes") own="$modes_library\.$major(\.[0-9.]+)?" ;;
    "$development") own="$libraries|$modes_library|usr/include/KVOMtxLinearAlgebra/[A-Za-z0-9_]+\.(h|f90)|$lib/(cmake/KVOMtxLinearAlgebra/.*\.cmake|pkgconfig/KVOMtx(LinearAlgebra|Modes)\.pc)" ;;
    "$documents") own="usr/share/doc/$documents/((README|CONTRIBUTING|SECURITY|THIRD-PARTY)\.md|(docs|examples|reference)/.*)|usr/share/doc-base/$documents" ;;
    kvomtx-mpi) own="usr/bin/kvomtx-mpi|usr/share/man/man1/kvomtx-mpi\.1\.gz" ;;
    python3-kvo) own='usr/lib/python3/dist-packages/kvo/([a-z_]+\.pyi?|py\.typed|_core\.cpython-[0-9a-z_-]+\.so)' ;;
    "$tools") own="usr/bin/kvomtx|usr/share/man/man1/kvomtx\.1\.gz|usr/share/(bash-completion/completions/kvomtx|zsh/vendor-completions/_kvomtx|fish/vendor_completions\.d/kvomtx\.fish)" ;;
    esac
    strange=$(cd "$work/$package" && find . ! -type d -printf '%P\n' | grep -vxE "$own|usr/share/doc/$package/(copyright|changelog(\.Debian)?\.gz)" || true)
    [ -z "$strange" ] || fail "$package holds more than it should: $strange"
    [ -s "$work/$package/usr/share/doc/$package/copyright" ] || fail "$package has no copyright file"
done

# Together they are what an installation makes, but for Debian's documents and the folder of the architecture.
"$cmake" --install "$build" --prefix "$work/plain/usr" >/dev/null
listing() { (cd "$1" && find . ! -type d ! -path './usr/share/doc*' | sed "s|^\./$lib/|./usr/lib/|" | sort); }
difference=$(diff <(listing "$work/plain") <(listing "$work/root")) || fail "an installation (<) and the packages (>) differ: $difference"

# Whoever has compiled in what others wrote repeats their notice.
grep -q 'License: BSD-3-clause' "$work/root/usr/share/doc/$runtime/copyright" || fail "$runtime: the notice of the built-in product is missing"
grep -q 'CeCILL' "$work/root/usr/share/doc/$modes/copyright" || fail "$modes: the notice of the factorization is missing"
grep -q 'License: Expat' "$work/root/usr/share/doc/$tools/copyright" || fail "$tools: the notice of the JSON writer is missing"

[ $# -lt 4 ] || [ -s "$work/root/usr/share/doc/$documents/reference/index.html" ] || fail "$documents lacks the reference"

# BLAS and LAPACK by the system's alternatives, never a single provider; the same version of each other.
needs() { dpkg-deb -f "$packages/$1"_*.deb Depends; }
expect "$(needs $runtime)" '(^|, )libblas3 \| libblas\.so\.3(,|$)' "$runtime"
expect "$(needs $runtime)" '(^|, )liblapack3 \| liblapack\.so\.3(,|$)' "$runtime"
expect "$(needs $runtime)" '(^|, )libhdf5-[0-9]' "$runtime"
expect "$(needs $modes)" '(^|, )libmetis[0-9]' "$modes"
! grep -E 'mumps|scotch|openmpi|cholmod' <<<"$(needs $modes; needs $tools)" || fail "what is linked in is asked for, or a factorization that is gone"
for package in $modes $development $tools $mpi $python; do
    expect "$(needs $package)" "(^|, )$runtime \(= ${version//./\\.}\)(,|\$)" "$package"
done
if [ -n "$mpi" ]; then
    expect "$(needs $mpi)" '(^|, )libpetsc-real[0-9]' "$mpi"
    grep -q 'common-licenses/GPL-3' "$work/root/usr/share/doc/$mpi/copyright" || fail "$mpi does not say on which terms it may be used"
    ! grep -q "$mpi" <<<"$(needs $runtime; needs $modes; needs $development; needs $tools)" || fail "a package depends on $mpi"
fi
all=$(needs $runtime; needs $modes; needs $development; needs $tools)
! grep -E 'openblas|blis|atlas|mkl' <<<"$all" || fail "a package is bound to one BLAS: $all"

# The loader's cache by a trigger; each name that a library shows has the version of the interface that it came with.
for package in $runtime $modes; do
    dpkg-deb -e "$packages/$package"_*.deb "$work/control.$package"
    [ "$(cat "$work/control.$package/triggers")" = "activate-noawait ldconfig" ] || fail "$package does not refresh the loader's cache"
    ! ls "$work/control.$package"/p{re,ost}{inst,rm} 2>/dev/null || fail "$package has maintainer scripts"
    names=$(grep -c '^ ' "$work/control.$package/symbols")
    [ "$names" -gt 20 ] && [ "$names" = "$(grep -cE '^ [^ ]+@KVO(MTX|PLATFORM|MODES)_1\.1 1\.1\.0$' "$work/control.$package/symbols")" ] ||
        fail "$package: symbols without a version"
    [ "$(dpkg-deb -f "$packages/$package"_*.deb Multi-Arch)" = same ] || fail "$package is for one architecture alone"
done
mv "$work/control.$runtime" "$work/control"
for library in MtxLinearAlgebra Platform; do # of any revision, and newer ones
    expect "$(cat "$work/control/shlibs")" "^libKVO$library $major $runtime \(>= ${library_version//./\\.}\)\$" "$runtime: shlibs"
done
for file in "$work/root/$lib/libKVOMtxLinearAlgebra.so.$library_version" "$work/root/usr/bin/kvomtx"; do
    ! readelf -d "$file" | grep -E 'RPATH|RUNPATH' || fail "$file brings a run path of its own"
done

# The stripped program computes.
export LD_LIBRARY_PATH=$work/root/$lib
cd "$work"
root/usr/bin/kvomtx make-brick 3 2 2 k.mtx m.mtx >/dev/null && root/usr/bin/kvomtx modes k.mtx m.mtx -n 2 -o modes.sim >modes.txt ||
    fail "the packed program does not run: $(cat modes.txt)"
if [ -n "$python" ]; then
    expect "$(needs $python)" '(^|, )python3-numpy, python3-scipy(,|$)' "$python"
    extension=$(echo "$work/root/usr/lib"/python3/dist-packages/kvo/_core.*.so)
    ! readelf -d "$extension" | grep -E 'RPATH|RUNPATH' || fail "$extension brings a run path of its own"
    PYTHONPATH=$work/root/usr/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -c "
import kvo
with kvo.open('modes.sim') as db:
    assert db['modes'].shape[1] == 2 and kvo.modes(db['stiffness'], db['mass'], 2).frequencies[0] > 0" ||
        fail "the packed module does not run"
fi
exit $failed
