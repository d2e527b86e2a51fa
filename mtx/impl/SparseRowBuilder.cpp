#include "SparseRowBuilder.h"

#include <algorithm>
#include <bit>

namespace KVOSrvSparseSupport
{

namespace
{

using Entry = KVOSrvSparseMatrixEntry;

// A bucket and the rows made of it share the second-level cache: 16 and 12 bytes an entry.
constexpr std::int64_t kEntriesPerBucket = 16384;
// As many places are written to in turns; each keeps a cache line and a page busy.
constexpr std::int64_t kMaxBuckets = 2048;

int ShiftFor(std::int64_t rows, std::int64_t buckets)
{
    return static_cast<int>(std::bit_width(static_cast<std::uint64_t>((rows - 1) / buckets)));
}

} // namespace

SparseRowBuilder::SparseRowBuilder(std::int64_t count, std::int64_t rows) : m_count(count), m_rowCount(rows)
{
    std::int64_t const atLeastOne = std::max<std::int64_t>(rows, 1);
    m_shift = ShiftFor(atLeastOne, std::clamp<std::int64_t>(count / kEntriesPerBucket, 1, kMaxBuckets));
    m_bucketCount = ((atLeastOne - 1) >> m_shift) + 1;
    m_next = AllocateArray<std::int64_t>(m_bucketCount);
    std::fill_n(m_next.get(), m_bucketCount, 0);
}

inline std::int64_t SparseRowBuilder::BucketOf(unsigned row) const noexcept
{
    return std::min<std::int64_t>(row >> m_shift, m_bucketCount - 1);
}

void SparseRowBuilder::Count(Entries entries) noexcept
{
    std::int64_t* const counts = m_next.get();
    unsigned lastRow = 0, lastColumn = 0;
    for (Entry const& entry : entries) {
        lastRow = std::max(lastRow, entry.row);
        lastColumn = std::max(lastColumn, entry.column);
        ++counts[BucketOf(entry.row)];
    }
    if (entries.empty())
        return;
    m_lastRow = std::max<std::int64_t>(m_lastRow, lastRow);
    m_lastColumn = std::max<std::int64_t>(m_lastColumn, lastColumn);
}

void SparseRowBuilder::Prepare(std::int64_t columns)
{
    m_rows.rowStart = AllocateArray<unsigned>(m_rowCount + 1);
    m_rows.columnIndices = AllocateArray<int>(m_count);
    m_rows.values = AllocateArray<double>(m_count);
    m_rowNext = AllocateArray<std::int64_t>(std::min(m_rowCount, std::int64_t{1} << m_shift) + 1);
    m_buckets = AllocateArray<Entry>(m_count);
    if (columns <= m_count + 1024)
        m_sorter.emplace(columns);

    std::int64_t begin = 0;
    for (std::int64_t bucket = 0; bucket < m_bucketCount; ++bucket)
        begin += std::exchange(m_next[bucket], begin);
}

void SparseRowBuilder::Take(Entries entries) noexcept
{
    std::int64_t* const next = m_next.get();
    Entry* const buckets = m_buckets.get();
    for (Entry const& entry : entries)
        buckets[next[BucketOf(entry.row)]++] = entry;
}

std::int64_t SparseRowBuilder::Finish() noexcept
{
    m_rows.rowStart[0] = 0;
    std::int64_t begin = 0;
    for (std::int64_t bucket = 0; bucket < m_bucketCount; ++bucket) {
        std::int64_t const end = m_next[bucket], firstRow = bucket << m_shift;
        std::int64_t const rows = std::min(m_rowCount - firstRow, std::int64_t{1} << m_shift);
        Entry* const entries = m_buckets.get() + begin;
        // The rows of the bucket are laid out behind what is stored already and pushed together there: no row ends before its sum.
        std::int64_t const base = m_stored;
        ScatterToRows(entries, end - begin, firstRow, rows);
        std::int64_t rowBegin = 0;
        for (std::int64_t row = 0; row < rows; ++row) {
            std::int64_t const rowEnd = m_rowNext[row];
            m_stored += SumRow(entries + rowBegin, base + rowBegin, rowEnd - rowBegin);
            m_rows.rowStart[firstRow + row + 1] = static_cast<unsigned>(m_stored);
            rowBegin = rowEnd;
        }
        begin = end;
    }
    m_buckets.reset();
    ShrinkArray(m_rows.columnIndices, m_stored);
    ShrinkArray(m_rows.values, m_stored);
    return m_stored;
}

// Leaves in m_rowNext where each row ends.
void SparseRowBuilder::ScatterToRows(Entry const* entries, std::int64_t count, std::int64_t firstRow, std::int64_t rows) noexcept
{
    std::int64_t* const next = m_rowNext.get();
    std::fill_n(next, rows + 1, 0);
    for (std::int64_t k = 0; k < count; ++k)
        ++next[entries[k].row - firstRow + 1];
    for (std::int64_t row = 1; row < rows; ++row)
        next[row] += next[row - 1];
    int* const columns = m_rows.columnIndices.get() + m_stored;
    double* const values = m_rows.values.get() + m_stored;
    for (std::int64_t k = 0; k < count; ++k) {
        std::int64_t const place = next[entries[k].row - firstRow]++;
        columns[place] = static_cast<int>(entries[k].column);
        values[place] = entries[k].value;
    }
}

// `scratch` has room for the row: its part of the bucket, which is not needed any more.
std::int64_t SparseRowBuilder::SumRow(Entry* scratch, std::int64_t begin, std::int64_t count) noexcept
{
    int* const target = m_rows.columnIndices.get() + m_stored;
    double* const targetValues = m_rows.values.get() + m_stored;
    int const* const columns = m_rows.columnIndices.get() + begin;
    double const* const values = m_rows.values.get() + begin;
    if (m_sorter)
        return m_sorter->Sum(columns, values, count, target, targetValues);

    for (std::int64_t k = 0; k < count; ++k)
        scratch[k] = {static_cast<unsigned>(k), static_cast<unsigned>(columns[k]), values[k]};
    SortByColumn(scratch, count);
    std::int64_t length = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        if (length > 0 && target[length - 1] == static_cast<int>(scratch[k].column)) {
            targetValues[length - 1] += scratch[k].value;
            continue;
        }
        target[length] = static_cast<int>(scratch[k].column);
        targetValues[length++] = scratch[k].value;
    }
    return length;
}

} // namespace KVOSrvSparseSupport
