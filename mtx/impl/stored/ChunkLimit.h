#pragma once

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvUtilities.h"

#include <algorithm>

/// The chunk sizes of a matrix that the library makes a file for.
struct ChunkLimit {
    int rows, columns;

    /// What was asked for, lowered to the matrix's size and by LimitChunkSize2GB.
    /// @throws KVOSrvMtxRefusedInput in the name of `maker` when that leaves nothing of a chunk
    ChunkLimit(char const* maker, char const* operation, int numRows, int numColumns, int rowChunk, int columnChunk)
        : rows(std::min(numRows, rowChunk)), columns(std::min(numColumns, columnChunk))
    {
        int const askedRows = rows, askedColumns = columns;
        KVOSrvUtilities::LimitChunkSize2GB(rows, columns, numRows, numColumns);
        if ((askedRows > 0 && rows == 0) || (askedColumns > 0 && columns == 0))
            KVOSrvMtxRefusedInput(
                maker, operation,
                "the matrix is too long for chunks: the columns of a chunk are limited to those of which 2 GiB, 268435456 "
                "entries, hold all rows, and its rows to those of which they hold all columns, and here this leaves none")
                .Throw("mtx/impl/ChunkLimit", __LINE__);
    }
};
