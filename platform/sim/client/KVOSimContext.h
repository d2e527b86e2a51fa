#pragma once

#include "KVOExport.h"
#include "KVOSimGrid.h"
#include "KVOSimIdentifiers.h"

#include <memory>

namespace simdb
{
class Context;
}

/// The types of a context at one moment. A type is a number of the caller's; the context remembers which it has seen.
class KVO_EXPORT KVOSimTypeSchemaSnapshot
{
public:
    /// Of no context.
    KVOSimTypeSchemaSnapshot() noexcept = default;
    /// @param context  whose types TypeID() gives
    explicit KVOSimTypeSchemaSnapshot(KVOSimContextID const& context) noexcept : m_context(context) {}
    /// The type of that number in the context, whether it was used before or not.
    KVOSimTypeID TypeID(int typeIndex) const noexcept { return KVOSimTypeID(m_context, typeIndex); }

private:
    KVOSimContextID m_context;
};

/// Works in a context of an open database. Any number of these may stand on one context.
class KVO_EXPORT KVOSimContext
{
public:
    /// @throws KVOSimException for a null identifier, one of a closed database, or one that names nothing
    explicit KVOSimContext(KVOSimContextID const& id);

    /// Readies the context for work; the schema is the one it has. May be called again.
    void Open();
    /// The same; `schema` plays no part, a context has but one.
    void Open(KVOSimTypeSchemaSnapshot const& schema);

    /// The path of the database's file, for error texts; valid while this object lives, also when the database was
    /// closed.
    char const* Path() const noexcept;
    /// The identifier of the context.
    KVOSimContextID ID() const;
    /// The types of the context.
    KVOSimTypeSchemaSnapshot Schema() const;

    /// A new collection of `members` members, 0 or more, numbered 0 to members - 1. @param type  a number kept with it;
    /// -1: none
    KVOSimCollectionID CreateCollection(int members, int type = -1);

    /// A new, empty distribution over `grid`. @param mask  -1: all of the grid, the only choice
    /// @throws KVOSimException unless the grid has 1 to 32 distinct collections of this context and the range type is 1
    /// to 8
    KVOSimDistributionID CreateDistribution(KVOSimGrid const& grid, KVOSimRangeType const& rangeType, //
                                            std::int64_t mask);
    /// One that is not kept when the database is closed. @param type  as Schema() gives it, or -1
    KVOSimDistributionID CreateTempDistribution(KVOSimGrid const& grid, KVOSimRangeType const& rangeType, //
                                                KVOSimTypeID const& type);

    /// The stored distributions, in the order in which they were made.
    KVOSimArray<KVOSimDistributionID> QueryDistributions() const;

    /// The distribution that has this title, in the file or since; null when there is none.
    KVOSimDistributionID Find(char const* title) const;

private:
    friend class KVOSimPosition;
    friend class KVOSimTransaction;
    std::shared_ptr<simdb::Context> m_context;
};
