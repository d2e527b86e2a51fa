#pragma once

#include "KVOExport.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

class KVOSrvSparseMatrix;

/// Where the entries of an element loop lie in an assembled KVOSrvSparseMatrix: found once, and then values are summed
/// there as often as they change, without sorting and without memory.
///
///     KVOSrvSparsePlaces const places(tangent, rows, columns, count); // of the loop that assembled it, or of any
///     other while (...) {
///         tangent.ClearValues();
///         tangent.AddValues(places, values); // values[k] goes to row rows[k] and column columns[k]
///     }
///
/// Places belong to the pattern of a matrix, the rows and columns that it stores: IsFor() tells whether a matrix has
/// it. A pattern is a new one after BeginAssembly(), an import, Subtract(), a permutation, EliminateTrivialColumns()
/// and an AddData() that enlarges the matrix, also where the same entries came out; other values leave it as it is.
/// What Full() copies from full storage has the pattern of its source, so that places for one matrix serve a mass and a
/// damping matrix beside it.
///
/// Refers to no matrix and may outlive them all. Four bytes an entry.
class KVO_EXPORT KVOSrvSparsePlaces : public mem_AllocationOperators
{
public:
    /// @param matrix   assembled, in full storage
    /// @param rows     row of each entry, 0-based as AddData() takes it; in any order, also repeatedly
    /// @param columns  column of each entry, alike
    /// @param count    how many entries the two lists have
    /// @throws KVOSrvMtxIllegalInput "KVOSrvSparsePlaces" with number, row and column of the first entry for which the
    /// matrix stores nothing, and for a negative count; mem_OutOfMemory
    /// @throws KVOSrvMtxNoSymmetricTrue "KVOSrvSparsePlaces" on half storage
    /// @throws KVOSrvMtxNotAssembled "KVOSrvSparsePlaces" when added entries wait for EndAssembly()
    /// @complexity O(count log(entries of a row)). Where the host lends threads (KVOSrvParallel) the lists are cut
    KVOSrvSparsePlaces(KVOSrvSparseMatrix const& matrix, unsigned const* rows, unsigned const* columns,
                       std::int64_t count);
    /// The same for lists of signed numbers.
    KVOSrvSparsePlaces(KVOSrvSparseMatrix const& matrix, int const* rows, int const* columns, std::int64_t count);
    ~KVOSrvSparsePlaces();
    KVOSrvSparsePlaces(KVOSrvSparsePlaces const&) = delete;
    KVOSrvSparsePlaces& operator=(KVOSrvSparsePlaces const&) = delete;

    /// True when the matrix still has, or has too, the pattern in which these places were found. O(1).
    bool IsFor(KVOSrvSparseMatrix const& matrix) const noexcept;

    /// How many entries these are the places of.
    std::int64_t Count() const noexcept { return m_count; }

private:
    friend class KVOSrvSparseMatrix;

    template<class Index>
    void Find(KVOSrvSparseMatrix const& matrix, Index const* rows, Index const* columns);

    std::int64_t m_count;
    std::uint64_t m_pattern = 0;
    std::unique_ptr<unsigned[], mem_Deleter> m_places; // of the values, as the matrix stores them
};
