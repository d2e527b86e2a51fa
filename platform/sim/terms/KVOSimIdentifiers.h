#pragma once

#include "KVOExport.h"

#include <cstdint>

/// @file
/// Identifiers name what a database holds. They are plain values: copied freely, null by default, and still safe to use
/// when their database was closed (every use is then a KVOSimException). They carry the open database, which is known
/// in this process only, and an index that is kept in the file: an identifier built in another process from the same
/// index names the same object.

/// What all identifiers have in common.
class KVO_EXPORT KVOSimDynamicID
{
public:
    KVOSimDynamicID() noexcept = default;

    /// True without a database or without an index.
    bool IsNull() const noexcept { return m_database == 0 || m_index == kNoIndex; }
    /// Number of the object in its file; -1 when null.
    int Index() const noexcept { return m_index; }
    /// Serial number of the open database in this process, 0 when null.
    std::uint64_t Database() const noexcept { return m_database; }

    /// Whether both name the same object, or are null alike.
    friend bool operator==(KVOSimDynamicID const&, KVOSimDynamicID const&) noexcept = default;

protected:
    /// The index of a null identifier.
    static constexpr int kNoIndex = -1;

    /// @param database  serial number of the open database
    /// @param context   number of the context
    /// @param index     number of the object
    KVOSimDynamicID(std::uint64_t database, int context, int index) noexcept
        : m_database(database), m_context(context), m_index(index)
    {
    }

    /// Serial number of the open database, 0 without.
    std::uint64_t m_database = 0;
    /// Number of the context.
    int m_context = kNoIndex;
    /// Number of the object.
    int m_index = kNoIndex;
};

/// A context: the part of a database that holds collections, sets and distributions.
class KVO_EXPORT KVOSimContextID : public KVOSimDynamicID
{
public:
    KVOSimContextID() noexcept = default;
    /// @param database  as Database() gives it
    /// @param index     as Index() gave it, in this or in an earlier process
    KVOSimContextID(std::uint64_t database, int index) noexcept : KVOSimDynamicID(database, index, index) {}

    /// Whether both name the same context.
    friend bool operator==(KVOSimContextID const&, KVOSimContextID const&) noexcept = default;
};

/// A collection, or one of its colour variants: variants have the same members and are distinct dimensions of a grid.
/// Colour 0 is the collection itself.
class KVO_EXPORT KVOSimCollectionID : public KVOSimDynamicID
{
public:
    KVOSimCollectionID() noexcept = default;
    /// Finds a stored collection again: `index` as Index() gave it, in this or in an earlier process.
    KVOSimCollectionID(KVOSimContextID const& context, int index, int color = 0) noexcept
        : KVOSimDynamicID(context.Database(), context.Index(), index), m_color(color)
    {
    }

    /// The context that holds it; null for a null identifier.
    KVOSimContextID ContextID() const noexcept
    {
        return IsNull() ? KVOSimContextID() : KVOSimContextID(m_database, m_context);
    }
    /// The colour of the variant.
    int Color() const noexcept { return m_color; }
    /// Makes this the identifier of the variant of that colour. It exists for every collection and every colour from 0
    /// on.
    void SetColor(int color) noexcept { m_color = color; }

    /// Whether both name the same variant of the same collection.
    friend bool operator==(KVOSimCollectionID const&, KVOSimCollectionID const&) noexcept = default;

private:
    int m_color = 0;
};

/// An ordered set of members of a collection, seen in one of the collection's variants. Index 0 is the set of all
/// members; stored sets count from 1; temporary ones from -2 downwards.
class KVO_EXPORT KVOSimCSetID : public KVOSimDynamicID
{
public:
    KVOSimCSetID() noexcept = default;
    /// Finds a stored set again: `index` as Index() gave it, in this or in an earlier process; 0 is the set of all
    /// members.
    KVOSimCSetID(KVOSimCollectionID const& collection, int index) noexcept
        : KVOSimDynamicID(collection.Database(), collection.ContextID().Index(), index), m_collection(collection)
    {
    }

    /// The collection, with the colour in which the set is seen.
    KVOSimCollectionID const& CollectionID() const noexcept { return m_collection; }
    /// The context that holds it; null for a null identifier.
    KVOSimContextID ContextID() const noexcept { return m_collection.ContextID(); }
    /// The same set seen in another variant of its collection.
    KVOSimCSetID InColor(int color) const noexcept
    {
        KVOSimCSetID other = *this;
        other.m_collection.SetColor(color);
        return other;
    }

    /// Whether both name the same set, seen in the same variant.
    friend bool operator==(KVOSimCSetID const&, KVOSimCSetID const&) noexcept = default;

private:
    KVOSimCollectionID m_collection;
};

/// A distribution: the values over a grid of collections. Stored ones count from 0, temporary ones from -2 downwards.
class KVO_EXPORT KVOSimDistributionID : public KVOSimDynamicID
{
public:
    KVOSimDistributionID() noexcept = default;
    /// Finds a stored distribution again: `index` as Index() gave it, in this or in an earlier process.
    KVOSimDistributionID(KVOSimContextID const& context, int index) noexcept
        : KVOSimDynamicID(context.Database(), context.Index(), index)
    {
    }

    /// The context that holds it; null for a null identifier.
    KVOSimContextID ContextID() const noexcept
    {
        return IsNull() ? KVOSimContextID() : KVOSimContextID(m_database, m_context);
    }

    /// Whether both name the same distribution.
    friend bool operator==(KVOSimDistributionID const&, KVOSimDistributionID const&) noexcept = default;
};

/// A type of distributions in a context's schema: a number that the caller chose.
class KVO_EXPORT KVOSimTypeID : public KVOSimDynamicID
{
public:
    KVOSimTypeID() noexcept = default;
    /// No type of its own, as every -1.
    KVOSimTypeID(int type) noexcept : KVOSimDynamicID(0, kNoIndex, type) {}
    /// The type of number `type` in a context.
    KVOSimTypeID(KVOSimContextID const& context, int type) noexcept
        : KVOSimDynamicID(context.Database(), context.Index(), type)
    {
    }
};
