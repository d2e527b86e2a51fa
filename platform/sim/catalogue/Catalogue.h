#pragma once

#include <cstdint>
#include <memory>
#include <optional>
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
    std::optional<std::uint32_t> checksum;           ///< of the numbers in the file
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

/// A checksum of something that another table or the file holds; of several rows for the same thing the last one counts.
struct ChecksumRow {
    /// Of `distribution`, for what is not a distribution's drawer.
    static constexpr std::int32_t kTables = -1; ///< `sum`: of all rows of the tables but set_members and this one; `pieces`: their number
    static constexpr std::int32_t kSet = -2;    ///< `drawer`: a set; `sum`: CRC-32C of its numbers; `pieces`: how many they are

    std::int32_t distribution, drawer;
    std::int64_t pieces;
    std::uint64_t sum;
    std::uint32_t file;  ///< identity of the file that the places are in; 0 where there are none
    std::uint32_t check; ///< CRC-32C of this table up to here
};

/// The rows of all tables but set_members.
struct CatalogueRows {
    std::vector<CollectionRow> collections;
    std::vector<SetRow> sets;
    std::vector<DistributionRow> distributions;
    std::vector<GridRow> grids;
    std::vector<DrawerRow> drawers;
    std::vector<ChecksumRow> checksums;
};

} // namespace simdb
