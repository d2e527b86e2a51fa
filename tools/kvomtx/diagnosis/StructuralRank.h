#pragma once

#include "KVOSrvSparseRows.h"

/// The greatest rank that a matrix could have with other values in the places of those that are not 0: as many rows as can have a column
/// of their own each (Hopcroft, Karp, SIAM J. Comput. 2, 1973). A search row by row (BTF of SuiteSparse) takes passes over the matrix as
/// the rows grow, this one as their root does at most: 300 000 rows of random places took it less than a second.
/// @param matrix  in full
int FindStructuralRank(KVOSrvSparseRows const& matrix);
