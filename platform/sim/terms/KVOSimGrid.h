#pragma once

#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"
#include "KVOSimTypeKey.h"

/// The dimensions of a distribution: one collection (with its colour) each, all distinct.
class KVOSimGrid
{
public:
    /// Dimension d is over collections[d].
    explicit KVOSimGrid(KVOSimArray<KVOSimCollectionID> const& collections) : m_collections(collections) {}
    /// The collections, one a dimension.
    KVOSimArray<KVOSimCollectionID> const& Collections() const noexcept { return m_collections; }

private:
    KVOSimArray<KVOSimCollectionID> m_collections;
};

/// The type of a distribution's values.
class KVOSimRangeType
{
public:
    /// @param key  a KVOSimTypeKey
    explicit KVOSimRangeType(int key) noexcept : m_key(key) {}
    /// The KVOSimTypeKey.
    int Key() const noexcept { return m_key; }

private:
    int m_key;
};
