#pragma once

#include "DenseTiles.h"
#include "KVOFortran.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMatrixSupport.h"
#include "KVOSrvMtxExceptions.h"
#include "mem_Vector.h"
#include "omi_Timer.h"
#include "tasks.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

/// What the products of database matrices share: they walk slabs, groups of consecutive block rows or block columns, read one after the
/// other into memory and hand it to DGEMM.
namespace DenseSlabs
{

using DenseTiles::Window;

constexpr KVOSrvMatrixSupport::RefusalCheck Require("mtx/impl/KVOSrvDenseMatrix", "KVOSrvDenseMatrix");

// Reasons.
constexpr char const* kFactor = "X is not full with as many rows as the matrix has columns";
constexpr char const* kTransposedFactor = "X is not full with as many rows as the matrix";
constexpr char const* kTransposedResult =
    "the result is not full with as many rows as the matrix has columns, and a column for each vector";
constexpr char const* kOverlap = "the result overlaps an operand";
constexpr char const* kNull = "an operand is null";

/// A range of a stored matrix that a product will read or write: refused as the transfer would refuse it, but before anything is changed.
inline void RequireReadable(bool inside)
{
    if (!inside)
        KVOSrvMtxInvalidGetRange().Throw("mtx/impl/KVOSrvDenseMatrix", 544);
}
inline void RequireWritable(bool inside)
{
    if (!inside)
        KVOSrvMtxInvalidSetRange().Throw("mtx/impl/KVOSrvDenseMatrix", 568);
}

/// How many slabs are announced before they are read: the disk then works while DGEMM computes.
constexpr int kSlabsAhead = 2;

/// How many slabs are multiplied at once at the most.
constexpr int kMostAtOnce = 64;

/// First to last, both inclusive.
struct Span {
    int first, last;

    constexpr int Count() const noexcept { return last - first + 1; }
};

/// What consecutive ones reach over.
inline Span WholeOf(std::span<Span const> spans)
{
    return {spans.front().first, spans.back().last};
}

/// One dimension of a matrix in slabs of some blocks each, the last one of the blocks that are left.
class Walk
{
public:
    explicit Walk(KVOSrvBlockCut const& cut, std::int64_t blocksPerSlab = 1)
        : m_cut(cut), m_blocksPerSlab(static_cast<int>(std::clamp<std::int64_t>(blocksPerSlab, 1, std::max(1, cut.blocks))))
    {
    }

    int Slabs() const noexcept { return m_cut.blocks / m_blocksPerSlab + (m_cut.blocks % m_blocksPerSlab != 0); }
    Span At(int slab) const noexcept
    {
        int const firstBlock = slab * m_blocksPerSlab, lastBlock = std::min(firstBlock + m_blocksPerSlab, m_cut.blocks) - 1;
        int const first = m_cut.FirstInBlock(firstBlock);
        return {first, first + m_cut.NumberInBlocks(firstBlock, lastBlock) - 1};
    }
    /// Of the largest slab, which is not always the first: a view may begin with a short block.
    int MaxCount() const noexcept
    {
        int count = 0;
        for (int const slab : {0, 1, Slabs() - 1})
            if (slab >= 0 && slab < Slabs())
                count = std::max(count, At(slab).Count());
        return count;
    }

    /// Calls run(slabs) for every slab in order, `atOnce` of them at a time, and before that announce(Span) for those up to kSlabsAhead
    /// further on.
    template<class Announce, class Run>
    void ForEachFew(int atOnce, Announce const& announce, Run const& run) const
    {
        std::array<Span, kMostAtOnce> few;
        int announced = 0;
        for (int slab = 0, count; slab < Slabs(); slab += count) {
            count = std::min(atOnce, Slabs() - slab);
            for (; announced < Slabs() && announced < slab + count + kSlabsAhead; ++announced)
                announce(At(announced));
            for (int k = 0; k < count; ++k)
                few[static_cast<std::size_t>(k)] = At(slab + k);
            run(std::span<Span const>(few.data(), static_cast<std::size_t>(count)));
        }
    }
    /// The same one by one: run(Span).
    template<class Announce, class Run>
    void ForEach(Announce const& announce, Run const& run) const
    {
        ForEachFew(1, announce, [&](std::span<Span const> slab) { run(slab.front()); });
    }

private:
    KVOSrvBlockCut m_cut;
    int m_blocksPerSlab;
};

/// Deliberate: every read and every product stands between the start and the reading of a timer of the platform, although nobody uses the
/// time here. A host that brings a platform of its own traces the two through its timer.
template<class Step>
void Timed(Step const& step)
{
    omi_Timer timer;
    timer.Start();
    step();
    static_cast<void>(timer.GetElapsedTime());
}

/// Memory for the values of one slab, or a piece of it, at a time: packed by columns.
class Slab
{
public:
    explicit Slab(std::int64_t entries) : m_values(KVOSrvMatrixSupport::AllocateValues(entries)) {}

