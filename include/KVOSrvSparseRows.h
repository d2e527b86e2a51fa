#pragma once

/// The rows that a KVOSrvSparseMatrix stores, to be read: a view, which owns nothing. All indices are 0-based.
///
/// Row i has the entries k from rowStart[i] to rowStart[i + 1] - 1: values[k] in column columnIndices[k]. Columns
/// ascend strictly within a row of full storage; half storage that was read from a file or a database keeps the order
/// it has there.
struct KVOSrvSparseRows {
    int rows;                 ///< number of rows
    int columns;              ///< number of columns
    int entries;              ///< stored entries, without those of `diagonal`
    unsigned const* rowStart; ///< rows + 1 offsets, ascending from 0 to `entries`; never null
    int const* columnIndices; ///< of each entry
    double const* values;     ///< of each entry
    double const* diagonal;   ///< half storage: `rows` numbers, and each entry stands for its mirror image too; null in
                              ///< full storage
};
