#pragma once

#include "Catalogue.h"
#include "ChunkIndex.h"
#include "DenseDrawer.h"
#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"
#include "Label.h"
#include "SparseDrawer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace simdb
{

/// A dimension of a drawer got another set in a transaction that is still open.
struct Change {
    Owner owner;
    int dim;
    std::shared_ptr<MemberSet> before;
};

/// What a maker says of a matrix was changed in a transaction that is still open.
struct LabelChange {
    Owner owner;
    Label label;
};

/// What the object of a drawer says in the file.
struct DrawerNote {
    Label label;
    DrawerFacts facts;
    friend bool operator==(DrawerNote const&, DrawerNote const&) = default;
};

struct Drawer {
    int number = 0;
    int kind = 0;                                 ///< a KVOSimDrawerKind
    std::vector<std::shared_ptr<MemberSet>> sets; ///< one a dimension
    std::vector<Change> changes;                  ///< oldest first
    Fate fate;
    bool linked = false;                ///< has its name in the file: may be closed and opened again
    std::shared_ptr<DenseDrawer> dense; ///< null: not open
    std::shared_ptr<SparseDrawer> sparse;
    std::optional<PlacesSum> recorded; ///< the checksum in the file; none in files without, and where another program has written it anew
    std::optional<PlacesSum> places;   ///< what it is now, of a drawer that is not open; none: not known
    bool checked = false;              ///< `recorded` was found right
    std::shared_ptr<ValueSums> sums;   ///< of a drawer that is not open, where no commit has kept them yet
    std::optional<DrawerNote> note;    ///< what its object says of it; none: not known, or nothing if it has no name yet

    /// The sets once the changes from number `kept` on are taken back.
    std::vector<std::shared_ptr<MemberSet>> SetsAfter(std::size_t kept) const;
};

/// A distribution and its drawers.
class Distribution : public std::enable_shared_from_this<Distribution>
{
public:
    Distribution(Context& context, int index, int rangeType, int type, std::vector<Dimension> grid);
    Distribution(Distribution const&) = delete;
    Distribution& operator=(Distribution const&) = delete;
    ~Distribution();

    KVOSimDistributionID const& ID() const noexcept { return m_id; }
    bool IsTemporary() const noexcept { return m_id.Index() <= kFirstTemporary; }
    int RangeType() const noexcept { return m_rangeType; }
    int Type() const noexcept { return m_type; }
    std::vector<Dimension> const& Grid() const noexcept { return m_grid; }
    int Rank() const noexcept { return static_cast<int>(m_grid.size()); }
    KVOSimArray<KVOSimCollectionID> const& Collections() const noexcept { return m_collections; }

    /// @throws KVOSimException when the database was closed or this distribution was rolled back
    Context& RequireOpen(char const* doing) const;
    std::string const& Path() const noexcept { return *m_path; }

    /// Drawers by number; one that was rolled back in the middle leaves a null.
    std::vector<std::unique_ptr<Drawer>> const& Drawers() const noexcept { return m_drawers; }
    /// @throws KVOSimException when there is none
    Drawer& DrawerAt(int number, char const* doing) const;
    /// The data of a drawer, opened when needed. @throws KVOSimException when the drawer is of another kind or damaged
    DenseDrawer& Dense(Drawer& drawer);
    SparseDrawer& Sparse(Drawer& drawer);
    /// The checksum of where a drawer lies in the file; none where a filter of another program is at work.
    std::optional<PlacesSum> PlacesOf(Drawer& drawer);
    bool HasOpenDrawers() const noexcept;

    Drawer& AddDrawer(int kind, std::vector<std::shared_ptr<MemberSet>> sets, std::shared_ptr<DenseDrawer> dense,
                      std::shared_ptr<SparseDrawer> sparse);
    /// A drawer as the catalogue says; a number that is there already is an error of the caller.
    Drawer& AddStoredDrawer(int number, int kind);
    /// Lets dimension `dim` be numbered by `set`, the drawer's values growing with it.
    void ChangeSet(Drawer& drawer, int dim, std::shared_ptr<MemberSet> set);

    /// For a client: when the last one has let go, the drawers are closed.
    std::shared_ptr<Distribution> Borrow();
    void Return() noexcept;
    /// Closes the drawers that can be opened again, unless a client has borrowed them.
    void CloseUnlessBorrowed() noexcept;

    void SetCacheSize(std::uint64_t bytes);
    void ResetCacheSize() noexcept;
    std::uint64_t CacheSize() const noexcept;

    /// Gives a drawer its name below the context's group.
    void Link(Drawer& drawer);
    void Unlink(Drawer& drawer) noexcept;
    /// Stores the checksums of values that have changed; AcceptSums() when the commit has kept them.
    void WriteSums();
    void AcceptSums() noexcept;
    /// As it was last set. @throws KVOSimException when the file cannot be read
    Label const& GetLabel();
    /// For the next commit; a title that others have gets a number.
    void SetLabel(Label label);
    /// How many of the changes of the label a commit for `owner` keeps.
    std::size_t LabelChangesFor(Owner owner) const noexcept;
    /// Whether a commit that keeps so many of them, and changes drawers, has to write the label.
    bool HasLabelToWrite(std::size_t kept, bool changesDrawers);
    /// Writes it to the drawers that have a name, within a guard that has the memory. @param changesKept  of a drawer by the commit
    void WriteLabel(std::size_t kept, std::function<std::size_t(Drawer const&)> const& changesKept);
    void AcceptLabel(std::size_t kept) noexcept;
    /// The commit that wrote it has failed.
    void WithdrawLabel() noexcept;
    /// What a commit for `owner` had no drawer for waits for the next one.
    void PassLabelOn(Owner owner) noexcept;
    /// Nobody asks for its titles any more.
    void DropTitles() noexcept;

    /// Takes the open changes of `owner` back and drops its drawers. What others built upon stays, and becomes theirs.
    void RollBack(Owner owner) noexcept;
    bool HasOpenWork() const noexcept;
    /// Every later use is refused.
    void Detach() noexcept;

    Fate fate;
    bool isPending = false; ///< in the context's list
    bool isWatched = false; ///< likewise

private:
    Label const& KeptLabel();
    Drawer const* TitledDrawer() const noexcept;
    std::string Target() const; ///< of the link
    void Note(Drawer& drawer, DrawerNote const& note);
    void NoteAhead(Label const& label);
    void DropTitle(std::string const& title) noexcept;
    void RollBackLabel(Owner owner) noexcept;
    void PassCacheSize() noexcept;
    void CheckPlaces(Drawer& drawer, std::optional<PlacesSum> const& found) const;
    void FitToSets(Drawer& drawer, DenseDrawer& dense) const;
    void ShrinkAfterRollBack(Drawer& drawer) noexcept;
    std::shared_ptr<ValueSums> OpenSums(char const* name, DenseShape const& shape) const;

    Context* m_context; ///< null once closed or rolled back
    std::shared_ptr<std::string const> m_path;
    KVOSimDistributionID m_id;
    int m_rangeType;
    int m_type;
    std::vector<Dimension> m_grid;
    KVOSimArray<KVOSimCollectionID> m_collections;
    std::vector<std::unique_ptr<Drawer>> m_drawers;
    std::optional<Label> m_label;            ///< as the last commit has kept it; none: not read yet
    std::vector<LabelChange> m_labelChanges; ///< oldest first
    std::string m_link;                      ///< the name in the root group that HDF5 holds
    bool m_isRelabelled = false;             ///< HDF5 holds a label that no commit has kept
    std::weak_ptr<Distribution> m_borrowed;
    std::uint64_t m_cacheGrant = 0; ///< 0: the default, which is not counted
};

} // namespace simdb
