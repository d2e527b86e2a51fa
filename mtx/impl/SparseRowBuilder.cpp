#include "SparseRowBuilder.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace KVOSrvSparseSupport
{

namespace
{

using Entry = KVOSrvSparseMatrixEntry;

// A bucket, its copy by rows and the rows made of it share the second-level cache: 16, 16 and 12 bytes an entry.
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
    // No more rows a bucket than entries, as far as that goes: what is kept for each row of a bucket is not to exceed the entries.
    m_shift = ShiftFor(atLeastOne, std::clamp<std::int64_t>(std::max(count, rows) / kEntriesPerBucket, 1, kMaxBuckets));
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
    std::int64_t const fullest = *std::max_element(m_next.get(), m_next.get() + m_bucketCount);
    m_rows.rowStart = AllocateArray<unsigned>(m_rowCount + 1);
    m_rows.columnIndices = AllocateArray<int>(2 * m_count);
    m_rows.values = AllocateArray<double>(m_count);
    m_rowNext = AllocateArray<std::int64_t>(std::min(m_rowCount, std::int64_t{1} << m_shift) + 1);
    m_bucket = AllocateArray<Entry>(fullest);
    if (columns <= m_count + 1024)
        m_sorter.emplace(columns);

    std::int64_t begin = 0;
    for (std::int64_t bucket = 0; bucket < m_bucketCount; ++bucket)
        begin += std::exchange(m_next[bucket], begin);
}

void SparseRowBuilder::Take(Entries entries) noexcept
{
    std::int64_t* const next = m_next.get();
    unsigned* const places = Places();
    double* const values = m_rows.values.get();
    for (Entry const& entry : entries) {
        std::int64_t const place = next[BucketOf(entry.row)]++;
        std::memcpy(places + 2 * place, &entry, 2 * sizeof(unsigned)); // row and column at once
        values[place] = entry.value;
    }
}

std::int64_t SparseRowBuilder::Finish() noexcept
{
    unsigned* const rowEnd = m_rows.rowStart.get() + 1;
    m_rows.rowStart[0] = 0;
    if (m_sorter)
        m_sorter->Clear(); // not before: until now there were the pending entries to hold
    std::int64_t begin = 0;
    for (std::int64_t bucket = 0; bucket < m_bucketCount; ++bucket) {
        std::int64_t const end = m_next[bucket], firstRow = bucket << m_shift;
        std::int64_t const rows = std::min(m_rowCount - firstRow, std::int64_t{1} << m_shift);
        if (begin == end) {
            std::fill_n(rowEnd + firstRow, rows, static_cast<unsigned>(m_stored));
            continue;
        }
        CopyByRow(begin, end, firstRow, rows);
        std::int64_t next = 0;
        for (std::int64_t row = 0; row < rows; ++row) {
            std::int64_t const count = m_rowNext[row] - next;
            m_stored += SumRow(m_bucket.get() + next, count);
            rowEnd[firstRow + row] = static_cast<unsigned>(m_stored);
            next += count;
        }
        begin = end;
    }
    m_bucket.reset();
    ShrinkArray(m_rows.columnIndices, m_stored);
    ShrinkArray(m_rows.values, m_stored);
    return m_stored;
}

// Leaves in m_rowNext where each row ends.
void SparseRowBuilder::CopyByRow(std::int64_t begin, std::int64_t end, std::int64_t firstRow, std::int64_t rows) noexcept
{
    unsigned const* const places = Places();
    double const* const values = m_rows.values.get();
    std::int64_t* const next = m_rowNext.get();
    std::fill_n(next, rows + 1, 0);
    for (std::int64_t k = begin; k < end; ++k)
        ++next[places[2 * k] - firstRow + 1];
    for (std::int64_t row = 1; row < rows; ++row)
        next[row] += next[row - 1];
    Entry* const bucket = m_bucket.get();
    for (std::int64_t k = begin; k < end; ++k) {
        std::int64_t const place = next[places[2 * k] - firstRow]++;
        bucket[place] = {static_cast<unsigned>(place), places[2 * k + 1], values[k]}; // SortByColumn() asks for the order
    }
}

std::int64_t SparseRowBuilder::SumRow(Entry* entries, std::int64_t count) noexcept
{
    int* const columns = m_rows.columnIndices.get() + m_stored;
    double* const values = m_rows.values.get() + m_stored;
    if (m_sorter)
        return m_sorter->Sum(entries, count, columns, values);

    SortByColumn(entries, count);
    std::int64_t length = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        if (length > 0 && columns[length - 1] == static_cast<int>(entries[k].column)) {
            values[length - 1] += entries[k].value;
            continue;
        }
        columns[length] = static_cast<int>(entries[k].column);
        values[length++] = entries[k].value;
    }
    return length;
}

} // namespace KVOSrvSparseSupport
