#pragma once

#include "KVOSrvSparseMatrix.h"
#include "SparseRows.h"

#include <cstdint>

namespace KVOSrvSparseSupport
{

/// A number above 0 that no pattern of this process has had: unlike an address it does not come again.
std::uint64_t NewPattern() noexcept;

/// A sparse matrix of full storage; what the arrays hold is told by KVOSrvSparseRows. It owns them.
struct CompressedRows {
    /// With room for `entries` entries; row starts and entries are not set. @throws mem_OutOfMemory
    CompressedRows(int rowCount, int columnCount, std::int64_t entries);
    /// Takes the arrays as they are.
    CompressedRows(int rowCount, int columnCount, Array<unsigned> starts, Array<int> indices, Array<double> numbers) noexcept;

    int Entries() const noexcept { return static_cast<int>(rowStart[rows]); }
    KVOSrvSparseRows View() const noexcept;

    int rows;
    int columns;
    Array<unsigned> rowStart; // null only before it is set and in what was moved from
    Array<int> columnIndices;
    Array<double> values;
    std::uint64_t pattern =
        NewPattern(); // another one whenever rows, columns, rowStart or columnIndices change; that of a copy is the same
};

/// A symmetric matrix of half storage: of each two mirrored entries one, and the diagonal.
struct HalfRows {
    KVOSrvSparseRows View() const noexcept;

    CompressedRows triangle; // square; from a file or a database its rows may be in any order
    Array<double> diagonal;
};

/// @throws mem_OutOfMemory
CompressedRows WithoutEntries(int rows, int columns);
CompressedRows CopyOf(CompressedRows const& rows);
HalfRows CopyOf(HalfRows const& rows);

/// Row starts ascend from 0, and there are no more entries than an int counts.
bool StartsAscend(unsigned const* rowStart, int rows) noexcept;
/// Columns, which are 0 and above, ascend strictly within each row.
bool ColumnsAscend(KVOSrvSparseRows const& rows) noexcept;
/// All entries lie above the diagonal, or all below it, in rows whose columns ascend.
bool LieInOneTriangle(KVOSrvSparseRows const& rows) noexcept;

/// Entries in full, half storage having two for each that is stored, and the diagonal.
std::int64_t CountInFull(KVOSrvSparseRows const& rows) noexcept;
/// Lists them row by row: of row i of half storage first the diagonal, then for each stored entry its mirror image and itself.
void ListInFull(KVOSrvSparseRows const& rows, KVOSrvSparseMatrixEntry* list) noexcept;

} // namespace KVOSrvSparseSupport
