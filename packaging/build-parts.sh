#!/usr/bin/env bash
# Builds what is compiled into the libraries: BLIS, SCOTCH and sequential MUMPS as static, position-independent archives, which few package
# collections have. For the recipes beside it; it fetches nothing. usage: packaging/build-parts.sh PREFIX BLIS SCOTCH MUMPS
# PREFIX: where lib/ and include/ go. The others: folders of unpacked sources; - leaves a part out, for systems that have it.
# Compilers are those of CC and FC; METIS's header is searched in the folders of CPATH. Wants make, CMake, flex and bison.
set -euo pipefail
mkdir -p "$1/lib" "$1/include"
prefix=$(realpath "$1") blis=$2 scotch=$3 mumps=$4
cc=${CC:-cc} fc=${FC:-gfortran} jobs=$(nproc)

if [ "$blis" != - ]; then # kernels of all x86-64 processors, chosen at run time
    (cd "$blis" && CC=$cc ./configure --prefix="$prefix" --enable-static --disable-shared --disable-threading --disable-cblas x86_64)
    make -C "$blis" -j "$jobs"
    make -C "$blis" install
    mv "$prefix"/include/blis/*.h "$prefix/include"
fi

if [ "$scotch" != - ]; then # its own option for position-independent code is that for shared libraries
    cmake -S "$scotch" -B "$scotch/build-parts" -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS=-fPIC -DBUILD_SHARED_LIBS=OFF \
        -DBUILD_PTSCOTCH=OFF -DBUILD_LIBSCOTCHMETIS=OFF -DTHREADS=OFF -DMPI_THREAD_MULTIPLE=OFF -DUSE_ZLIB=OFF -DUSE_LZMA=OFF -DUSE_BZ2=OFF
    cmake --build "$scotch/build-parts" --parallel "$jobs" --target scotch scotcherr esmumps
    find "$scotch/build-parts" -name 'lib*.a' \( -name libscotch.a -o -name libscotcherr.a -o -name libesmumps.a \) -exec cp {} "$prefix/lib" \;
    find "$scotch/build-parts" \( -name scotch.h -o -name scotchf.h -o -name esmumps.h \) -exec cp {} "$prefix/include" \;
fi

if [ "$mumps" != - ]; then # real double precision alone, with the stand-ins for MPI that it brings
    cat >"$mumps/Makefile.inc" <<END
LPORDDIR = \$(topdir)/PORD/lib/
IPORD = -I\$(topdir)/PORD/include/
LPORD = -L\$(LPORDDIR) -lpord
ORDERINGSF = -Dscotch -Dmetis -Dpord
ORDERINGSC = \$(ORDERINGSF)
IORDERINGSF = -I$prefix/include
IORDERINGSC = -I$prefix/include \$(IPORD)
PLAT = _seq
LIBEXT = .a
OUTC = -o$(printf ' ')
OUTF = -o$(printf ' ')
RM = rm -f
CC = $cc
FC = $fc
FL = $fc
AR = ar cr$(printf ' ')
RANLIB = ranlib
INCSEQ = -I\$(topdir)/libseq
LIBSEQNEEDED = libseqneeded
INCS = \$(INCSEQ)
CDEFS = -DAdd_
OPTF = -O2 -fPIC -fallow-argument-mismatch
OPTC = -O2 -fPIC -I.
END
    make -C "$mumps" prerequisites
    make -C "$mumps/src" -j "$jobs" d
    cp "$mumps"/lib/lib{dmumps,mumps_common,pord,mpiseq}_seq.a "$prefix/lib"
    cp "$mumps"/include/*.h "$prefix/include"
fi