    double* Values() const noexcept { return m_values.get(); }
    /// The values from entry `offset` on.
    KVOSrvMatrix As(int rows, int columns, std::int64_t offset = 0) const { return {rows, columns, Values() + offset, false, false}; }

    /// An empty window is not read.
    void Read(KVOSrvDenseMatrix const& matrix, Window const& w, std::int64_t offset = 0) const
    {
        if (w.Entries() == 0)
            return;
        KVOSrvMatrix values = As(w.Rows(), w.Columns(), offset);
        Timed([&] { matrix.GetValues(w.r0, w.r1, w.c0, w.c1, values); });
    }
    void Write(KVOSrvDenseMatrix& matrix, Window const& w) const
    {
        if (w.Entries() > 0)
            matrix.SetValues(w.r0, w.r1, w.c0, w.c1, As(w.Rows(), w.Columns()));
    }

private:
    KVOSrvMatrixSupport::ValueArray m_values;
};

/// An operand of DGEMM with its leading dimension.
template<class Value>
struct Operand {
    Value* values;
    int rows;

    Operand At(std::int64_t row, std::int64_t column) const { return {values + row + column * rows, rows}; }
};
using Factor = Operand<double const>;
using Result = Operand<double>;

struct Shape {
    int m, n, k;
};

/// C := alpha op(A) B + beta C.
inline void Multiply(char const* transA, Shape const& shape, double alpha, Factor const& a, Factor const& b, double beta, Result const& c)
{
    using KVOSrvMatrixSupport::LeadingDimension;
    int const lda = LeadingDimension(a.rows), ldb = LeadingDimension(b.rows), ldc = LeadingDimension(c.rows);
    Timed([&] { BLAC_DGEMM(transA, "N", &shape.m, &shape.n, &shape.k, &alpha, a.values, &lda, b.values, &ldb, &beta, c.values, &ldc); });
}

/// Memory for the slabs, of `entries` entries at the most, that are multiplied at once: one for each thread that the host lends, if there
/// are so many slabs. Only the calling thread reads.
inline mem_Vector<Slab> SlabsAtOnce(std::int64_t entries, int slabs)
{
    mem_Vector<Slab> memory;
    int const count = std::clamp(slabs, 1, std::min(blac::ThreadsForTasks(), kMostAtOnce));
    memory.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
        memory.emplace_back(entries);
    return memory;
}

/// Calls read(slab, memory) for `count` slabs, as many at a time as there is memory for, and multiply(slab, memory) for these at once.
template<class Read, class Multiply>
void ReadAndMultiply(int count, mem_Vector<Slab> const& memory, Read const& read, Multiply const& multiply)
{
    int const atOnce = static_cast<int>(memory.size());
    for (int first = 0; first < count; first += atOnce) {
        int const taken = std::min(atOnce, count - first);
        for (int k = 0; k < taken; ++k)
            read(first + k, memory[static_cast<std::size_t>(k)]);
        blac::InTasks(taken, [&](int k) { multiply(first + k, memory[static_cast<std::size_t>(k)]); });
    }
}

/// Whether the array of a matrix holds all of its elements, as full storage does; a diagonal's does not, whoever owns it.
inline bool IsFull(KVOSrvMatrix const& matrix)
{
    return !matrix.IsDiagonal() || matrix.NumberOfColumns() <= 1;
}

inline bool IsFull(KVOSrvMatrix const& matrix, int rows, int columns)
{
    return matrix.NumberOfRows() == rows && matrix.NumberOfColumns() == columns && IsFull(matrix);
}

/// Calls run(Span) for the parts of `span`, rows or columns, that lie in one block each, in order.
template<class Run>
void ForEachBlock(KVOSrvBlockCut const& cut, Span const& span, Run const& run)
{
    for (int first = span.first; first <= span.last;) {
        int const block = cut.BlockContaining(first);
        int const last = std::min(span.last, cut.FirstInBlock(block) + cut.NumberInBlock(block) - 1);
        run(Span{first, last});
        first = last + 1;
    }
}

/// Up to this many vectors a product that copies takes hardly longer than reading its matrix: pieces are then so small that DGEMM finds
/// them in the cache. With more of them large pieces save it from packing the vectors again and again. Measured for 8192 x 4096 in chunks
/// of 512 x 512, time to the product in memory: 64 vectors 1.15 with pieces of 512 x 512, 1.22 to 1.33 with larger ones; 512 vectors 1.10
/// with these, 1.05 to 1.07 with pieces of 2048 x 512 and larger.
constexpr int kFewVectors = 128;

/// Slabs of up to this many entries, 2 MiB, are read as a whole and multiplied by one call of DGEMM, which sums over all of them at once.
/// Larger ones are cut, where that is faster; sums are then formed block by block in order. Asks no processor, nor does the number of few
/// vectors: where a sum is cut decides its last bits, and these are the same on every machine with the same BLAS.
constexpr std::int64_t kWholeSlab = std::int64_t{1} << 18;

/// How a product with p vectors comes to the values of its stored matrix: block by block, where they lie in the file, or in copied pieces.
class Source
{
public:
    /// @param blockHeight  of the result of one block: its rows or, transposed, its columns @param slab  entries of the largest slab
    Source(KVOSrvDenseMatrix const& matrix, int p, int blockHeight, std::int64_t slab);

