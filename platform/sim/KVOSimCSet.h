#pragma once

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"

#include <memory>

namespace simdb
{
class Context;
}

/// An ordered set of members of a collection.
class KVO_EXPORT KVOSimCSet
{
public:
    /// @throws KVOSimException for a null identifier, one of a closed database, or one that names nothing
    explicit KVOSimCSet(KVOSimCSetID const& id);

    /// The identifier that this object was made from.
    KVOSimCSetID ID() const noexcept { return m_id; }
    /// Number of members. @throws KVOSimException when the database was closed
    int Size() const;
    /// The member numbers, in order.
    KVOSimArray<int> OrderedMembers() const;

private:
    std::shared_ptr<simdb::Context> m_context;
    KVOSimCSetID m_id;
};
