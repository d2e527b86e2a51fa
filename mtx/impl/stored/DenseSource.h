#pragma once

#include "DenseGemm.h"

/// How a product comes to the values of its stored matrix: by the blocks where they lie, or by copies, and of how much at a time.
namespace DenseSlabs
{

/// Up to this many vectors a product that copies takes hardly longer than reading its matrix: pieces are then so small that DGEMM finds
/// them in the cache. With more of them large pieces save it from packing the vectors again and again: in chunks of 512 x 512
/// 64 vectors take 1.15 times the product in memory by single blocks and 1.22 or more by larger pieces, 512 vectors 1.10 and 1.05
/// (docs/measurements.md).
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
    /// The values of a part of a block, where they lie or else copied to `buffer`; they are there until the next call for any stored
    /// matrix.
    double const* Find(Window const& w, Buffer const& buffer) const;

private:
    KVOSrvDenseMatrix const& m_matrix;
    int m_vectors;
    bool m_byBlocks;
};

/// C := alpha op(A(rows, columns)) X + beta C, block by block in order, through `memory`, which holds the largest block, where it must.
/// With memory for several blocks as many are multiplied at once: those of one block column or, transposed, block row, whose results lie
/// apart. They are copied then, since only one at a time is there where it lies.
void MultiplyByBlocks(Source const& A, mem_Vector<Buffer> const& memory, char const* transA, Span rows, Span columns, double alpha,
                      Factor const& X, int p, double beta, Result const& C);

/// The columns of a matrix in pieces of whole block columns that stay in the cache, for slabs of `rows` rows; in one if the slab is small.
Walk CachedPanels(KVOSrvBlockCut const& columns, int rows);

} // namespace DenseSlabs