    KVOSrvDenseMatrix const& Matrix() const noexcept { return m_matrix; }
    bool IsByBlocks() const noexcept { return m_byBlocks; }
    /// How many of `slabs` slabs to multiply at once. With few vectors it takes longer to copy a block, for its turn to come while another
    /// one is there, than half of its product.
    int AtOnce(int slabs) const noexcept { return m_byBlocks && m_vectors <= kFewVectors ? 1 : slabs; }
    /// Starts the reading of what is copied later. Blocks are fetched when it is their turn: in large pages, which an announcement
    /// prevents.
    void Announce(Window const& w) const noexcept
    {
        if (!m_byBlocks)
            m_matrix.AnnounceRead(w.r0, w.r1, w.c0, w.c1);
    }
    void AnnounceRows(Span rows) const noexcept { Announce({rows.first, rows.last, 0, m_matrix.NumberOfColumns() - 1}); }
    /// The values of a part of a block, where they lie or else copied to `slab`; they are there until the next call for any stored matrix.
    double const* Find(Window const& w, Slab const& slab) const;

private:
    KVOSrvDenseMatrix const& m_matrix;
    int m_vectors;
    bool m_byBlocks;
};

/// C := alpha op(A(rows, columns)) X + beta C, block by block in order, through `memory`, which holds the largest block, where it must.
/// With memory for several blocks as many are multiplied at once: those of one block column or, transposed, block row, whose results lie
/// apart. They are copied then, since only one at a time is there where it lies.
void MultiplyByBlocks(Source const& A, mem_Vector<Slab> const& memory, char const* transA, Span rows, Span columns, double alpha,
                      Factor const& X, int p, double beta, Result const& C);

/// The columns of a matrix in pieces of whole block columns that stay in the cache, for slabs of `rows` rows; in one if the slab is small.
Walk CachedPanels(KVOSrvBlockCut const& columns, int rows);

/// How many block rows a product by rows takes at a time: of many vectors, those that fit the memory of one, the matrix being read in
/// pieces of one block column. @param resultColumns  of the result's slab, p where it is stored, else 0
std::int64_t BlockRowsPerSlab(KVOSrvDenseMatrix const& A, int p, int resultColumns);

/// C := alpha A(rows, all columns) X + beta C, piece by piece of the rows.
class RowProduct
{
public:
    /// For p vectors. @param maxRows  of all slabs @param slabs  how many there are
    RowProduct(KVOSrvDenseMatrix const& A, int maxRows, int p, int slabs);

    /// How many slabs are multiplied at once.
    int SlabsAtOnce() const noexcept { return static_cast<int>(m_memory.size()); }
    /// For the rows of consecutive slabs.
    void operator()(std::span<Span const> slabs, double alpha, Factor const& X, double beta, Result const& C) const;
    void Announce(Span rows) const noexcept { m_source.AnnounceRows(rows); }

private:
    Source m_source;
    int m_vectors;
    Walk m_panels;
    mem_Vector<Slab> m_memory;
};

} // namespace DenseSlabs
