// Products of a stored matrix, walked by block rows, with matrices in memory.

#include "DenseChecks.h"
#include "DenseKernels.h"
#include "DenseRowProduct.h"
#include "TiledProduct.h"

using namespace DenseChecks;
using namespace DenseSlabs;

namespace
{

// C := A X + beta C for arrays in memory.
void MultiplyInMemory(KVOSrvDenseMatrix const& A, double const* X, int p, double beta, double* C)
{
    int const rows = A.NumberOfRows(), columns = A.NumberOfColumns();
    if (rows == 0 || p == 0)
        return;
    RequireFitting((X != nullptr || columns == 0) && C != nullptr, "Multiply", "an array is null");
    RequireFitting(X != C, "Multiply", "the result is an operand");
    if (KVOSrvProductMemory::IsSet()) {
        KVOSrvDenseMatrix const* const a = &A;
        return DenseTiles::Multiply("Multiply", {{&a, 1}, {0, rows - 1}}, {nullptr, {X, columns}}, p, 1.0, beta, {nullptr, {C, rows}});
    }
    Walk const slabs(A.StoredRowBlocks(), BlockRowsPerSlab(A, p, 0));
    RowProduct const product(A, slabs.MaxCount(), p, slabs.Slabs());
    slabs.ForEachFew(
        product.SlabsAtOnce(), [&](Span slab) { product.Announce(slab); },
        [&](std::span<Span const> few) {
            product(few, 1.0, {X, columns}, beta, Result{C, rows}.At(few.front().first, 0));
        });
}

// C(:, j) += d(j) A(:, j)
void AddScaledColumns(double const* d, Buffer const& A, int rows, int columns, double* C)
{
    for (int j = 0; j < columns; ++j)
        DenseKernels::AddMultiple(d[j], A.Values() + std::int64_t{j} * rows, rows, C + std::int64_t{j} * rows, 1);
}

void Scale(double factor, std::int64_t count, double* values)
{
    std::for_each_n(values, count, [factor](double& value) { value *= factor; });
}

// The same for a part of Y, through memory for it and for as much of A.
void MultiplyPartByDiagonal(KVOSrvDenseMatrix const& A, double const* diagonal, double beta, KVOSrvDenseMatrix& Y, Window const& window,
                            Buffer const& part, Buffer const& result)
{
    if (beta == 0.0)
        std::fill_n(result.Values(), window.Entries(), 0.0);
    else
        result.Read(Y, window);
    if (beta != 0.0 && beta != 1.0)
        Scale(beta, window.Entries(), result.Values());
    part.Read(A, window);
    Timed([&] { AddScaledColumns(diagonal + window.c0, part, window.Rows(), window.Columns(), result.Values()); });
    result.Write(Y, window);
}

// The same within the limit for the memory of products.
void MultiplyByDiagonalInPieces(KVOSrvDenseMatrix const& A, double const* diagonal, double beta, KVOSrvDenseMatrix& Y)
{
    std::int64_t const entries = StatedMemory::EntriesFor(kWholeSlab, 2);
    KVOSrvBlockCut const rows = Y.StoredRowBlocks();
    KVOSrvBlockCut columns = Y.StoredColumnBlocks();
    DensePieces::Limit limit = DensePieces::LimitEntries(rows, entries);
    StatedMemory::Require(2, "Multiply");
    if (A.Overlaps(Y)) { // whole rows: a row of A is not read again when it has been written
        StatedMemory::Require(2 * std::int64_t{columns.size}, "Multiply");
        limit = {static_cast<int>(std::max<std::int64_t>(1, entries / columns.size)), columns.size};
        columns = KVOSrvBlockCut::Whole(columns.size, 0);
    }
    Buffer const part(rows, columns, limit), result(rows, columns, limit);
    DensePieces::ForEachPiece(rows, columns, limit,
                              [&](Window const& window) { MultiplyPartByDiagonal(A, diagonal, beta, Y, window, part, result); });
}

// Y := A D + beta Y, D given by its diagonal.
void MultiplyByDiagonal(KVOSrvDenseMatrix const& A, double const* diagonal, double beta, KVOSrvDenseMatrix& Y)
{
    if (KVOSrvProductMemory::IsSet())
        return MultiplyByDiagonalInPieces(A, diagonal, beta, Y);
    int const columns = A.NumberOfColumns();
    Walk const slabs(Y.StoredRowBlocks());
    Buffer const slab(std::int64_t{slabs.MaxCount()} * columns), result(std::int64_t{slabs.MaxCount()} * columns);
    slabs.ForEach([&](Span rows) { A.AnnounceRead(rows.first, rows.last, 0, columns - 1); },
                  [&](Span rows) {
                      MultiplyPartByDiagonal(A, diagonal, beta, Y, {rows.first, rows.last, 0, columns - 1}, slab, result);
                  });
}

// Whether what is written to Y, rows by rows of A, is read from A later.
bool IsReadAfterWriting(KVOSrvDenseMatrix const& A, KVOSrvDenseMatrix const& Y)
{
    return A.Overlaps(Y) && A.StoredRowBlocks().offset != Y.StoredRowBlocks().offset;
}

// Rows of one group: `rows` of A go to `targets` of Y.
struct Group {
    Span rows, targets;
};

Group GroupAt(int const* rows, int const* ranges, int g)
{
    int const first = ranges[g], last = ranges[g + 1] - 1;
    return {{rows[first], rows[last]}, {first, last}};
}

// The groups rise without gaps from ranges[0], and each names as many rows.
bool AreGroups(int const* rows, int const* ranges, int count)
{
    if (count > 0 && ranges[0] < 0)
        return false;
    for (int g = 0; g < count; ++g) {
        if (ranges[g + 1] <= ranges[g])
            return false;
        Group const group = GroupAt(rows, ranges, g);
        if (std::int64_t{group.rows.last} - group.rows.first != group.targets.last - group.targets.first)
            return false;
    }
    return true;
}

} // namespace

