#include "KVOSrvSparseMatrix.h"

#include "SparseRowBuilder.h"
#include "SparseRows.h"

#include <algorithm>
#include <climits>
#include <utility>

using namespace KVOSrvSparseSupport;

namespace
{

// A builder that has counted the entries; rows and columns are enlarged to hold them.
SparseRowBuilder CountedBuilder(std::int64_t count, SparseRowBuilder::Blocks blocks, std::int64_t& rows, std::int64_t& columns)
{
    auto const counted = [&] {
        SparseRowBuilder builder(count, rows);
        builder.Count(blocks);
        return builder;
    };
    SparseRowBuilder builder = counted();
    bool const suffices = builder.Rows() <= rows;
    rows = std::max(rows, builder.Rows());
    columns = std::max(columns, builder.Columns());
    return suffices ? std::move(builder) : counted();
}

} // namespace

void KVOSrvSparseMatrix::BeginAssembly()
{
    m_values.reset();
    m_columnIndices.reset();
    m_rowStart.reset();
    m_assembled = false;
}

// Grown by the allocator and not by doubling: the case is rare, and large arrays grow by remapping.
void KVOSrvSparseMatrix::CoverPlace(unsigned row, unsigned column)
{
    Require(row < INT_MAX && column < INT_MAX, "AddData", "an index exceeds 2^31 - 2");
    if (m_rowStart == nullptr || row < static_cast<unsigned>(m_rowCount))
        return;
    void* const memory = mem_Realloc(m_rowStart.get(), mem_ArrayBytes(std::int64_t{row} + 2, sizeof(unsigned)));
    if (memory == nullptr)
        throw mem_OutOfMemory(mem_ArrayBytes(std::int64_t{row} + 2, sizeof(unsigned)));
    static_cast<void>(m_rowStart.release());
    m_rowStart.reset(static_cast<unsigned*>(memory));
    std::fill(m_rowStart.get() + m_rowCount + 1, m_rowStart.get() + row + 2, m_rowStart[m_rowCount]);
}

void KVOSrvSparseMatrix::TakeRows(SparseRows& rows, int nonzeroCount) noexcept
{
    ReplaceRows(rows);
    m_diagonal.reset();
    m_nonzeroCount = nonzeroCount;
    m_pendingEntries.Truncate(0);
    m_assembled = true;
}

void KVOSrvSparseMatrix::EndAssembly()
{
    if (m_assembled)
        return;
    Entries blocks[decltype(m_pendingEntries)::kMaxBlocks];
    for (int block = 0; block < m_pendingEntries.BlockCount(); ++block)
        blocks[block] = m_pendingEntries.Block(block);
    SparseRowBuilder::Blocks const all(blocks, static_cast<std::size_t>(m_pendingEntries.BlockCount()));
    // The entries may need more columns than there are where those were dropped since, by EliminateTrivialColumns().
    std::int64_t rows = m_rowCount, columns = m_columnCount;
    SparseRowBuilder builder = CountedBuilder(m_pendingEntries.Size(), all, rows, columns);
    builder.Prepare(columns);

    // Nothing can fail from here on, unless it takes the sums to tell whether the entries can be numbered, or the host's threads do.
    if (m_pendingEntries.Size() <= INT_MAX && builder.Parts() == 1)
        m_pendingEntries.Drain([&](Entries entries) { builder.TakeNext(entries); });
    else
        builder.Take(all);
    std::int64_t const stored = builder.Finish();
    Require(stored <= INT_MAX, "EndAssembly", "more than 2^31 - 1 entries would be stored");
    m_rowCount = static_cast<int>(rows);
    m_columnCount = static_cast<int>(columns);
    TakeRows(builder.Result(), static_cast<int>(stored));
}

void KVOSrvSparseMatrix::ResetData(std::span<Entries const> blocks, int rows, int columns)
{
    Require(rows >= 0 && columns >= 0, "ResetData", "a size is negative");
    std::int64_t count = 0;
    for (Entries const& block : blocks)
        count += std::ssize(block);
    SparseRowBuilder builder(count, rows);
    builder.Count(blocks);
    Require(builder.Rows() <= rows && builder.Columns() <= columns, "ResetData", "an entry lies outside the matrix");
    builder.Prepare(columns);

    builder.Take(blocks);
    std::int64_t const stored = builder.Finish();
    m_rowCount = rows;
    m_columnCount = columns;
    m_symmetryState = 0;
    TakeRows(builder.Result(), static_cast<int>(stored));
}

void KVOSrvSparseMatrix::Subtract(KVOSrvSparseMatrix const& A, KVOSrvSparseMatrix const& B)
{
    A.RequireAssembled("Subtract");
    B.RequireAssembled("Subtract");
    // Both lists are taken before anything changes: A or B may be this matrix.
    int countA = 0, countB = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const a(A.GetEntries(countA)), b(B.GetEntries(countB));
    std::for_each_n(b.get(), countB, [](KVOSrvSparseMatrixEntry& entry) { entry.value = -entry.value; });
    Entries const lists[] = {Entries(a.get(), static_cast<std::size_t>(countA)), Entries(b.get(), static_cast<std::size_t>(countB))};
    std::int64_t rows = m_rowCount, columns = m_columnCount;
    SparseRowBuilder builder = CountedBuilder(std::int64_t{countA} + countB, lists, rows, columns);
    builder.Prepare(columns);

    builder.Take(lists);
    std::int64_t const stored = builder.Finish();
    Require(stored <= INT_MAX, "Subtract", "more than 2^31 - 1 entries would be stored");
    m_rowCount = static_cast<int>(rows);
    m_columnCount = static_cast<int>(columns);
    m_symmetryState = 0;
    TakeRows(builder.Result(), static_cast<int>(stored));
}
