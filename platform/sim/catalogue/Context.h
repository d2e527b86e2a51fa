#pragma once

#include "Catalogue.h"
#include "CatalogueTables.h"
#include "ChunkIndex.h"
#include "Hdf5.h"
#include "KVOSimGrid.h"
#include "KVOSimIdentifiers.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace simdb
{

class Distribution;
class Session;
struct Drawer;

/// A context of an open database: collections, sets and distributions, in memory; a commit writes them to the tables of the context's
/// group.
///
/// Invariants:
/// 1. What is stored refers to stored objects only: a commit keeps with an object all that it uses.
/// 2. An index is given once while the database is open.
class Context
{
public:
    Context(Session& session, int index);
    Context(Context const&) = delete;
    Context& operator=(Context const&) = delete;
    ~Context();

    /// Reads the context's group. @throws KVOSimException when it is missing or damaged
    void Load();

    KVOSimContextID ID() const;
    /// @throws KVOSimException when the database was closed
    Session& OpenSession(char const* doing) const;
    /// Of the database's file; known for error texts also when that was closed.
    std::shared_ptr<std::string const> const& SharedPath() const noexcept { return m_path; }
    std::string const& Path() const noexcept { return *m_path; }
    /// The context's group in the file; only once something was written or loaded.
    hid_t Group() const noexcept { return m_group; }

    KVOSimCollectionID CreateCollection(int members, int type);
    /// @throws KVOSimException unless `id` names a collection of this context
    Collection& CollectionOf(KVOSimCollectionID const& id, char const* doing);

    enum class SetLife { Stored, Temporary, WhileHeld };
    /// A set that lives while it is held is a temporary one that goes with the last of those who hold the result, unless somebody makes
    /// the same as a temporary one. The same temporary set again is the same set.
    std::shared_ptr<MemberSet> CreateSet(KVOSimCollectionID const& collection, std::span<int const> numbers, SetLife life,
                                         char const* doing);
    /// @throws KVOSimException unless `id` names a set of this context
    std::shared_ptr<MemberSet> SetOf(KVOSimCSetID const& id, char const* doing);
    KVOSimCSetID IDOf(MemberSet const& set, int color) const;
    /// The member numbers in order, read when they are asked for first.
    std::shared_ptr<std::vector<int> const> NumbersOf(MemberSet& set);
    std::vector<std::shared_ptr<MemberSet>> StoredSets() const;
    /// Calls visit(name, dataset) for every table that exists.
    void ForEachTable(std::function<void(char const*, hid_t)> const& visit) const;
    /// Gives a temporary set its place among the stored ones, for a stored drawer that uses it.
    void MakeStorable(std::shared_ptr<MemberSet> const& set);

    KVOSimDistributionID CreateDistribution(KVOSimGrid const& grid, int rangeType, int type, bool temporary);
    /// For a client: its drawers are closed when the last client lets go. @throws KVOSimException when there is none
    std::shared_ptr<Distribution> Borrow(KVOSimDistributionID const& id, char const* doing);
    std::vector<int> StoredDistributions() const;
    /// The distribution of this context that has a title; null when there is none.
    KVOSimDistributionID Find(std::string const& title, char const* doing);
    /// The distribution has something for the next commit or rollback.
    void Touch(Distribution& distribution);
    /// What HDF5 may need to find or make a drawer's name: it holds the names of a group in one piece, makes it twice as long when it is
    /// full, and copies it to write it.
    std::size_t BytesForNames() const noexcept;

    /// The distribution has a drawer open for writing: its chunks may get places that the next commit must know of.
    void Watch(Distribution& distribution);

    /// A commit: Stage() collects what waits for `owner` or for none, with all it uses; Write() gives it to HDF5; Accept() makes it stored,
    /// Withdraw() leaves everything as it was before Stage().
    void Stage(Owner owner);
    void Write();
    void Accept() noexcept;
    void Withdraw() noexcept;
    void RollBack(Owner owner);

    /// The database is closed: lets go of the file, and every later use is refused.
    void Detach() noexcept;

private:
    struct StagedDrawer {
        Distribution* distribution;
        Drawer* drawer;
        std::size_t keptChanges;
        bool linkedNow;
    };
    struct StagedLabel {
        Distribution* distribution;
        std::size_t keptChanges;
    };
    struct Staged {
        CatalogueRows rows;
        std::vector<std::shared_ptr<std::vector<int> const>> numbers;
        std::vector<Collection*> collections;
        std::vector<MemberSet*> sets;
        std::vector<Distribution*> distributions;
        std::vector<StagedDrawer> drawers;
        std::vector<StagedLabel> labels;
        std::vector<Distribution*> labelsThatWait;
        Owner owner = kNoOwner;
        std::vector<std::pair<Drawer*, PlacesSum>> places;
        std::int64_t numberCount = 0;
    };

    std::vector<Dimension> CheckedGrid(KVOSimGrid const& grid, char const* doing);
    void LoadCollections(CatalogueRows const& rows);
    void LoadSets(CatalogueRows const& rows);
    void LoadDistributions(CatalogueRows const& rows);
    void LoadDrawers(CatalogueRows const& rows);
    void LoadChecksums(CatalogueRows const& rows);
    [[noreturn]] void ThrowDamaged(char const* what, std::int64_t index) const;
    void OpenGroup(bool create);

    bool IsKept(Fate const& fate, Owner owner) const noexcept { return !fate.stored && (fate.owner == owner || fate.owner == kNoOwner); }
    void StageCollection(int index);
    void StageSet(MemberSet& set);
    void StageDistribution(Distribution& distribution);
    void StageDrawers(Distribution& distribution, Owner owner);
    void StageLabel(Distribution& distribution, Owner owner, bool changesDrawers);
    void WriteLabels();
    void Describe() const;
    void AddPlaces();
    void PassToUsers(Owner owner);
    void DropOwnedBy(Owner owner);

    Session* m_session; ///< null once the database is closed
    std::shared_ptr<std::string const> m_path;
    int m_index;
    Hid m_group;
    bool m_isNew = false; ///< the group was made since the last commit
    std::optional<CatalogueTables> m_tables;
    std::map<int, Collection> m_collections;
    void ForgetSetsNobodyHolds();

    std::map<int, std::shared_ptr<MemberSet>> m_sets; ///< by every index they have, both kinds
    std::map<int, std::weak_ptr<MemberSet>> m_heldSets;
    std::size_t m_forgetAt = 64; ///< entries of m_temporaryByContent at which it is worth to look for what is gone
    std::unordered_multimap<std::size_t, std::weak_ptr<MemberSet>> m_temporaryByContent;
    std::map<int, std::shared_ptr<Distribution>> m_distributions;
    int m_nextCollection = 0;
    int m_nextSet = 1;
    int m_nextDistribution = 0;
    int m_nextTemporarySet = kFirstTemporary;
    int m_nextTemporaryDistribution = kFirstTemporary;
    std::vector<int> m_pendingCollections;
    std::vector<std::shared_ptr<MemberSet>> m_pendingSets;
    std::vector<std::shared_ptr<Distribution>> m_pendingDistributions; ///< also stored ones with new drawers or changes
    std::vector<std::shared_ptr<Distribution>> m_watched;
    Staged m_staged;
};

} // namespace simdb
