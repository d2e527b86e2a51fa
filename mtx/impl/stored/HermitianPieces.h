#pragma once

#include "DenseBuffer.h"
#include "KVOSrvMatrixSupport.h"
#include "KVOSrvProductMemory.h"

#include <algorithm>
#include <cmath>

/// What the sources of KVOSrvHermitianScrDenseMatrix share.
namespace HermitianPieces
{

constexpr char kClass[] = "KVOSrvHermitianScrDenseMatrix";
constexpr KVOSrvMatrixSupport::RefusalCheck RequireLegal("mtx/impl/KVOSrvHermitianScrDenseMatrix", kClass);

/// Where the other numbers of a piece's entries are stored.
constexpr DensePieces::Window MirrorOf(DensePieces::Window const& w)
{
    return {w.c0, w.c1, w.r0, w.r1};
}

/// Rows and columns of the largest pieces of which `count` fit into the limit of memory in force, `most` at the most.
inline int LargestPiece(int count, int most)
{
    if (!KVOSrvProductMemory::IsSet())
        return most;
    double const entries = static_cast<double>(KVOSrvProductMemory::Bytes()) / (count * static_cast<double>(sizeof(double)));
    return static_cast<int>(std::clamp(std::sqrt(entries), 1.0, static_cast<double>(most)));
}

} // namespace HermitianPieces
