#include "SparseRowBuilder.h"

#include "KVOBasProcessor.h"
#include "tasks.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <numeric>
#include <utility>

namespace KVOSrvSparseSupport
{

namespace
{

using Entry = KVOSrvSparseMatrixEntry;

// A bucket, its copy by rows and the rows made of it share the second-level cache: 16, 16 and 12 bytes an entry.
std::int64_t EntriesPerBucket() noexcept
{
    return static_cast<std::int64_t>(KVOBasProcessor::This().l2Bytes / 64);
}
// Below, tasks gain little.
constexpr std::int64_t kLeastOfParts = 32768;
// As many places are written to in turns; each keeps a cache line of the second level and a page busy.
std::int64_t MostBuckets() noexcept
{
    constexpr int kLines = 2048;
    return std::min(kLines, KVOBasProcessor::This().pages);
}

// Calls take(entries) for the entries of part `part`, in their order.
template<class Take>
void ForPart(SparseRowBuilder::Batches batches, int parts, int part, Take const& take)
{
    std::int64_t all = 0;
    for (SparseRowBuilder::Entries const& batch : batches)
        all += std::ssize(batch);
    std::int64_t const begin = blac::PieceBegin(all, parts, part), end = blac::PieceBegin(all, parts, part + 1);
    std::int64_t first = 0;
    for (SparseRowBuilder::Entries const& batch : batches) {
        std::int64_t const from = std::max(begin - first, std::int64_t{0}), to = std::min(end - first, std::ssize(batch));
        if (from < to)
            take(batch.subspan(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from)));
        first += std::ssize(batch);
    }
}

std::int64_t SumRow(std::optional<SparseRowSorter>& sorter, Entry* entries, std::int64_t count, int* columns, double* values) noexcept
{
    if (sorter)
        return sorter->Sum(entries, count, columns, values);

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

int ShiftFor(std::int64_t rows, std::int64_t buckets)
{
    return static_cast<int>(std::bit_width(static_cast<std::uint64_t>((rows - 1) / buckets)));
}

} // namespace

SparseRowBuilder::SparseRowBuilder(std::int64_t count, std::int64_t rows)
    : m_count(count), m_rowCount(rows), m_parts(std::min({blac::ThreadsForTasks(), blac::PiecesFor(count, kLeastOfParts), kMostParts}))
{
    std::int64_t const atLeastOne = std::max<std::int64_t>(rows, 1);
    // No more rows a bucket than entries, as far as that goes: what is kept for each row of a bucket is not to exceed the entries.
    m_shift = ShiftFor(atLeastOne, std::clamp<std::int64_t>(std::max(count, rows) / EntriesPerBucket(), 1, MostBuckets()));
    m_bucketCount = ((atLeastOne - 1) >> m_shift) + 1;
    m_next = AllocateArray<std::int64_t>(m_parts * m_bucketCount);
    std::fill_n(m_next.get(), m_parts * m_bucketCount, 0);
}

inline std::int64_t SparseRowBuilder::BucketOf(unsigned row) const noexcept
{
    return std::min<std::int64_t>(row >> m_shift, m_bucketCount - 1);
}

void SparseRowBuilder::Count(Batches batches)
{
    std::int64_t lastRows[kMostParts], lastColumns[kMostParts];
    blac::InTasks(m_parts, [&](int part) {
        lastRows[part] = lastColumns[part] = -1;
        ForPart(batches, m_parts, part, [&](Entries entries) { CountPart(part, entries, lastRows[part], lastColumns[part]); });
    });
    m_lastRow = *std::max_element(lastRows, lastRows + m_parts);
    m_lastColumn = *std::max_element(lastColumns, lastColumns + m_parts);
}

void SparseRowBuilder::CountPart(int part, Entries entries, std::int64_t& lastRow, std::int64_t& lastColumn) noexcept
{
    std::int64_t* const counts = NextOf(part);
    unsigned row = 0, column = 0;
    for (Entry const& entry : entries) {
        row = std::max(row, entry.row);
        column = std::max(column, entry.column);
        ++counts[BucketOf(entry.row)];
    }
    lastRow = std::max<std::int64_t>(lastRow, row);
    lastColumn = std::max<std::int64_t>(lastColumn, column);
}

void SparseRowBuilder::Prepare(std::int64_t columns)
{
    m_columnCount = static_cast<int>(columns);
    std::int64_t fullest = 0, begin = 0;
    for (std::int64_t bucket = 0; bucket < m_bucketCount; ++bucket) {
        std::int64_t const first = begin;
        for (int part = 0; part < m_parts; ++part)
            begin += std::exchange(NextOf(part)[bucket], begin);
        fullest = std::max(fullest, begin - first);
    }
    m_rowStart = AllocateArray<unsigned>(m_rowCount + 1);
    m_columnIndices = AllocateArray<int>(2 * m_count);
    m_values = AllocateArray<double>(m_count);
    for (int part = 0; part < m_parts; ++part) {
        Orderer& orderer = m_orderers[part];
        orderer.rowNext = AllocateArray<std::int64_t>(std::min(m_rowCount, std::int64_t{1} << m_shift) + 1);
        orderer.bucket = AllocateArray<Entry>(fullest);
        if (columns <= m_count + 1024)
            orderer.sorter.emplace(columns);
    }
}

void SparseRowBuilder::Take(Batches batches)
{
    blac::InTasks(m_parts, [&](int part) { ForPart(batches, m_parts, part, [&](Entries entries) { TakePart(part, entries); }); });
}

void SparseRowBuilder::TakePart(int part, Entries entries) noexcept
{
    std::int64_t* const next = NextOf(part);
    unsigned* const places = Places();
    double* const values = m_values.get();
    for (Entry const& entry : entries) {
        std::int64_t const place = next[BucketOf(entry.row)]++;
        std::memcpy(places + 2 * place, &entry, 2 * sizeof(unsigned)); // row and column at once
        values[place] = entry.value;
    }
}

// The buckets in parts of about as many entries.
std::int64_t SparseRowBuilder::FirstBucketOf(int part) const noexcept
{
    if (part == m_parts)
        return m_bucketCount;
    std::int64_t const* const ends = NextOf(m_parts - 1);
    return part == 0 ? 0 : std::lower_bound(ends, ends + m_bucketCount, blac::PieceBegin(m_count, m_parts, part)) - ends;
}

std::int64_t SparseRowBuilder::BeginOfPart(int part) const noexcept
{
    std::int64_t const first = FirstBucketOf(part);
    return first > 0 ? EndOfBucket(first - 1) : 0;
}

std::int64_t SparseRowBuilder::FirstRowOf(int part) const noexcept
{
    return std::min(FirstBucketOf(part) << m_shift, m_rowCount);
}

std::int64_t SparseRowBuilder::Finish()
{
    std::int64_t stored[kMostParts];
    m_rowStart[0] = 0;
    blac::InTasks(m_parts, [&](int part) { stored[part] = FinishPart(part); });
    for (int part = 0; part < m_parts; ++part)
        m_orderers[part].bucket.reset();
    if (m_parts > 1)
        MovePartsTogether(stored);
    std::int64_t const all = std::accumulate(stored, stored + m_parts, std::int64_t{0});
    ShrinkArray(m_columnIndices, all);
    ShrinkArray(m_values, all);
    return all;
}

CompressedRows SparseRowBuilder::Result() noexcept
{
    return {static_cast<int>(m_rowCount), m_columnCount, std::move(m_rowStart), std::move(m_columnIndices), std::move(m_values)};
}

// Writes the rows of the part's buckets from where these begin on, and where the rows end as if there were none before.
// @return entries stored
std::int64_t SparseRowBuilder::FinishPart(int part) noexcept
{
    Orderer& orderer = m_orderers[part];
    unsigned* const rowEnd = m_rowStart.get() + 1;
    std::int64_t begin = BeginOfPart(part);
    int* const columns = m_columnIndices.get() + 2 * begin;
    double* const values = m_values.get() + begin;
    if (orderer.sorter)
        orderer.sorter->Clear(); // not before: until now there were the pending entries to hold
    std::int64_t stored = 0;
    for (std::int64_t bucket = FirstBucketOf(part); bucket < FirstBucketOf(part + 1); ++bucket) {
        std::int64_t const end = EndOfBucket(bucket), firstRow = bucket << m_shift;
        std::int64_t const rows = std::min(m_rowCount - firstRow, std::int64_t{1} << m_shift);
        if (begin == end) {
            std::fill_n(rowEnd + firstRow, rows, static_cast<unsigned>(stored));
            continue;
        }
        CopyByRow(orderer, begin, end, firstRow, rows);
        std::int64_t next = 0;
        for (std::int64_t row = 0; row < rows; ++row) {
            std::int64_t const count = orderer.rowNext[row] - next;
            stored += SumRow(orderer.sorter, orderer.bucket.get() + next, count, columns + stored, values + stored);
            rowEnd[firstRow + row] = static_cast<unsigned>(stored);
            next += count;
        }
        begin = end;
    }
    return stored;
}

// No part reaches as far as the next one begins, so each can be moved when those before it have been.
void SparseRowBuilder::MovePartsTogether(std::int64_t const* stored)
{
    auto const forEachPart = [&](auto const& move) {
        std::int64_t before = stored[0];
        for (int part = 1; part < m_parts; before += stored[part++])
            move(part, BeginOfPart(part), before, static_cast<std::size_t>(stored[part]));
    };
    int* const columns = m_columnIndices.get();
    double* const values = m_values.get();
    blac::InTasks(3, [&](int task) {
        forEachPart([&](int part, std::int64_t begin, std::int64_t before, std::size_t count) {
            if (task == 0)
                std::memmove(columns + before, columns + 2 * begin, count * sizeof(int));
            else if (task == 1)
                std::memmove(values + before, values + begin, count * sizeof(double));
            else
                std::for_each(m_rowStart.get() + FirstRowOf(part) + 1, m_rowStart.get() + FirstRowOf(part + 1) + 1,
                              [&](unsigned& end) { end += static_cast<unsigned>(before); });
        });
    });
}

// Leaves in rowNext where each row ends.
void SparseRowBuilder::CopyByRow(Orderer& orderer, std::int64_t begin, std::int64_t end, std::int64_t firstRow, std::int64_t rows) noexcept
{
    unsigned const* const places = Places();
    double const* const values = m_values.get();
    std::int64_t* const next = orderer.rowNext.get();
    std::fill_n(next, rows + 1, 0);
    for (std::int64_t k = begin; k < end; ++k)
        ++next[places[2 * k] - firstRow + 1];
    for (std::int64_t row = 1; row < rows; ++row)
        next[row] += next[row - 1];
    Entry* const bucket = orderer.bucket.get();
    for (std::int64_t k = begin; k < end; ++k) {
        std::int64_t const place = next[places[2 * k] - firstRow]++;
        bucket[place] = {static_cast<unsigned>(place), places[2 * k + 1], values[k]}; // SortByColumn() asks for the order
    }
}

CompressedRows BuildRows(SparseRowBuilder::Batches batches, int rows, int columns)
{
    std::int64_t count = 0;
    for (SparseRowBuilder::Entries const& batch : batches)
        count += std::ssize(batch);
    SparseRowBuilder builder(count, rows);
    builder.Count(batches);
    builder.Prepare(columns);
    builder.Take(batches);
    builder.Finish();
    return builder.Result();
}

} // namespace KVOSrvSparseSupport
