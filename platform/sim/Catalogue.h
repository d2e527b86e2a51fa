#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace simdb
{

class Context;

/// Serial number of the open transaction that an object waits for.
using Owner = std::uint64_t;
/// Made outside of every transaction: kept by the next commit of any.
constexpr Owner kNoOwner = 0;

constexpr int kNoIndex = -1;
/// Index of the set of all members of a collection.
constexpr int kBiggestSet = 0;
/// Temporary objects count from here downwards.
constexpr int kFirstTemporary = -2;

/// What a rollback or a commit must know of an object.
struct Fate {
    Owner owner = kNoOwner;
    bool stored = false; ///< a commit has kept it
    bool staged = false; ///< the commit under way keeps it
};

/// An ordered set of members of a collection.
struct MemberSet {
    int collection = kNoIndex;
    int index = kNoIndex;          ///< kBiggestSet, from 1 on with a place in the file; kNoIndex: temporary and not used by what is stored
    int temporaryIndex = kNoIndex; ///< of a set that was made as a temporary one
    std::int64_t size = 0;
    std::int64_t firstInFile = 0;                    ///< of a stored set: where its numbers start in set_members
    std::shared_ptr<std::vector<int> const> numbers; ///< null: not read yet, or kBiggestSet
    Fate fate;

    bool IsTemporary() const noexcept { return temporaryIndex != kNoIndex; }
    int PublicIndex() const noexcept { return index != kNoIndex ? index : temporaryIndex; }
};

struct Collection {
    int index = kNoIndex;
    int members = 0;
    int type = -1;
    std::shared_ptr<MemberSet> biggest;
    Fate fate;
};

/// A dimension of a grid.
struct Dimension {
    int collection = kNoIndex;
    int color = 0;

    friend bool operator==(Dimension const&, Dimension const&) noexcept = default;
};

/// The rows of a context's tables, as they lie in the file (see docs/database-format.md).
struct CollectionRow {
    std::int32_t index, members, type;
};
struct SetRow {
    std::int32_t index, collection;
    std::int64_t first, count;
};
struct DistributionRow {
    std::int32_t index, rangeType, type, dimensions;
};
struct GridRow {
    std::int32_t distribution, dimension, collection, color;
};
struct DrawerRow {
    std::int32_t distribution, drawer, kind, dimension, set;
};

/// The rows of all tables but set_members.
struct CatalogueRows {
    std::vector<CollectionRow> collections;
    std::vector<SetRow> sets;
    std::vector<DistributionRow> distributions;
    std::vector<GridRow> grids;
    std::vector<DrawerRow> drawers;
};

} // namespace simdb
