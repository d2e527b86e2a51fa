#pragma once

#include "KVOFortran.h"

#include <algorithm>
#include <cstdint>
#include <limits>

/// Sizes of the workspaces that LAPACK is given, in doubles.
namespace LapackWorkspace
{

/// LAPACK counts its workspace in 32 bits; a smaller one than asked for costs it speed at most.
inline int Size(std::int64_t entries)
{
    return static_cast<int>(std::clamp<std::int64_t>(entries, 1, std::numeric_limits<int>::max()));
}

/// For DSYGV of order n: the optimum, by the block size of the tridiagonal reduction, or the least that it takes.
inline int SizeForSymmetricEigenproblem(int n)
{
    int const blockSize = 1, unused = -1;
    std::int64_t const block = BLAC_ILAENV(&blockSize, "DSYTRD", "L", &n, &unused, &unused, &unused, 6, 1);
    return Size(std::max((block + 2) * n, std::int64_t{3} * n - 1));
}

} // namespace LapackWorkspace
