#include "TiledProduct.h"

#include "DenseChecks.h"
#include "DenseKernels.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "TileSizes.h"

#include <optional>

namespace DenseTiles
{

namespace
{

// DGEMM's products are cut at fixed places, so that they are the same whatever threads the host lends. It packs the other operand anew for
// each piece: pieces of this size cost it 0.003 of its rate, half as many columns 0.013, half as many rows 0.015.
constexpr int kPieceRows = 4096, kPieceColumns = 2048;

void MultiplyPieces(char const* transA, DenseSlabs::Shape const& shape, double alpha, Factor const& a, Factor const& b, double beta,
                    Result const& c)
{
    int const rowPieces = std::max(1, (shape.m + kPieceRows - 1) / kPieceRows);
    int const columnPieces = std::max(1, (shape.n + kPieceColumns - 1) / kPieceColumns);
    blac::InTasks(rowPieces * columnPieces, [&](int piece) {
        int const i = piece % rowPieces, j = piece / rowPieces;
        auto const begin = [](int size, int pieces, int at) { return static_cast<int>(blac::PieceBegin(size, pieces, at)); };
        int const row = begin(shape.m, rowPieces, i), rows = begin(shape.m, rowPieces, i + 1) - row;
        int const column = begin(shape.n, columnPieces, j), columns = begin(shape.n, columnPieces, j + 1) - column;
        Factor const part = *transA == 'T' ? a.At(0, row) : a.At(row, 0);
        DenseSlabs::Multiply(transA, {rows, columns, shape.k}, alpha, part, b.At(0, column), beta, c.At(row, column));
    });
}

/// The memory of a product.
struct Memory {
    std::int64_t entries;
    Buffer buffer{entries};
};

/// One product, with the tiles of its operands that were read last.
class Product
{
public:
    Product(Left const& A, Right const& B, double alpha, double beta, Target const& C, Half half, ProductShape const& shape,
            Tiles const& tiles, Memory const& memory)
        : m_a(A), m_b(B), m_alpha(alpha), m_beta(beta), m_c(C), m_half(half), m_tiles(tiles), m_inB(tiles.EntriesOfA()),
          m_inC(m_inB + (shape.storedB ? tiles.EntriesOfB() : 0)), m_memory(memory.buffer)
    {
    }

    void Run()
    {
        ForEachStep([&](Step const& step) {
            Announce(step);
            if (m_next)
                Do(*m_next);
            m_next = step;
        });
        if (m_next)
            Do(*m_next);
    }

private:
    struct Step {
        Span i, j, k;
        bool isFirst, isLast; ///< of the inner dimension
    };

    template<class Run>
    void ForEachStep(Run const& run) const
    {
        Dimension const(&order)[3] = m_tiles.order;
        int at[3];
        for (at[order[0]] = 0; at[order[0]] < m_tiles.of[order[0]].Count(); ++at[order[0]])
            for (at[order[1]] = 0; at[order[1]] < m_tiles.of[order[1]].Count(); ++at[order[1]])
                for (at[order[2]] = 0; at[order[2]] < m_tiles.of[order[2]].Count(); ++at[order[2]]) {
                    auto const span = [&](Dimension dimension) { return m_tiles.of[dimension].At(at[dimension]); };
                    Step const step{span(kRows), span(kColumns), span(kInner), at[kInner] == 0,
                                    at[kInner] + 1 == m_tiles.of[kInner].Count()};
                    if (step.i.Count() > 0 && step.j.Count() > 0 && !IsMirrored(step))
                        run(step);
                }
    }
    bool IsMirrored(Step const& step) const noexcept
    {
        return (m_half == Half::Lower && step.i.last < step.j.first) || (m_half == Half::Upper && step.j.last < step.i.first);
    }

    Window WindowOfA(Step const& step) const noexcept
    {
        Span const rows = m_a.transposed ? step.k : step.i, columns = m_a.transposed ? step.i : step.k;
        return {m_a.rows.first + rows.first, m_a.rows.first + rows.last, columns.first, columns.last};
    }
    static Window WindowOfB(Step const& step) noexcept { return {step.k.first, step.k.last, step.j.first, step.j.last}; }
    Window WindowOfC(Step const& step) const noexcept
    {
        return {m_c.firstRow + step.i.first, m_c.firstRow + step.i.last, step.j.first, step.j.last};
    }

    // Calls run(member, window, offset): the part of it that is there of a window of A, and where in the window's values.
    template<class Run>
    void ForEachMember(Window const& w, Run const& run) const
    {
        std::int64_t before = 0;
        for (KVOSrvDenseMatrix const* const member : m_a.members) {
            std::int64_t const first = std::max<std::int64_t>(w.c0, before),
                               last = std::min<std::int64_t>(w.c1, before + member->NumberOfColumns() - 1);
            if (first <= last && w.Rows() > 0)
                run(*member, Window{w.r0, w.r1, static_cast<int>(first - before), static_cast<int>(last - before)},
                    (first - w.c0) * w.Rows());
            before += member->NumberOfColumns();
        }
    }

