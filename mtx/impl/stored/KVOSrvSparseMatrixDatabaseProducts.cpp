// Products with stored matrices.

#include "DenseBuffer.h"
#include "DenseChecks.h"
#include "DenseWalk.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"
#include "SparseProducts.h"
#include "SparseRows.h"
#include "StatedMemory.h"

#include <climits>

using namespace KVOSrvSparseSupport;
using DensePieces::Buffer;
using DenseSlabs::Span;
using DenseSlabs::Walk;

namespace
{

// From as many runs of rows on a block of X is read as a whole: a request for each run would cost more.
constexpr int kManyRuns = 1000;

// Ascending row numbers and their runs of consecutive ones.
struct RowList {
    explicit RowList(unsigned* list, int listLength) : rows(list), count(listLength)
    {
        runs = KVOSrvContiguousRanges(reinterpret_cast<int const*>(list), listLength, INT_MAX, runCount);
    }

    std::unique_ptr<unsigned[]> rows;
    int count;
    std::unique_ptr<int[]> runs; // runCount + 1 offsets into rows
    int runCount = 0;
};

void CopyRows(double const* source, int sourceRows, unsigned const* rows, int count, int columns, double* target, int targetRows)
{
    for (int j = 0; j < columns; ++j)
        for (int k = 0; k < count; ++k)
            target[k + std::int64_t{j} * targetRows] = source[rows[k] + std::int64_t{j} * sourceRows];
}

// gathered(k, j) := X(list[k], j) for a block of columns.
class Gatherer
{
public:
    Gatherer(KVOSrvDenseMatrix const& X, RowList const& list, int maxColumns)
        : m_matrix(X), m_list(list), m_rowsRead(RowsRead(X, list)), m_gathered(std::int64_t{list.count} * maxColumns),
          m_read(std::int64_t{m_rowsRead} * maxColumns)
    {
    }

    double const* operator()(Span columns) const
    {
        if (m_list.count > 0 && m_list.runCount >= kManyRuns)
            Pick(columns);
        else if (m_list.runCount == 1)
            m_gathered.Read(m_matrix, Window(0, columns));
        else
            for (int run = 0; run < m_list.runCount; ++run)
                CopyRun(run, columns);
        return m_gathered.Values();
    }

    // Rows in memory beside the gathered ones: all, or the longest run unless that is all there is.
    static int RowsRead(KVOSrvDenseMatrix const& X, RowList const& list)
    {
        if (list.runCount >= kManyRuns)
            return X.NumberOfRows();
        int longest = 0;
        for (int run = 0; list.runCount > 1 && run < list.runCount; ++run)
            longest = std::max(longest, list.runs[run + 1] - list.runs[run]);
        return longest;
    }

private:
    DensePieces::Window Window(int run, Span columns) const
    {
        auto const row = [&](int position) { return static_cast<int>(m_list.rows[position]); };
        return {row(m_list.runs[run]), row(m_list.runs[run + 1] - 1), columns.first, columns.last};
    }
    void Pick(Span columns) const
    {
        m_read.Read(m_matrix, {0, m_rowsRead - 1, columns.first, columns.last});
        CopyRows(m_read.Values(), m_rowsRead, m_list.rows.get(), m_list.count, columns.Count(), m_gathered.Values(), m_list.count);
    }
    void CopyRun(int run, Span columns) const
    {
        DensePieces::Window const window = Window(run, columns);
        m_read.Read(m_matrix, window);
        for (int j = 0; j < columns.Count(); ++j)
            std::copy_n(m_read.Values() + std::int64_t{j} * window.Rows(), window.Rows(),
                        m_gathered.Values() + m_list.runs[run] + std::int64_t{j} * m_list.count);
    }

