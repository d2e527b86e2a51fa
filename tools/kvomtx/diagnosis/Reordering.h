#pragma once

#include "KVOSrvSparseRows.h"

#include <cstdint>
#include <vector>

/// What a solver that stores rows up to the diagonal would hold of a square matrix, entries and their mirror images counting alike.
struct Envelope {
    std::int64_t bandwidth = 0; ///< greatest distance of an entry from the diagonal
    std::int64_t profile = 0;   ///< places from the first entry of each row to the diagonal, without that
};

/// An order of the unknowns of a square matrix that brings its entries close to the diagonal: reverse Cuthill-McKee (Cuthill, McKee, Proc.
/// 24th ACM Conference, 1969), each piece begun at an end of it (George, Liu, ACM Trans. Math. Softw. 5, 1979).
/// @param matrix  in full
/// @return for each new number the old one
std::vector<int> ReverseCuthillMcKee(KVOSrvSparseRows const& matrix, bool isPatternSymmetric);

/// @param order  for each new number the old one
Envelope EnvelopeIn(KVOSrvSparseRows const& matrix, std::vector<int> const& order);

/// Bytes that the two above take.
std::int64_t BytesOfReordering(KVOSrvSparseRows const& matrix, bool isPatternSymmetric);