    void Announce(Step const& step) const
    {
        if (Window const w = WindowOfA(step); !Has(m_readA, w))
            ForEachMember(w, [](KVOSrvDenseMatrix const& member, Window const& part, std::int64_t) {
                member.AnnounceRead(part.r0, part.r1, part.c0, part.c1);
            });
        if (Window const w = WindowOfB(step); m_b.stored != nullptr && !Has(m_readB, w))
            m_b.stored->AnnounceRead(w.r0, w.r1, w.c0, w.c1);
    }
    static bool Has(std::optional<Window> const& read, Window const& w)
    {
        return read && read->r0 == w.r0 && read->r1 == w.r1 && read->c0 == w.c0 && read->c1 == w.c1;
    }
    Factor TileOfA(Step const& step)
    {
        Window const w = WindowOfA(step);
        if (!Has(m_readA, w)) {
            m_readA.reset();
            ForEachMember(
                w, [&](KVOSrvDenseMatrix const& member, Window const& part, std::int64_t offset) { m_memory.Read(member, part, offset); });
            if (m_a.permutation != nullptr)
                m_memory.As(w.Rows(), w.Columns()).PermuteRowsInPlace(m_a.permutation, w.Rows());
            m_readA = w;
        }
        return {m_memory.Values(), w.Rows()};
    }
    Factor TileOfB(Step const& step)
    {
        Window const w = WindowOfB(step);
        if (m_b.stored == nullptr)
            return m_b.values.At(w.r0, w.c0);
        if (!Has(m_readB, w)) {
            m_readB.reset();
            m_memory.Read(*m_b.stored, w, m_inB);
            m_readB = w;
        }
        return {m_memory.Values() + m_inB, w.Rows()};
    }

    void Do(Step const& step)
    {
        Factor const a = TileOfA(step), b = TileOfB(step);
        Window const w = WindowOfC(step);
        bool const stored = m_c.stored != nullptr;
        Result const c = stored ? Result{m_memory.Values() + m_inC, w.Rows()} : m_c.values.At(w.r0, w.c0);
        if (stored && step.isFirst && m_beta != 0.0)
            m_memory.Read(*m_c.stored, w, m_inC);
        MultiplyPieces(m_a.transposed ? "T" : "N", {w.Rows(), w.Columns(), step.k.Count()}, m_alpha, a, b, step.isFirst ? m_beta : 1.0, c);
        if (stored && step.isLast)
            m_memory.Write(*m_c.stored, w, m_inC);
    }

