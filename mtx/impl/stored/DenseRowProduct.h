#pragma once

#include "DenseSource.h"

/// The product that walks along the rows of a stored matrix.
namespace DenseSlabs
{

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
    mem_Vector<Buffer> m_memory;
};

} // namespace DenseSlabs
