#pragma once

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"

#include <memory>

namespace simdb
{
class Context;
struct MemberSet;
} // namespace simdb

/// An ordered set of members of a collection. A set that Part() made lives as long as such an object, or a drawer that
/// uses it.
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
    /// The temporary set of `count` members from member `first` on. Its identifier names nothing any more when no
    /// object of it is left.
    /// @throws KVOSimException when the range leaves this set
    KVOSimCSet Part(int first, int count) const;

private:
    std::shared_ptr<simdb::Context> m_context;
    std::shared_ptr<simdb::MemberSet> m_set; // only held
    KVOSimCSetID m_id;
};
