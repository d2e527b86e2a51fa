#pragma once

#include "CompressedRows.h"
#include "SparseRowSorter.h"

#include <optional>
#include <span>

namespace KVOSrvSparseSupport
{

/// Builds compressed rows from unordered entries; entries of equal place are summed in the order in which they come.
///
/// The entries are seen twice, in batches: all of them by Count(), then, after Prepare(), all of them by Take(), which copies them into
/// buckets of consecutive rows. Finish() orders one bucket after the other, in cache whatever the order of the entries was. Prepare() is
/// the last step that can fail of a builder with one part, so its Take() may be fed from memory that is given back batch by batch.
///
/// The buckets lie in the arrays that become the result, 16 bytes an entry: its value where the values will be, its row and column where
/// the columns will be. A bucket is copied out before its rows are written, which reach no further than it did. Beside them there are the
/// row starts, the fullest bucket once more, a number a row of a bucket (8 MiB at the most) and, while rows are ordered, 8 bytes a column
/// of a matrix with fewer columns than entries.
///
/// Where the host lends threads, each has a part of the entries to count and to take, with its own places in every bucket behind those of
/// the parts before it, and then some of the buckets to order. What a bucket needs to be ordered there is for each thread. The rows that a
/// thread has made are moved to the end of the others' when all are done.
class SparseRowBuilder
{
public:
    static constexpr int kMostParts = 64;

    using Entries = std::span<KVOSrvSparseMatrixEntry const>;

    /// For `count` entries of a matrix of `rows` rows. @throws mem_OutOfMemory
    SparseRowBuilder(std::int64_t count, std::int64_t rows);

    using Batches = std::span<Entries const>;

    /// 1, or one for each thread.
    int Parts() const noexcept { return m_parts; }
    void Count(Batches batches);

    /// What a matrix needs to hold all entries counted: the largest index plus 1, at most 2^32. Unless it is as large at least, this
    /// object is of no use any more.
    std::int64_t Rows() const noexcept { return m_lastRow + 1; }
    std::int64_t Columns() const noexcept { return m_lastColumn + 1; }

    /// @throws mem_OutOfMemory
    void Prepare(std::int64_t columns);
    void Take(Batches batches);
    /// The same for a builder with one part, for one batch after the other.
    void TakeNext(Entries entries) noexcept { TakePart(0, entries); }
    /// Fills the arrays.
    /// @return entries stored; when it is greater than INT_MAX, their row starts are of no use
    std::int64_t Finish();
    CompressedRows Result() noexcept;

private:
    /// What it takes to order buckets.
    struct Orderer {
        Array<std::int64_t> rowNext;           // for each row of a bucket, where its next entry goes
        Array<KVOSrvSparseMatrixEntry> bucket; // the one that is ordered, row by row
        std::optional<SparseRowSorter> sorter; // absent for a matrix that is too wide for it
    };

    void CountPart(int part, Entries entries, std::int64_t& lastRow, std::int64_t& lastColumn) noexcept;
    void TakePart(int part, Entries entries) noexcept;
    std::int64_t* NextOf(int part) const noexcept { return m_next.get() + part * m_bucketCount; }
    std::int64_t EndOfBucket(std::int64_t bucket) const noexcept { return NextOf(m_parts - 1)[bucket]; }
    std::int64_t FirstBucketOf(int part) const noexcept;
    std::int64_t BeginOfPart(int part) const noexcept;
    std::int64_t FirstRowOf(int part) const noexcept;
    std::int64_t FinishPart(int part) noexcept;
    void MovePartsTogether(std::int64_t const* stored);
    std::int64_t BucketOf(unsigned row) const noexcept;
    unsigned* Places() noexcept { return reinterpret_cast<unsigned*>(m_columnIndices.get()); }
    void CopyByRow(Orderer& orderer, std::int64_t begin, std::int64_t end, std::int64_t firstRow, std::int64_t rows) noexcept;

    std::int64_t m_count;
    std::int64_t m_rowCount;
    int m_shift; // rows per bucket, as a power of two
    std::int64_t m_bucketCount;
    std::int64_t m_lastRow = -1;
    std::int64_t m_lastColumn = -1;
    int m_parts;
    Array<std::int64_t> m_next;     // of each bucket, for each part: first its entries, then where its next entry goes
    Orderer m_orderers[kMostParts]; // one for each part
    int m_columnCount = 0;
    Array<unsigned> m_rowStart;
    Array<int> m_columnIndices; // up to Finish() row and column of each entry of the buckets in turn
    Array<double> m_values;
};

/// The rows of unordered entries, all of which lie inside; at most INT_MAX. @throws mem_OutOfMemory
CompressedRows BuildRows(SparseRowBuilder::Batches batches, int rows, int columns);

} // namespace KVOSrvSparseSupport
