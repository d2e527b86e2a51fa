// Products of a stored matrix, transposed, with matrices in memory or stored.

#include "DenseChecks.h"
#include "DenseSource.h"
#include "TiledProduct.h"

#include <climits>
#include <cstdint>

using namespace DenseChecks;
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

// Y := alpha A(0 .. r - 1, :)^T X + beta Y for p vectors, block column by block column; prepare(buffer, columns) changes what was read.
// @param decidedFor  the vectors by which is decided how A is read
template<class Prepare>
void MultiplyColumns(KVOSrvDenseMatrix const& A, int r, int p, int decidedFor, double alpha, double const* X, double beta, Result const& Y,
                     Prepare const& prepare)
{
    Walk const slabs(A.StoredColumnBlocks());
    Source const source(A, decidedFor, slabs.MaxCount(), std::int64_t{r} * slabs.MaxCount());
    mem_Vector<Buffer> const memory = BuffersAtOnce(std::int64_t{r} * slabs.MaxCount(), source.AtOnce(slabs.Slabs()));
    slabs.ForEachFew(
        static_cast<int>(memory.size()),
        [&](Span block) {
            source.Announce({0, r - 1, block.first, block.last});
        },
        [&](std::span<Span const> few) {
            if (source.IsByBlocks())
                return MultiplyByBlocks(source, memory, "T", {0, r - 1}, WholeOf(few), alpha, {X, r}, p, beta, Y.At(few.front().first, 0));
            ReadAndMultiply(
                static_cast<int>(few.size()), memory,
                [&](int k, Buffer const& buffer) {
                    Span const block = few[static_cast<std::size_t>(k)];
                    buffer.Read(A, {0, r - 1, block.first, block.last});
                    prepare(buffer, block);
                },
                [&](int k, Buffer const& buffer) {
                    Span const block = few[static_cast<std::size_t>(k)];
                    Multiply("T", {block.Count(), p, r}, alpha, {buffer.Values(), r}, {X, r}, beta, Y.At(block.first, 0));
                });
        });
}

// Y := alpha (P A(0 .. rows - 1, :))^T X + beta Y within the limit for the memory of products; X in memory or stored.
void MultiplyTiles(KVOSrvDenseMatrix const& A, int rows, int const* permutation, DenseTiles::Right const& X, int p, double alpha,
                   double beta, Result const& Y, DenseTiles::Half half = DenseTiles::Half::None)
{
    KVOSrvDenseMatrix const* const a = &A;
    DenseTiles::Multiply("TransposeMultiply", {{&a, 1}, {0, rows - 1}, true, permutation}, X, p, alpha, beta, {nullptr, Y}, half);
}

// C := A(rows, :)^T X, added to C but for the first rows, in pieces of single block rows.
class PieceProduct
{
public:
    PieceProduct(KVOSrvDenseMatrix const& A, int p)
        : m_source(A, p, A.StoredColumnBlocks().MaxNumberInBlock(), INT64_MAX),
          m_panels(p > kFewVectors ? Walk(A.StoredColumnBlocks(), A.StoredColumnBlocks().blocks)
                                   : CachedPanels(A.StoredColumnBlocks(), A.StoredRowBlocks().MaxNumberInBlock())),
          m_memory(
              BuffersAtOnce(std::int64_t{A.StoredRowBlocks().MaxNumberInBlock()} * m_panels.MaxCount(), m_source.AtOnce(m_panels.Slabs())))
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
            return MultiplyByBlocks(m_source, m_memory, "T", rows, {0, A.NumberOfColumns() - 1}, 1.0, x, p, rows.first == 0 ? 0.0 : 1.0, c);
        ForEachBlock(A.StoredRowBlocks(), rows, [&](Span block) {
            ReadAndMultiply(
                m_panels.Slabs(), m_memory,
                [&](int panel, Buffer const& buffer) {
                    Span const columns = m_panels.At(panel);
                    buffer.Read(A, {block.first, block.last, columns.first, columns.last});
                },
                [&](int panel, Buffer const& buffer) {
                    Span const columns = m_panels.At(panel);
                    Multiply("T", {columns.Count(), p, block.Count()}, 1.0, {buffer.Values(), block.Count()},
                             x.At(block.first - rows.first, 0), block.first == 0 ? 0.0 : 1.0, c.At(columns.first, 0));
                });
        });
    }

private:
    Source m_source;
    Walk m_panels;
    mem_Vector<Buffer> m_memory;
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
    Buffer const slab(whole ? pass : 0), other(std::int64_t{passes.MaxCount()} * p);
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

void Mirror(KVOSrvMatrix& C, int symmetric)
{
    if (symmetric != 0)
        C.SetSymmetricResults();
}

} // namespace

void KVOSrvDenseMatrix::TransposeMultiply(double const* x, int k, double* y, int r) const
{
    int const columns = NumberOfColumns();
    RequireFitting(k >= 0 && r >= 0, "TransposeMultiply", "the number of vectors or of rows is negative");
    RequireReadable(r <= NumberOfRows());
    if (k == 0 || r == 0 || columns == 0)
        return;
    RequireFitting(x != nullptr && y != nullptr, "TransposeMultiply", kNull);
    RequireFitting(x != y, "TransposeMultiply", kOverlap);
    // Deliberate: y is not cleared, callers pass a prepared one.
    if (KVOSrvProductMemory::IsSet())
        return MultiplyTiles(*this, r, nullptr, {nullptr, {x, r}}, k, 1.0, 1.0, {y, columns});
    MultiplyColumns(*this, r, k, k, 1.0, x, 1.0, {y, columns}, [](Buffer const&, Span) {});
}

