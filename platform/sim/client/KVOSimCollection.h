#pragma once

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"

#include <memory>

namespace simdb
{
class Context;
}

/// A collection of members, numbered from 0.
class KVO_EXPORT KVOSimCollection
{
public:
    /// @throws KVOSimException for a null identifier, one of a closed database, or one that names nothing
    explicit KVOSimCollection(KVOSimCollectionID const& id);

    /// The identifier that this object was made from.
    KVOSimCollectionID ID() const noexcept { return m_id; }
    /// Number of members. @throws KVOSimException when the database was closed
    int NumberOfMembers() const;

    /// The set of all members in order, 0 to NumberOfMembers() - 1.
    KVOSimCSetID BiggestCSetID() const;
    /// A new set of the members numbers[0 .. count-1], in that order. Numbers are labels: they need not be below
    /// NumberOfMembers(). Kept with the database.
    KVOSimCSetID CreateOrderedCSet(int const* numbers, int count);
    /// The same, kept only while the database is open, unless a stored distribution comes to use it.
    KVOSimCSetID CreateTempOrderedCSet(int const* numbers, int count);
    /// The variant of this collection of colour `color`, 0 or greater.
    KVOSimCollectionID CreateColorVariant(int color);

private:
    std::shared_ptr<simdb::Context> m_context;
    KVOSimCollectionID m_id;
};