    KVOSrvDenseMatrix const& m_matrix;
    RowList const& m_list;
    int m_rowsRead;
    Buffer m_gathered;
    Buffer m_read;
};

// The block columns of X, or fewer columns at a time where a stated memory has no more room for what each takes.
Walk ColumnsWithin(KVOSrvDenseMatrix const& X, std::int64_t entriesPerColumn, std::int64_t entriesBeside)
{
    StatedMemory::Require(entriesPerColumn + entriesBeside, "MultiplyDense", RequireFitting);
    return Walk(StatedMemory::ColumnsWithin(X.StoredColumnBlocks(), entriesPerColumn, entriesBeside));
}

} // namespace

void KVOSrvSparseMatrix::MultiplyDense(KVOSrvDenseMatrix const& X, KVOSrvDenseMatrix& Y, bool transpose) const
{
    RequireAssembled("MultiplyDense");
    int const outRows = transpose ? m_columnCount : m_rowCount, inRows = transpose ? m_rowCount : m_columnCount;
    DenseChecks::RequireReadable(inRows <= X.NumberOfRows());
    DenseChecks::RequireWritable(outRows <= Y.NumberOfRows() && X.NumberOfColumns() <= Y.NumberOfColumns());
    // A block of columns is read before it is replaced, but another one must not be replaced before it is read.
    RequireFitting(!X.Overlaps(Y) || X.StoredColumnBlocks().offset == Y.StoredColumnBlocks().offset, "MultiplyDense",
                   "Y overlaps X in other columns");
    int const extraRows = Y.NumberOfRows() - outRows;
    Walk const blocks = ColumnsWithin(X, std::int64_t{inRows} + outRows + extraRows, 0);
    Buffer const input(std::int64_t{inRows} * blocks.MaxCount()), output(std::int64_t{outRows} * blocks.MaxCount());
    Buffer const zeros(std::int64_t{extraRows} * blocks.MaxCount());
    std::fill_n(zeros.Values(), std::int64_t{extraRows} * blocks.MaxCount(), 0.0);
    blocks.ForEach([&](Span columns) { X.AnnounceRead(0, inRows - 1, columns.first, columns.last); },
                   [&](Span columns) {
                       input.Read(X, {0, inRows - 1, columns.first, columns.last});
                       Multiply(input.Values(), columns.Count(), output.Values(), transpose);
                       output.Write(Y, {0, outRows - 1, columns.first, columns.last});
                       zeros.Write(Y, {outRows, Y.NumberOfRows() - 1, columns.first, columns.last});
                   });
}

void KVOSrvSparseMatrix::MultiplyDense(KVOSrvDenseMatrix const& X, double* y, bool transpose) const
{
    RequireAssembled("MultiplyDense");
    RequireFull("MultiplyDense");
    int const outRows = transpose ? m_columnCount : m_rowCount;
    RequireFitting(!transpose || y != nullptr || outRows == 0 || X.NumberOfColumns() == 0, "MultiplyDense", "y is null");
    int count = 0;
    unsigned* const rows = transpose ? FindNontrivialRows(count) : FindNontrivialColumns(count);
    RowList const list(rows, count);
    DenseChecks::RequireReadable(count == 0 || rows[count - 1] < static_cast<unsigned>(X.NumberOfRows()));
    Walk const blocks = ColumnsWithin(X, std::int64_t{count} + Gatherer::RowsRead(X, list), std::int64_t{count} + list.runCount);
    Gatherer const gather(X, list, blocks.MaxCount());
    auto const announce = [&](Span columns) {
        if (count > 0)
            X.AnnounceRead(static_cast<int>(rows[0]), static_cast<int>(rows[count - 1]), columns.first, columns.last);
    };
    KVOSrvSparseRows const a = View();
    blocks.ForEach(announce, [&](Span columns) {
        // Deliberate: without `transpose` this throws, only now and for every such call. Callers rely on the refusal.
        MultiplyIndexed(a, gather(columns), columns.Count(), y + std::int64_t{columns.first} * outRows, transpose, count, list.rows.get());
    });
}
