#pragma once

#include "KVOSrvSparseRows.h"

#include <cstdint>

/// The greatest rank that a matrix could have with other values in the places of those that are not 0.
struct StructuralRank {
    int rank = 0;
    bool isExact = true; ///< else it is at least so much: the search was ended
};

/// By a maximum matching of rows and columns (BTF; Duff, ACM Trans. Math. Softw. 7, 1981).
/// @param matrix    in full
/// @param hasAllDiagonal  every diagonal entry of a square matrix is other than 0, which needs no search
/// @param isLimited  the search ends after some passes over the matrix; it may take as many as there are rows
StructuralRank FindStructuralRank(KVOSrvSparseRows const& matrix, bool hasAllDiagonal, bool isLimited);

/// Bytes that it takes.
std::int64_t BytesOfStructuralRank(KVOSrvSparseRows const& matrix, bool hasAllDiagonal);
