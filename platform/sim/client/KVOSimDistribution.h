#pragma once

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"
#include "KVOSimTypeKey.h"

#include <cstdint>
#include <memory>

namespace simdb
{
class Distribution;
}

/// How a transfer lays out a drawer: dense by default.
class KVO_EXPORT KVOSimSerializationType
{
public:
    /// A sparse drawer.
    void SetSparse() noexcept { m_code = KVOSimSparseDrawer; }
    /// A symmetric sparse drawer: a triangle without its diagonal, and the diagonal.
    void SetSparseSym() noexcept { m_code = KVOSimSparseSymDrawer; }
    /// A KVOSimDrawerKind.
    int Code() const noexcept { return m_code; }

private:
    int m_code = KVOSimDenseDrawer;
};

/// What QueryDrawers says of one drawer.
struct KVOSimDrawer {
    int id = 0;                            ///< number of the drawer in its distribution
    int kind = KVOSimDenseDrawer;          ///< a KVOSimDrawerKind
    int typeKey = KVOSimDouble;            ///< of its values
    KVOSimSerializationType serialization; ///< for a transfer that reads it
    KVOSimArray<int> dimensionSizes;       ///< members per dimension
    KVOSimArray<int> chunkSizes;           ///< per dimension; empty: unchunked
    KVOSimArray<KVOSimCSetID> csets;       ///< the set that numbers each dimension, in the dimension's colour
    int extendableDim = -1;                ///< that which can grow; 2: both of two; -1: none, or each of three and more
};

/// Bytes of a database's file.
struct KVOSimArrayPlace {
    std::uint64_t offset = 0; ///< of the first one
    std::uint64_t bytes = 0;  ///< how many
};

/// A range of one dimension, first to last, both inclusive. Kind 3 counts chunks.
struct KVOSimDimRange {
    KVOSimCollectionID collection; ///< that of the dimension
    int first = 0;                 ///< 0-based
    int last = 0;                  ///< inclusive
    int kind = 3;                  ///< 3, the only choice
};

/// The values over a grid of collections, in one or more drawers. Copies stand on the same distribution.
class KVO_EXPORT KVOSimDistribution
{
public:
    /// None.
    KVOSimDistribution() noexcept = default;
    /// @throws KVOSimException for a null identifier, one of a closed database, or one that names nothing
    explicit KVOSimDistribution(KVOSimDistributionID const& id);

    /// Whether this stands on no distribution.
    bool IsNull() const noexcept { return m_distribution == nullptr; }
    /// Null for none.
    KVOSimDistributionID ID() const;
    /// The number that CreateTypedDistribution was given; -1 without.
    int Type() const;

    /// Says what the values are, for people and other programs: attributes of the drawers in the file, and a title is a
    /// name in the file's root group too, so that h5py finds the matrix as file["stiffness"]. Kept by the next commit
    /// of the transaction at hand, with the first drawer; the name leads to the drawer of the lowest number. Texts are
    /// UTF-8 and copied; null counts as empty, which is none.
    /// @param title        by which KVOSimContext::Find() finds it; without '/', not ".", not beginning with "context_",
    ///                     at most 255 bytes. One that another matrix of the database has gets " (2)", " (3)", ...
    /// @param unit         of the values, as "N/m" @param description  in words. At most 16384 bytes each
    /// @throws KVOSimException when a text is not so or the database is open for reading; nothing is changed then
    void SetTitle(char const* title, char const* unit = nullptr, char const* description = nullptr);
    /// As it was set, with its number; "" for none. Valid until it is set again or the last object of the distribution
    /// goes.
    char const* Title() const;
    /// Alike.
    char const* Unit() const;
    /// Alike.
    char const* Description() const;

    /// Number of dimensions: of collections in the grid.
    int NumDimensions() const;
    /// The collection of each dimension, with its colour.
    KVOSimArray<KVOSimCollectionID> const& Collections() const;
    /// Descriptions of all drawers, in the order in which they were made.
    void QueryDrawers(KVOSimArray<KVOSimDrawer>& drawers) const;
    /// Members of one dimension of the first drawer, as QueryDrawers says. @throws KVOSimException when there is no
    /// drawer
    std::int64_t DimensionSize(int dim) const;
    /// Number of values in slot `item` of a drawer: 0 values, 1 column indices, 2 row starts, 3 diagonal; a dense
    /// drawer has slot 0 only.
    std::int64_t DataSizeItems(int drawer, int item) const;
    /// Where slot `item` of a sparse drawer lies in the file, in one piece and little-endian, for those that read it
    /// there themselves. 0 bytes: it is empty, or another program has stored it in pieces or packed. Arrays that were
    /// committed are never moved by this library; an ExecWrite() to the drawer changes them where they are. Only
    /// ExecRead() checks that they are rows of a matrix.
    /// @throws KVOSimException for a dense drawer, and as DataSizeItems()
    KVOSimArrayPlace ArrayPlace(int drawer, int item) const;

    /// Whether every chunk of the range (one entry a dimension, in the order of the dimensions) exists. An unchunked
    /// drawer exists.
    bool ChunkAllocated(int drawer, KVOSimArray<KVOSimDimRange> const& range) const;

    /// Wishes for `bytes` of cache for this distribution: how far its values are read ahead and kept in the process's
    /// memory. The database honours wishes up to an eighth of the physical memory each, and a quarter for all of its
    /// distributions; a wish that finds nothing left changes nothing. What was granted is given back by
    /// ResetCacheSize() and when the last object of the distribution goes.
    void SetCacheSize(std::uint64_t bytes);
    /// Back to the default.
    void ResetCacheSize();
    /// What the database grants at present, in bytes.
    std::uint64_t CacheSize() const;

private:
    friend class KVOSimTransfer;
    std::shared_ptr<simdb::Distribution> m_distribution;
};
