#pragma once

#include "KVOSrvSparseMatrix.h"
#include "SparseRowSorter.h"
#include "SparseRows.h"

#include <optional>
#include <span>

namespace KVOSrvSparseSupport
{

/// Builds compressed rows from unordered entries; entries of equal place are summed in the order in which they come.
///
/// The entries are seen twice, in pieces: all of them by Count(), then, after Prepare(), all of them by Take(), which copies them into
/// buckets of consecutive rows. Finish() orders one bucket after the other, in cache whatever the order of the entries was. Prepare() is
/// the last step that can fail, so Take() may be fed from memory that is given back piece by piece.
///
/// The buckets lie in the arrays that become the result, 16 bytes an entry: its value where the values will be, its row and column where
/// the columns will be. A bucket is copied out before its rows are written, which reach no further than it did. Beside them there are the
/// row starts, the fullest bucket once more, a number a row of a bucket (8 MiB at the most) and, while rows are ordered, 8 bytes a column
/// of a matrix with fewer columns than entries.
class SparseRowBuilder
{
public:
    using Entries = std::span<KVOSrvSparseMatrixEntry const>;

    /// For `count` entries of a matrix of `rows` rows. @throws mem_OutOfMemory
    SparseRowBuilder(std::int64_t count, std::int64_t rows);

    void Count(Entries entries) noexcept;

    /// What a matrix needs to hold all entries counted: the largest index plus 1, at most 2^32. Unless it is as large at least, this
    /// object is of no use any more.
    std::int64_t Rows() const noexcept { return m_lastRow + 1; }
    std::int64_t Columns() const noexcept { return m_lastColumn + 1; }

    /// @throws mem_OutOfMemory
    void Prepare(std::int64_t columns);
    void Take(Entries entries) noexcept;
    /// Fills the arrays.
    /// @return entries stored; when it is greater than INT_MAX, their row starts are of no use
    std::int64_t Finish() noexcept;
    SparseRows& Result() noexcept { return m_rows; }

private:
    std::int64_t BucketOf(unsigned row) const noexcept;
    unsigned* Places() noexcept { return reinterpret_cast<unsigned*>(m_rows.columnIndices.get()); }
    void CopyByRow(std::int64_t begin, std::int64_t end, std::int64_t firstRow, std::int64_t rows) noexcept;
    std::int64_t SumRow(KVOSrvSparseMatrixEntry* entries, std::int64_t count) noexcept;

    std::int64_t m_count;
    std::int64_t m_rowCount;
    int m_shift; // rows per bucket, as a power of two
    std::int64_t m_bucketCount;
    std::int64_t m_lastRow = -1;
    std::int64_t m_lastColumn = -1;
    std::int64_t m_stored = 0;
    Array<std::int64_t> m_next;              // of each bucket: first its entries, then where its next entry goes
    Array<std::int64_t> m_rowNext;           // the same for each row of a bucket
    Array<KVOSrvSparseMatrixEntry> m_bucket; // the one that is ordered, row by row
    std::optional<SparseRowSorter> m_sorter; // absent for a matrix that is too wide for it
    SparseRows m_rows;                       // up to Finish() the buckets: columnIndices holds row and column of each entry in turn
};

} // namespace KVOSrvSparseSupport
