#pragma once

#include "KVOSrvSparseRows.h"

#include <cstdint>
#include <vector>

/// The parts of a matrix that no value other than 0 connects.
struct Pieces {
    struct Size {
        int rows = 0;
        int columns = 0;
    };
    std::int64_t count = 0;
    std::vector<Size> largest; ///< the largest first, kMostKept at most; rows and columns of a square matrix are one: its unknowns
};

/// @param matrix  in full
Pieces FindPieces(KVOSrvSparseRows const& matrix);