void KVOSrvDenseMatrix::Multiply(double const* x, int k, double* y) const
{
    RequireFitting(k >= 0, "Multiply", "the number of vectors is negative");
    MultiplyInMemory(*this, x, k, 1.0, y); // deliberate: y is not cleared, callers pass a prepared one
}

void KVOSrvDenseMatrix::Multiply(KVOSrvMatrix const& X, KVOSrvMatrix& Y) const
{
    int const p = X.NumberOfColumns();
    RequireFitting(IsFull(X, NumberOfColumns(), p), "Multiply", kFactor);
    RequireFitting(Y.NumberOfRows() == NumberOfRows() && Y.NumberOfColumns() >= p && IsFull(Y), "Multiply",
                   "the result has not the product's shape");
    MultiplyInMemory(*this, X.Values(), p, 0.0, Y.Values());
}

void KVOSrvDenseMatrix::Multiply(double alpha, KVOSrvMatrix const& X, double beta, KVOSrvDenseMatrix& Y) const
{
    int const columns = NumberOfColumns(), p = X.NumberOfColumns();
    RequireFitting(X.NumberOfRows() == columns, "Multiply", kFactor);
    RequireFitting(Y.NumberOfColumns() == p, "Multiply", "the result has not as many columns as X");
    RequireReadable(Y.NumberOfRows() <= NumberOfRows());
    RequireFitting(!X.IsDiagonal() || p == columns, "Multiply", "X is diagonal and not square");
    RequireFitting(!IsReadAfterWriting(*this, Y), "Multiply", kOverlap);
    if (p == 0)
        return;
    if (X.IsDiagonal())
        return MultiplyByDiagonal(*this, X.Values(), beta, Y); // deliberate: alpha is not applied to a diagonal X
    if (KVOSrvProductMemory::IsSet()) {
        KVOSrvDenseMatrix const* const a = this;
        return DenseTiles::Multiply("Multiply", {{&a, 1}, {0, Y.NumberOfRows() - 1}}, {nullptr, {X.Values(), columns}}, p, alpha, beta,
                                    {&Y, {nullptr, 0}, 0, Overlaps(Y)});
    }
    Walk const slabs(Y.StoredRowBlocks(), BlockRowsPerSlab(*this, p, p));
    RowProduct const product(*this, slabs.MaxCount(), p, slabs.Slabs());
    Buffer const result(std::int64_t{slabs.MaxCount()} * p * product.SlabsAtOnce());
    slabs.ForEachFew(
        product.SlabsAtOnce(),
        [&](Span rows) {
            if (beta != 0.0)
                Y.AnnounceRead(rows.first, rows.last, 0, p - 1);
            product.Announce(rows);
        },
        [&](std::span<Span const> few) {
            Span const rows = WholeOf(few);
            Window const window{rows.first, rows.last, 0, p - 1};
            if (beta != 0.0)
                result.Read(Y, window);
            product(few, alpha, {X.Values(), columns}, beta, {result.Values(), rows.Count()});
            result.Write(Y, window);
        });
}

