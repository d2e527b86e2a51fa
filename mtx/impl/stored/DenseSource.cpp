#include "DenseSource.h"

namespace DenseSlabs
{

namespace
{

// A block that is whole, unless few blocks are: a view may begin and end in the middle of one.
Window TypicalBlock(KVOSrvDenseMatrix const& matrix)
{
    KVOSrvBlockCut const rows = matrix.StoredRowBlocks(), columns = matrix.StoredColumnBlocks();
    int const i = rows.blocks > 2 ? 1 : 0, j = columns.blocks > 2 ? 1 : 0;
    int const row = rows.FirstInBlock(i), column = columns.FirstInBlock(j);
    return {row, row + rows.NumberInBlock(i) - 1, column, column + columns.NumberInBlock(j) - 1};
}

// Where a block lies saves the copy, which costs the less the more vectors there are; but DGEMM then packs the vectors anew for each block,
// which costs the less the higher the result of a block is. With a quarter of that height both take the same: chunks of 512 x 512 in
// place 1.08 of the product in memory with 128 vectors, copied 1.10; with 512 vectors 1.10 and 1.06 (docs/measurements.md). All of it
// weighs DGEMM's packing against a copy, both of which go with the same memory: no choice by the processor.
bool PaysByBlocks(KVOSrvDenseMatrix const& matrix, int p, int blockHeight)
{
    constexpr std::int64_t kLeastBlock = std::int64_t{1} << 17; // 1 MiB
    return std::int64_t{matrix.StoredRowBlocks().MaxNumberInBlock()} * matrix.StoredColumnBlocks().MaxNumberInBlock() >= kLeastBlock &&
           p <= blockHeight / 4;
}

double const* Fetch(KVOSrvDenseMatrix const& matrix, Window const& w)
{
    double const* values = nullptr;
    Timed([&] { values = matrix.FetchInPlace(w.r0, w.r1, w.c0, w.c1); });
    return values;
}

} // namespace

Source::Source(KVOSrvDenseMatrix const& matrix, int p, int blockHeight, std::int64_t slab)
    : m_matrix(matrix), m_vectors(p),
      m_byBlocks(slab > kWholeSlab && PaysByBlocks(matrix, p, blockHeight) && Fetch(matrix, TypicalBlock(matrix)) != nullptr)
{
}

double const* Source::Find(Window const& w, Buffer const& buffer) const
{
    if (double const* const values = Fetch(m_matrix, w))
        return values;
    buffer.Read(m_matrix, w);
    return buffer.Values();
}

namespace
{

mem_Vector<Span> BlocksOf(KVOSrvBlockCut const& cut, Span const& span)
{
    mem_Vector<Span> blocks;
    ForEachBlock(cut, span, [&](Span block) { blocks.push_back(block); });
    return blocks;
}

} // namespace

void MultiplyByBlocks(Source const& A, mem_Vector<Buffer> const& memory, char const* transA, Span rows, Span columns, double alpha,
                      Factor const& X, int p, double beta, Result const& C)
{
    bool const transposed = *transA == 'T';
    auto const multiply = [&](Span i, Span j, double const* values) {
        Factor const a{values, i.Count()};
        int const row = i.first - rows.first, column = j.first - columns.first;
        if (transposed)
            Multiply("T", {j.Count(), p, i.Count()}, alpha, a, X.At(row, 0), row == 0 ? beta : 1.0, C.At(column, 0));
        else
            Multiply("N", {i.Count(), p, j.Count()}, alpha, a, X.At(column, 0), column == 0 ? beta : 1.0, C.At(row, 0));
    };
    KVOSrvBlockCut const rowBlocks = A.Matrix().StoredRowBlocks(), columnBlocks = A.Matrix().StoredColumnBlocks();
    if (memory.size() == 1)
        return ForEachBlock(rowBlocks, rows, [&](Span i) {
            ForEachBlock(columnBlocks, columns, [&](Span j) {
                multiply(i, j, A.Find({i.first, i.last, j.first, j.last}, memory.front()));
            });
        });
    // The blocks of one row of C in their order, those of several rows at once.
    mem_Vector<Span> const inOrder = transposed ? BlocksOf(rowBlocks, rows) : BlocksOf(columnBlocks, columns);
    mem_Vector<Span> const apart = transposed ? BlocksOf(columnBlocks, columns) : BlocksOf(rowBlocks, rows);
    for (Span const& step : inOrder) {
        auto const window = [&](int k) {
            Span const other = apart[static_cast<std::size_t>(k)], i = transposed ? step : other, j = transposed ? other : step;
            return Window{i.first, i.last, j.first, j.last};
        };
        ReadAndMultiply(
            static_cast<int>(apart.size()), memory, [&](int k, Buffer const& buffer) { buffer.Read(A.Matrix(), window(k)); },
            [&](int k, Buffer const& buffer) {
                Window const w = window(k);
                multiply({w.r0, w.r1}, {w.c0, w.c1}, buffer.Values());
            });
    }
}

Walk CachedPanels(KVOSrvBlockCut const& columns, int rows)
{
    if (std::int64_t{columns.size} * rows <= kWholeSlab)
        return Walk(columns, columns.blocks);
    return Walk(columns, kWholeSlab / std::max<std::int64_t>(1, std::int64_t{columns.perBlock} * rows));
}

} // namespace DenseSlabs
