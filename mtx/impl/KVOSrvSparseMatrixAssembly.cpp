#include "KVOSrvSparseMatrix.h"

#include "SparseRowBuilder.h"
#include "SparseRows.h"

#include <algorithm>
#include <climits>
#include <utility>

using namespace KVOSrvSparseSupport;

namespace
{

using Entries = SparseRowBuilder::Entries;

// A builder that has counted the entries, which forEachPiece hands out; rows and columns are enlarged to hold them.
template<class ForEachPiece>
SparseRowBuilder CountedBuilder(std::int64_t count, ForEachPiece const& forEachPiece, std::int64_t& rows, std::int64_t& columns)
{
    auto const counted = [&] {
        SparseRowBuilder builder(count, rows);
        forEachPiece([&](Entries entries) { builder.Count(entries); });
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
    auto const forEachBlock = [this](auto const& take) {
        for (int block = 0; block < m_pendingEntries.BlockCount(); ++block)
            take(m_pendingEntries.Block(block));
    };
    // The entries may need more columns than there are where those were dropped since, by EliminateTrivialColumns().
    std::int64_t rows = m_rowCount, columns = m_columnCount;
    SparseRowBuilder builder = CountedBuilder(m_pendingEntries.Size(), forEachBlock, rows, columns);
    builder.Prepare(columns);

    // Nothing can fail from here on, unless it takes the sums to tell whether the entries can be numbered.
    auto const take = [&](Entries entries) { builder.Take(entries); };
    if (m_pendingEntries.Size() <= INT_MAX)
        m_pendingEntries.Drain(take);
    else
        forEachBlock(take);
    std::int64_t const stored = builder.Finish();
    Require(stored <= INT_MAX, "EndAssembly", "more than 2^31 - 1 entries would be stored");
    m_rowCount = static_cast<int>(rows);
    m_columnCount = static_cast<int>(columns);
    TakeRows(builder.Result(), static_cast<int>(stored));
}

void KVOSrvSparseMatrix::ResetData(KVOSrvSparseMatrixEntry const* entries, int count, int rows, int columns)
{
    Require(count >= 0 && rows >= 0 && columns >= 0, "ResetData", "a size is negative");
    Entries const piece(entries, static_cast<std::size_t>(count));
    SparseRowBuilder builder(count, rows);
    builder.Count(piece);
    Require(builder.Rows() <= rows && builder.Columns() <= columns, "ResetData", "an entry lies outside the matrix");
    builder.Prepare(columns);

    builder.Take(piece);
    m_rowCount = rows;
    m_columnCount = columns;
    m_symmetryState = 0;
    TakeRows(builder.Result(), static_cast<int>(builder.Finish()));
}

void KVOSrvSparseMatrix::Subtract(KVOSrvSparseMatrix const& A, KVOSrvSparseMatrix const& B)
{
    A.RequireAssembled("Subtract");
    B.RequireAssembled("Subtract");
    // Both lists are taken before anything changes: A or B may be this matrix.
    int countA = 0, countB = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const a(A.GetEntries(countA)), b(B.GetEntries(countB));
    std::for_each_n(b.get(), countB, [](KVOSrvSparseMatrixEntry& entry) { entry.value = -entry.value; });
    auto const forEachList = [&](auto const& take) {
        take(Entries(a.get(), static_cast<std::size_t>(countA)));
        take(Entries(b.get(), static_cast<std::size_t>(countB)));
    };
    std::int64_t rows = m_rowCount, columns = m_columnCount;
    SparseRowBuilder builder = CountedBuilder(std::int64_t{countA} + countB, forEachList, rows, columns);
    builder.Prepare(columns);

    forEachList([&](Entries entries) { builder.Take(entries); });
    std::int64_t const stored = builder.Finish();
    Require(stored <= INT_MAX, "Subtract", "more than 2^31 - 1 entries would be stored");
    m_rowCount = static_cast<int>(rows);
    m_columnCount = static_cast<int>(columns);
    m_symmetryState = 0;
    TakeRows(builder.Result(), static_cast<int>(stored));
}