void KVOSrvDenseMatrix::TransposeMultiply(int const* perm, KVOSrvMatrix const& X, KVOSrvMatrix& Y, double alpha, double beta)
{
    int const rows = NumberOfRows(), p = X.NumberOfColumns();
    RequireFitting(IsFull(X, rows, p), "TransposeMultiply", kTransposedFactor);
    RequireFitting(Y.NumberOfRows() >= NumberOfColumns() && Y.NumberOfColumns() >= p && IsFull(Y), "TransposeMultiply", kTransposedResult);
    if (p == 0)
        return;
    RequireFitting(X.Values() != Y.Values(), "TransposeMultiply", kOverlap);
    if (KVOSrvProductMemory::IsSet())
        return MultiplyTiles(*this, rows, perm, {nullptr, {X.Values(), rows}}, p, alpha, beta, {Y.Values(), Y.NumberOfRows()});
    // Rows are permuted in a copy.
    MultiplyColumns(*this, rows, p, perm == nullptr ? p : INT_MAX, alpha, X.Values(), beta, {Y.Values(), Y.NumberOfRows()},
                    [&](Buffer const& buffer, Span block) {
                        if (perm != nullptr)
                            buffer.As(rows, block.Count()).PermuteRowsInPlace(perm, rows);
                    });
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvMatrix const& X, double* C, int symmetric) const
{
    RequireFitting(C != nullptr, "TransposeMultiply", kNull);
    KVOSrvMatrix result(NumberOfColumns(), X.NumberOfColumns(), C, false, false);
    TransposeMultiply(X, result, symmetric);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvMatrix const& X, KVOSrvMatrix& C, int symmetric) const
{
    int const p = X.NumberOfColumns();
    RequireFitting(X.NumberOfRows() >= NumberOfRows() && IsFull(X), "TransposeMultiply", kTransposedFactor);
    RequireFitting(IsFull(C, NumberOfColumns(), p), "TransposeMultiply", kTransposedResult);
    RequireFitting(C.Values() != X.Values(), "TransposeMultiply", kOverlap);
    if (KVOSrvProductMemory::IsSet()) {
        MultiplyTiles(*this, NumberOfRows(), nullptr, {nullptr, {X.Values(), X.NumberOfRows()}}, p, 1.0, 0.0,
                      {C.Values(), C.NumberOfRows()}, DenseTiles::HalfOf(symmetric, C.NumberOfRows(), p));
        return Mirror(C, symmetric);
    }
    Walk const passes(StoredRowBlocks(), BlockRowsPerPass(*this, X.NumberOfRows()));
    MultiplyPasses(
        *this, passes, p, [&](Span rows, KVOSrvMatrix& x) { X.GetRows(rows.first, rows.last, x); }, C, symmetric != 0);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvDenseMatrix* C, int symmetric) const
{
    RequireFitting(B != nullptr && C != nullptr, "TransposeMultiply", kNull);
    int const p = B->NumberOfColumns();
    RequireReadable(B->NumberOfRows() >= NumberOfRows());
    RequireFitting(C->NumberOfRows() == NumberOfColumns(), "TransposeMultiply", kTransposedResult);
    RequireWritable(C->NumberOfColumns() >= p);
    if (p == 0 || C->NumberOfRows() == 0)
        return;
    if (KVOSrvProductMemory::IsSet()) {
        KVOSrvDenseMatrix const* const a = this;
        return DenseTiles::MultiplyStored("TransposeMultiply", {&a, 1}, NumberOfRows(), *B, *C, symmetric);
    }
    KVOSrvMatrix result(NumberOfColumns(), p, nullptr, false, false);
    TransposeMultiply(B, result, symmetric);
    C->SetColumns(0, p - 1, result);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvDenseMatrix const* B, double* C, int symmetric) const
{
    RequireFitting(B != nullptr && C != nullptr, "TransposeMultiply", kNull);
    KVOSrvMatrix result(NumberOfColumns(), B->NumberOfColumns(), C, false, false);
    TransposeMultiply(B, result, symmetric);
}

void KVOSrvDenseMatrix::TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvMatrix& C, int symmetric) const
{
    RequireFitting(B != nullptr, "TransposeMultiply", kNull);
    int const p = B->NumberOfColumns();
    RequireReadable(B->NumberOfRows() >= NumberOfRows());
    RequireFitting(IsFull(C, NumberOfColumns(), p), "TransposeMultiply", kTransposedResult);
    if (KVOSrvProductMemory::IsSet()) {
        MultiplyTiles(*this, NumberOfRows(), nullptr, {B}, p, 1.0, 0.0, {C.Values(), C.NumberOfRows()},
                      DenseTiles::HalfOf(symmetric, C.NumberOfRows(), p));
        return Mirror(C, symmetric);
    }
    KVOSrvBlockCut const rows = StoredRowBlocks();
    std::int64_t const blockRow = std::max(1, rows.MaxNumberInBlock()) * std::max<std::int64_t>(1, std::int64_t{p} + NumberOfColumns());
    Walk const passes(rows, std::min(BlockRowsPerPass(*this, B->NumberOfRows()), kPassEntries / blockRow));
    MultiplyPasses(
        *this, passes, p, [&](Span pass, KVOSrvMatrix& b) { B->GetRows(pass.first, pass.last, b); }, C, symmetric != 0);
}
