// Products of a stored matrix, transposed, with matrices in memory or stored.

#include "DenseSlabs.h"

#include <climits>
#include <cstdint>

using namespace DenseSlabs;

namespace
{

// The memory for the rows of both operands that are multiplied at a time, 128 MiB; one block row is taken however large it is.
constexpr std::int64_t kPassEntries = std::int64_t{1} << 24;

// As many block rows of A as make a piece about as large as one of its block columns. The products of the sizes are formed in 64 bits:
// they may exceed 32, and the result does not depend on what comes out.
std::int64_t BlockRowsPerPass(KVOSrvDenseMatrix const& A, int otherRows)
{
    std::int64_t const divisor = std::int64_t{A.StoredRowBlocks().MaxNumberInBlock()} * A.NumberOfColumns();
    return divisor == 0 ? 1 : std::int64_t{A.StoredColumnBlocks().MaxNumberInBlock()} * otherRows / divisor;
}

// C := A(rows, :)^T X, added to C but for the first rows, in pieces of single block rows.
class PieceProduct
{
public:
    PieceProduct(KVOSrvDenseMatrix const& A, int p)
        : m_source(A, p, A.StoredColumnBlocks().MaxNumberInBlock(), INT64_MAX),
          m_panels(p > kFewVectors ? Walk(A.StoredColumnBlocks(), A.StoredColumnBlocks().blocks)
                                   : CachedPanels(A.StoredColumnBlocks(), A.StoredRowBlocks().MaxNumberInBlock())),
          m_slab(std::int64_t{A.StoredRowBlocks().MaxNumberInBlock()} * m_panels.MaxCount())
    {
    }

    void Announce(Span rows) const noexcept { m_source.AnnounceRows(rows); }
    /// @param rows  whole block rows @param X  as many rows
    void operator()(Span rows, KVOSrvMatrix const& X, KVOSrvMatrix& C) const
    {
        Factor const x{X.Values(), X.NumberOfRows()};
        Result const c{C.Values(), C.NumberOfRows()};
        KVOSrvDenseMatrix const& A = m_source.Matrix();
        int const p = X.NumberOfColumns();
        if (m_source.IsByBlocks())
            return MultiplyByBlocks(m_source, m_slab, "T", rows, {0, A.NumberOfColumns() - 1}, 1.0, x, p, rows.first == 0 ? 0.0 : 1.0, c);
        ForEachBlock(A.StoredRowBlocks(), rows, [&](Span block) {
            for (int panel = 0; panel < m_panels.Slabs(); ++panel) {
                Span const columns = m_panels.At(panel);
                m_slab.Read(A, {block.first, block.last, columns.first, columns.last});
                Multiply("T", {columns.Count(), p, block.Count()}, 1.0, {m_slab.Values(), block.Count()}, x.At(block.first - rows.first, 0),
                         block.first == 0 ? 0.0 : 1.0, c.At(columns.first, 0));
            }
        });
    }

private:
    Source m_source;
    Walk m_panels;
    Slab m_slab;
};

// C := A^T X in passes over the rows; readX(rows, values) puts those of X into memory. Small passes are multiplied in one, and those of a
// symmetric result, of which the lower triangle is formed.
template<class Read>
void MultiplyPasses(KVOSrvDenseMatrix const& A, Walk const& passes, int p, Read const& readX, KVOSrvMatrix& C, bool symmetric)
{
    int const columns = A.NumberOfColumns();
    if (columns == 0 || p == 0)
        return;
    std::int64_t const pass = std::int64_t{passes.MaxCount()} * columns;
    bool const whole = symmetric || pass <= kWholeSlab;
    Slab const slab(whole ? pass : 0), other(std::int64_t{passes.MaxCount()} * p);
    PieceProduct const product(A, p);
    int accumulate = 0;
    passes.ForEach([&](Span rows) { whole ? A.AnnounceRead(rows.first, rows.last, 0, columns - 1) : product.Announce(rows); },
                   [&](Span rows) {
                       KVOSrvMatrix x = other.As(rows.Count(), p);
                       Timed([&] { readX(rows, x); });
                       if (!whole)
                           return product(rows, x, C);
                       slab.Read(A, {rows.first, rows.last, 0, columns - 1});
                       Timed([&] { slab.As(rows.Count(), columns).TransposeMultiply(x, C, symmetric ? 1 : 0, accumulate); });
                       accumulate = 1;
                   });
    if (symmetric)
        C.SetSymmetricResults();
}

} // namespace

void KVOSrvDenseMatrix::TransposeMultiply(double const* x, int k, double* y, int r) const
{
    int const columns = NumberOfColumns();
    Require(k >= 0 && r >= 0, "TransposeMultiply", "the number of vectors or of rows is negative");
    RequireReadable(r <= NumberOfRows());
    if (k == 0 || r == 0 || columns == 0)
        return;
    Require(x != nullptr && y != nullptr, "TransposeMultiply", kNull);
    Require(x != y, "TransposeMultiply", kOverlap);
    Walk const slabs(StoredColumnBlocks());
    Slab const slab(std::int64_t{r} * slabs.MaxCount());
    Source const source(*this, k, slabs.MaxCount(), std::int64_t{r} * slabs.MaxCount());
    slabs.ForEach(
        [&](Span block) {
            source.Announce({0, r - 1, block.first, block.last});
        },
        [&](Span block) {
            Result const result = Result{y, columns}.At(block.first, 0);
            // Deliberate: y is not cleared, callers pass a prepared one.
            if (source.IsByBlocks())
                return MultiplyByBlocks(source, slab, "T", {0, r - 1}, block, 1.0, {x, r}, k, 1.0, result);
            slab.Read(*this, {0, r - 1, block.first, block.last});
            DenseSlabs::Multiply("T", {block.Count(), k, r}, 1.0, {slab.Values(), r}, {x, r}, 1.0, result);
        });
}