    Left const& m_a;
    Right const& m_b;
    double m_alpha, m_beta;
    Target const& m_c;
    Half m_half;
    Tiles const& m_tiles;
    std::int64_t m_inB, m_inC; ///< where the tiles of B and C begin in the memory, that of A being the first
    Buffer const& m_memory;
    std::optional<Window> m_readA, m_readB; ///< what the tiles hold
    std::optional<Step> m_next;
};

// How A is cut along its columns: by the blocks of a single matrix.
KVOSrvBlockCut ColumnsOf(Left const& A)
{
    return A.members.size() == 1 ? A.members.front()->StoredColumnBlocks()
                                 : KVOSrvBlockCut::Whole(A.Columns(), std::max(1, A.members.front()->StoredColumnBlocks().perBlock));
}

KVOSrvBlockCut RowsOf(Left const& A)
{
    KVOSrvBlockCut const rows = A.members.front()->StoredRowBlocks();
    return KVOSrvBlockCut::AtChunks(A.rows.Count(), rows.perBlock, rows.offset + A.rows.first);
}

// Copies the lower triangle of the leading square onto the upper one, or the other way round.
void Mirror(KVOSrvDenseMatrix& C, int order, Half half, Memory const& memory)
{
    int side = 1;
    while (side < order && 2 * std::int64_t{side + 1} * (side + 1) <= memory.entries)
        ++side;
    std::int64_t const tile = std::int64_t{side} * side;
    Buffer const& buffer = memory.buffer;
    DensePieces::ForEachPart(0, order - 1, side, [&](int j0, int j1) {
        DensePieces::ForEachPart(0, order - 1, side, [&](int i0, int i1) {
            if (i0 < j0)
                return;
            Window const lower{i0, i1, j0, j1}, upper{j0, j1, i0, i1}, from = half == Half::Lower ? lower : upper;
            buffer.Read(C, from);
            if (i0 == j0) {
                DenseKernels::MirrorTriangle(from.Rows(),
                                             half == Half::Lower ? DenseKernels::Triangle::Lower : DenseKernels::Triangle::Upper,
                                             DenseKernels::Sign::Keep, buffer.Values(), from.Rows());
                return buffer.Write(C, from);
            }
            DenseKernels::Transpose(from.Rows(), from.Columns(), buffer.Values(), from.Rows(), buffer.Values() + tile, from.Columns());
            buffer.Write(C, half == Half::Lower ? upper : lower, tile);
        });
    });
}

void Copy(KVOSrvDenseMatrix const& source, KVOSrvDenseMatrix& target, Memory const& memory)
{
    KVOSrvBlockCut const rows = source.StoredRowBlocks(), columns = source.StoredColumnBlocks();
    DensePieces::ForEachPiece(rows, columns, DensePieces::LimitEntries(rows, memory.entries), [&](Window const& w) {
        memory.buffer.Read(source, w);
        memory.buffer.Write(target, w);
    });
}

ProductShape ShapeOf(Left const& A, Right const& B, int p, Target const& C)
{
    ProductShape shape;
    shape.rows = A.transposed ? ColumnsOf(A) : RowsOf(A);
    shape.inner = A.transposed ? RowsOf(A) : ColumnsOf(A);
    KVOSrvBlockCut const columns = B.stored != nullptr   ? B.stored->StoredColumnBlocks()
                                   : C.stored != nullptr ? C.stored->StoredColumnBlocks()
                                                         : KVOSrvBlockCut::Whole(p, 0);
    shape.columns = KVOSrvBlockCut::AtChunks(p, columns.perBlock, columns.offset);
    shape.transposedA = A.transposed;
    shape.storedB = B.stored != nullptr;
    shape.storedC = C.stored != nullptr;
    shape.wholeColumns = C.isA;
    shape.wholeInner = A.permutation != nullptr;
    return shape;
}

// C as Multiply() has it. @return the memory that it took
Memory Form(char const* operation, Left const& A, Right const& B, int p, double alpha, double beta, Target const& C, Half half)
{
    ProductShape const shape = ShapeOf(A, B, p, C);
    if (shape.rows.size == 0 || p == 0)
        return {0};
    std::int64_t const forRows = A.permutation != nullptr ? A.rows.Count() : 0; // that a permutation takes
    StatedMemory::Require(EntriesFor(shape, LeastTiles(shape)) + forRows, operation);
    Tiles const tiles = FindTiles(shape, StatedMemory::EntriesAllowed() - forRows);
    Memory memory{EntriesFor(shape, tiles)};
    Product(A, B, alpha, beta, C, half, shape, tiles, memory).Run();
    return memory;
}

} // namespace

int Left::Columns() const noexcept
{
    int columns = 0;
    for (KVOSrvDenseMatrix const* const member : members)
        columns += member->NumberOfColumns();
    return columns;
}

void Multiply(char const* operation, Left const& A, Right const& B, int p, double alpha, double beta, Target const& C, Half half)
{
    Form(operation, A, B, p, alpha, beta, C, half);
}

void MultiplyGroups(char const* operation, KVOSrvDenseMatrix const& A, Factor const& X, int p, KVOSrvDenseMatrix& C,
                    std::span<RowGroup const> groups)
{
    KVOSrvDenseMatrix const* const a = &A;
    Right const right{nullptr, X};
    auto const longest = std::max_element(groups.begin(), groups.end(),
                                          [](RowGroup const& one, RowGroup const& other) { return one.rows.Count() < other.rows.Count(); });
    ProductShape const shape = ShapeOf({{&a, 1}, longest->rows}, right, p, {&C});
    StatedMemory::Require(EntriesFor(shape, LeastTiles(shape)), operation);
    Tiles tiles = FindTiles(shape, StatedMemory::EntriesAllowed());
    Memory const memory{EntriesFor(shape, tiles)};
    Tiling const rows = tiles.of[kRows];
    for (RowGroup const& group : groups) {
        tiles.of[kRows] = rows.Of(group.rows.Count());
        Product({{&a, 1}, group.rows}, right, 1.0, 0.0, {&C, {nullptr, 0}, group.target}, Half::None, shape, tiles, memory).Run();
    }
}

void MultiplyStored(char const* operation, std::span<KVOSrvDenseMatrix const* const> A, int rows, KVOSrvDenseMatrix const& B,
                    KVOSrvDenseMatrix& C, int symmetric)
{
    Left const left{A, {0, rows - 1}, true};
    int const m = left.Columns(), p = B.NumberOfColumns();
    Half const half = HalfOf(symmetric, m, p);
    bool const overlaps = C.Overlaps(B) || std::any_of(A.begin(), A.end(), [&](auto const* member) { return C.Overlaps(*member); });
    std::optional<KVOSrvScratchDenseMatrix> scratch;
    if (overlaps) {
        constexpr int kChunk = 1024; // where C is one large block
        scratch.emplace(m, p, std::min(kChunk, C.StoredRowBlocks().perBlock), std::min(kChunk, C.StoredColumnBlocks().perBlock));
    }
    KVOSrvDenseMatrix& result = scratch ? *scratch : C;
    Memory const memory = Form(operation, left, {&B}, p, 1.0, 0.0, {&result}, half);
    if (half != Half::None)
        Mirror(result, std::min(m, p), half, memory);
    if (scratch)
        Copy(*scratch, C, memory);
}

} // namespace DenseTiles