void KVOSrvDenseMatrix::MultiplyAssign(KVOSrvMatrix const& X)
{
    int const columns = NumberOfColumns();
    RequireFitting(IsFull(X, columns, columns), "MultiplyAssign", "X is not full and square with as many rows as the matrix has columns");
    if (columns == 0)
        return;
    if (KVOSrvProductMemory::IsSet()) {
        KVOSrvDenseMatrix const* const a = this;
        return DenseTiles::Multiply("MultiplyAssign", {{&a, 1}, {0, NumberOfRows() - 1}}, {nullptr, {X.Values(), columns}}, columns, 1.0,
                                    0.0, {this, {nullptr, 0}, 0, true});
    }
    Walk const slabs(StoredRowBlocks());
    RowProduct const product(*this, slabs.MaxCount(), columns, slabs.Slabs());
    Buffer const result(std::int64_t{slabs.MaxCount()} * columns * product.SlabsAtOnce());
    slabs.ForEachFew(
        product.SlabsAtOnce(), [&](Span rows) { product.Announce(rows); },
        [&](std::span<Span const> few) {
            Span const rows = WholeOf(few);
            product(few, 1.0, {X.Values(), columns}, 0.0, {result.Values(), rows.Count()});
            result.Write(*this, {rows.first, rows.last, 0, columns - 1});
        });
}

void KVOSrvDenseMatrix::IndexedMultiply(KVOSrvMatrix const& X, KVOSrvDenseMatrix& Y, int const* rows, int const* ranges, int nRanges) const
{
    int const p = X.NumberOfColumns();
    RequireFitting(IsFull(X, NumberOfColumns(), p), "IndexedMultiply", kFactor);
    RequireFitting(nRanges <= 0 || (rows != nullptr && ranges != nullptr), "IndexedMultiply", "an index list is null");
    RequireFitting(AreGroups(rows, ranges, nRanges), "IndexedMultiply", "the ranges do not rise, or name other than consecutive rows");
    int longest = 0;
    for (int g = 0; g < nRanges; ++g) {
        Span const group = GroupAt(rows, ranges, g).rows;
        RequireReadable(group.first >= 0 && group.last < NumberOfRows());
        longest = std::max(longest, group.Count());
    }
    if (nRanges <= 0 || p == 0)
        return;
    RequireWritable(ranges[nRanges] <= Y.NumberOfRows() && p <= Y.NumberOfColumns());
    RequireFitting(!Overlaps(Y), "IndexedMultiply", kOverlap);
    if (KVOSrvProductMemory::IsSet()) {
        mem_Vector<DenseTiles::RowGroup> groups;
        for (int g = 0; g < nRanges; ++g)
            groups.push_back({GroupAt(rows, ranges, g).rows, GroupAt(rows, ranges, g).targets.first});
        return DenseTiles::MultiplyGroups("IndexedMultiply", *this, {X.Values(), NumberOfColumns()}, p, Y, groups);
    }
    RowProduct const product(*this, longest, p, 1);
    Buffer const result(std::int64_t{longest} * p);
    auto const announce = [&](int g) {
        if (g < nRanges)
            product.Announce(GroupAt(rows, ranges, g).rows);
    };
    for (int g = 0; g < std::min(kSlabsAhead, nRanges); ++g)
        announce(g);
    for (int g = 0; g < nRanges; ++g) {
        announce(g + kSlabsAhead);
        Group const group = GroupAt(rows, ranges, g);
        product({&group.rows, 1}, 1.0, {X.Values(), NumberOfColumns()}, 0.0, {result.Values(), group.rows.Count()});
        result.Write(Y, {group.targets.first, group.targets.last, 0, p - 1});
    }
}
