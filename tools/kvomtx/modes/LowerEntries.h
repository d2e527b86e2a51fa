#pragma once

#include "KVOSrvSparseMatrix.h"

#include <algorithm>

/// Calls take(row, column, value) for the entries of a symmetric matrix with row >= column, whichever triangle half storage has.
template<class Take>
void ForEachLowerEntry(KVOSrvSparseMatrix const& matrix, Take const& take)
{
    KVOSrvSparseRows const rows = matrix.Rows();
    for (int row = 0; row < rows.rows; ++row) {
        if (rows.diagonal != nullptr)
            take(row, row, rows.diagonal[row]);
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k)
            if (int const column = rows.columnIndices[k]; rows.diagonal != nullptr || column <= row)
                take(std::max(row, column), std::min(row, column), rows.values[k]);
    }
}