void KVOSrvDenseMatrix::TransposeMultiply(int const* perm, KVOSrvMatrix const& X, KVOSrvMatrix& Y, double alpha, double beta)
{
    int const rows = NumberOfRows(), p = X.NumberOfColumns();
    Require(IsFull(X, rows, p), "TransposeMultiply", kTransposedFactor);
    Require(Y.NumberOfRows() >= NumberOfColumns() && Y.NumberOfColumns() >= p && IsFull(Y), "TransposeMultiply", kTransposedResult);
    if (p == 0)
        return;
    Require(X.Values() != Y.Values(), "TransposeMultiply", kOverlap);
    Walk const slabs(StoredColumnBlocks());
    Slab const slab(std::int64_t{rows} * slabs.MaxCount());
    Source const source(*this, perm == nullptr ? p : INT_MAX, slabs.MaxCount(), std::int64_t{rows} * slabs.MaxCount());
    slabs.ForEach(
        [&](Span block) {
            source.Announce({0, rows - 1, block.first, block.last});
        },
        [&](Span block) { // rows are permuted in a copy
            Factor const x{X.Values(), rows};
            Result const result = Result{Y.Values(), Y.NumberOfRows()}.At(block.first, 0);
            if (source.IsByBlocks())
                return MultiplyByBlocks(source, slab, "T", {0, rows - 1}, block, alpha, x, p, beta, result);
            slab.Read(*this, {0, rows - 1, block.first, block.last});
            if (perm != nullptr)
                slab.As(rows, block.Count()).PermuteRowsInPlace(perm, rows);
            DenseSlabs::Multiply("T", {block.Count(), p, rows}, alpha, {slab.Values(), rows}, x, beta, result);
        });
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvMatrix const& X, double* C, int symmetric) const
{
    Require(C != nullptr, "TransposeMultiply", kNull);
    KVOSrvMatrix result(NumberOfColumns(), X.NumberOfColumns(), C, false, false);
    TransposeMultiply(X, result, symmetric);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvMatrix const& X, KVOSrvMatrix& C, int symmetric) const
{
    int const p = X.NumberOfColumns();
    Require(X.NumberOfRows() >= NumberOfRows() && IsFull(X), "TransposeMultiply", kTransposedFactor);
    Require(IsFull(C, NumberOfColumns(), p), "TransposeMultiply", kTransposedResult);
    Require(C.Values() != X.Values(), "TransposeMultiply", kOverlap);
    Walk const passes(StoredRowBlocks(), BlockRowsPerPass(*this, X.NumberOfRows()));
    MultiplyPasses(
        *this, passes, p, [&](Span rows, KVOSrvMatrix& x) { X.GetRows(rows.first, rows.last, x); }, C, symmetric != 0);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvDenseMatrix* C, int symmetric) const
{
    Require(B != nullptr && C != nullptr, "TransposeMultiply", kNull);
    int const p = B->NumberOfColumns();
    RequireReadable(B->NumberOfRows() >= NumberOfRows());
    Require(C->NumberOfRows() == NumberOfColumns(), "TransposeMultiply", kTransposedResult);
    RequireWritable(C->NumberOfColumns() >= p);
    if (p == 0 || C->NumberOfRows() == 0)
        return;
    KVOSrvMatrix result(NumberOfColumns(), p, nullptr, false, false);
    TransposeMultiply(B, result, symmetric);
    C->SetColumns(0, p - 1, result);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvDenseMatrix const* B, double* C, int symmetric) const
{
    Require(B != nullptr && C != nullptr, "TransposeMultiply", kNull);
    KVOSrvMatrix result(NumberOfColumns(), B->NumberOfColumns(), C, false, false);
    TransposeMultiply(B, result, symmetric);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvMatrix& C, int symmetric) const
{
    Require(B != nullptr, "TransposeMultiply", kNull);
    int const p = B->NumberOfColumns();
    RequireReadable(B->NumberOfRows() >= NumberOfRows());
    Require(IsFull(C, NumberOfColumns(), p), "TransposeMultiply", kTransposedResult);
    KVOSrvBlockCut const rows = StoredRowBlocks();
    std::int64_t const blockRow = std::max(1, rows.MaxNumberInBlock()) * std::max<std::int64_t>(1, std::int64_t{p} + NumberOfColumns());
    Walk const passes(rows, std::min(BlockRowsPerPass(*this, B->NumberOfRows()), kPassEntries / blockRow));
    MultiplyPasses(
        *this, passes, p, [&](Span pass, KVOSrvMatrix& b) { B->GetRows(pass.first, pass.last, b); }, C, symmetric != 0);
}
