// What a commit keeps of a context: staged, written to its tables, or dropped.

#include "Context.h"

#include "Crc32c.h"
#include "Distribution.h"
#include "Label.h"
#include "Session.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <unordered_map>

namespace simdb
{

void Context::Stage(Owner owner)
{
    m_staged.numberCount = m_tables ? m_tables->NumberCount() : 0;
    for (int const index : m_pendingCollections)
        if (IsKept(m_collections.at(index).fate, owner))
            StageCollection(index);
    for (auto const& set : m_pendingSets)
        if (IsKept(set->fate, owner) && !set->IsTemporary()) // a temporary one only where a drawer needs it
            StageSet(*set);
    for (auto const& distribution : m_pendingDistributions) {
        if (IsKept(distribution->fate, owner))
            StageDistribution(*distribution);
        std::size_t const before = m_staged.drawers.size();
        StageDrawers(*distribution, owner);
        StageLabel(*distribution, owner, m_staged.drawers.size() > before);
    }
    m_staged.owner = owner;
}

void Context::StageCollection(int index)
{
    Collection& collection = m_collections.at(index);
    if (collection.fate.stored || collection.fate.staged)
        return;
    m_staged.collections.push_back(&collection);
    m_staged.rows.collections.push_back({collection.index, collection.members, collection.type});
    collection.fate.staged = true;
}

void Context::StageSet(MemberSet& set)
{
    StageCollection(set.collection);
    if (set.index == kBiggestSet || set.fate.stored || set.fate.staged)
        return;
    m_staged.sets.push_back(&set);
    m_staged.numbers.push_back(set.numbers);
    m_staged.rows.sets.push_back({set.index, set.collection, m_staged.numberCount, set.size});
    m_staged.numberCount += set.size;
    if (m_session->HasChecksums())
        m_staged.rows.checksums.push_back(
            {ChecksumRow::kSet, set.index, set.size, Crc32c(set.numbers->data(), set.numbers->size() * sizeof(int)), 0, 0});
    set.fate.staged = true;
}

// A temporary distribution is kept as well, in memory alone.
void Context::StageDistribution(Distribution& distribution)
{
    if (distribution.fate.stored || distribution.fate.staged)
        return;
    m_staged.distributions.push_back(&distribution);
    distribution.fate.staged = true;
    if (distribution.IsTemporary())
        return;
    int const index = distribution.ID().Index();
    m_staged.rows.distributions.push_back({index, distribution.RangeType(), distribution.Type(), distribution.Rank()});
    for (int d = 0; d < distribution.Rank(); ++d) {
        Dimension const& dimension = distribution.Grid()[static_cast<std::size_t>(d)];
        StageCollection(dimension.collection);
        m_staged.rows.grids.push_back({index, d, dimension.collection, dimension.color});
    }
}

// A change is kept with all that came before it in the same drawer, whoever made them.
void Context::StageDrawers(Distribution& distribution, Owner owner)
{
    for (auto const& drawer : distribution.Drawers()) {
        if (drawer == nullptr)
            continue;
        auto const lastKept = std::find_if(drawer->changes.rbegin(), drawer->changes.rend(),
                                           [&](Change const& change) { return change.owner == owner || change.owner == kNoOwner; });
        std::size_t const kept = static_cast<std::size_t>(drawer->changes.rend() - lastKept);
        bool const isNew = !drawer->fate.stored && (IsKept(drawer->fate, owner) || kept > 0);
        if (!isNew && kept == 0)
            continue;
        StageDistribution(distribution);
        m_staged.drawers.push_back({&distribution, drawer.get(), kept, false});
        if (distribution.IsTemporary())
            continue;
        int dimension = 0;
        for (auto const& set : drawer->SetsAfter(kept)) {
            StageSet(*set);
            m_staged.rows.drawers.push_back({distribution.ID().Index(), drawer->number, drawer->kind, dimension++, set->index});
        }
    }
}

// A label lies with the drawers in the file: without any it waits.
void Context::StageLabel(Distribution& distribution, Owner owner, bool changesDrawers)
{
    std::size_t const kept = distribution.LabelChangesFor(owner);
    if (!distribution.HasLabelToWrite(kept, changesDrawers))
        return;
    bool const hasDrawer =
        !distribution.IsTemporary() &&
        (changesDrawers || std::ranges::any_of(distribution.Drawers(), [](auto const& drawer) { return drawer && drawer->linked; }));
    if (hasDrawer)
        m_staged.labels.push_back({&distribution, kept});
    else
        m_staged.labelsThatWait.push_back(&distribution);
}

// The checksums of new drawers, and of those whose chunks have got other places.
void Context::AddPlaces()
{
    auto const add = [&](Distribution& distribution, Drawer& drawer) {
        if (m_session->FileIdentity() == 0) // another program has written the file anew
            return;
        std::optional<PlacesSum> const places = distribution.PlacesOf(drawer);
        if (!places || places == drawer.recorded)
            return;
        m_staged.places.emplace_back(&drawer, *places);
        m_staged.rows.checksums.push_back(
            {distribution.ID().Index(), drawer.number, places->pieces, places->sum, m_session->FileIdentity(), 0});
    };
    for (StagedDrawer const& staged : m_staged.drawers)
        if (!staged.drawer->fate.stored && staged.distribution->isWatched)
            add(*staged.distribution, *staged.drawer);
    for (auto const& distribution : m_watched) {
        for (auto const& drawer : distribution->Drawers())
            if (drawer != nullptr && drawer->recorded)
                add(*distribution, *drawer);
        distribution->CloseUnlessBorrowed(); // it may have been opened to be asked
    }
}

void Context::WriteLabels()
{
    std::unordered_map<Drawer const*, std::size_t> kept;
    for (StagedDrawer const& staged : m_staged.drawers)
        kept.emplace(staged.drawer, staged.keptChanges);
    auto const changesKept = [&kept](Drawer const& drawer) {
        auto const staged = kept.find(&drawer);
        return staged != kept.end() ? staged->second : 0;
    };
    constexpr std::size_t kTogether = 32; // to make sure of memory takes about as long as to write a label
    std::optional<Hdf5Guard> guard;
    for (std::size_t i = 0; i < m_staged.labels.size(); ++i) {
        if (i % kTogether == 0) {
            guard.reset();
            guard.emplace(BytesForNames() + kTogether * kBytesOfLabel);
        }
        m_staged.labels[i].distribution->WriteLabel(m_staged.labels[i].keptChanges, changesKept);
    }
}

void Context::Write()
{
    OpenGroup(true);
    if (m_isNew)
        Describe();
    for (auto const& distribution : m_watched)
        distribution->WriteSums();
    AddPlaces();
    m_tables->Append(m_staged.rows, m_staged.numbers); // also without rows: it cuts off what a commit that failed has left
    for (StagedDrawer& staged : m_staged.drawers)
        if (!staged.drawer->linked && !staged.distribution->IsTemporary()) {
            staged.distribution->Link(*staged.drawer);
            staged.linkedNow = true;
        }
    WriteLabels();
}

// Who has made it, for those who look at the file.
void Context::Describe() const
{
    char const* const wished = std::getenv("SOURCE_DATE_EPOCH"); // for files that are to come out the same
    std::time_t const now = wished != nullptr ? static_cast<std::time_t>(std::strtoll(wished, nullptr, 10)) : std::time(nullptr);
    std::tm parts{};
    char text[32] = "";
    if (gmtime_r(&now, &parts) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        text[0] = '\0';
    Hdf5Guard const guard;
    if (text[0] != '\0')
        WriteText(m_group, "created", text, Path());
    if (*program_invocation_short_name != '\0')
        WriteText(m_group, "program", program_invocation_short_name, Path());
    WriteText(m_group, "version", KVO_VERSION, Path());
}

void Context::Accept() noexcept
{
    if (m_tables)
        m_tables->Accept();
    m_isNew = false;
    for (StagedLabel const& staged : m_staged.labels)
        staged.distribution->AcceptLabel(staged.keptChanges);
    for (Distribution* const distribution : m_staged.labelsThatWait)
        distribution->PassLabelOn(m_staged.owner);
    for (Collection* const collection : m_staged.collections)
        collection->fate = {kNoOwner, true, false};
    for (std::size_t i = 0; i < m_staged.sets.size(); ++i) {
        m_staged.sets[i]->fate = {kNoOwner, true, false};
        m_staged.sets[i]->firstInFile = m_staged.rows.sets[i].first;
    }
    for (Distribution* const distribution : m_staged.distributions)
        distribution->fate = {kNoOwner, true, false};
    for (StagedDrawer const& staged : m_staged.drawers) {
        auto& changes = staged.drawer->changes;
        changes.erase(changes.begin(), changes.begin() + static_cast<std::ptrdiff_t>(staged.keptChanges));
        staged.drawer->fate = {kNoOwner, true, false};
    }
    for (auto const& [drawer, places] : m_staged.places)
        drawer->recorded = places;
    for (auto const& distribution : m_watched)
        distribution->AcceptSums();
    for (StagedDrawer const& staged : m_staged.drawers)
        staged.distribution->CloseUnlessBorrowed(); // it was open only to exist
    std::erase_if(m_watched, [](auto const& distribution) { return !(distribution->isWatched = distribution->HasOpenDrawers()); });
    m_staged = {};
    std::erase_if(m_pendingCollections, [&](int index) { return m_collections.at(index).fate.stored; });
    std::erase_if(m_pendingSets, [](auto const& set) { return set->fate.stored; });
    std::erase_if(m_pendingDistributions,
                  [](auto const& distribution) { return !(distribution->isPending = distribution->HasOpenWork()); });
}

void Context::Withdraw() noexcept
{
    for (Collection* const collection : m_staged.collections)
        collection->fate.staged = false;
    for (MemberSet* const set : m_staged.sets)
        set->fate.staged = false;
    for (Distribution* const distribution : m_staged.distributions)
        distribution->fate.staged = false;
    for (StagedDrawer const& staged : m_staged.drawers)
        if (staged.linkedNow)
            staged.distribution->Unlink(*staged.drawer);
    for (StagedLabel const& staged : m_staged.labels)
        staged.distribution->WithdrawLabel();
    m_staged = {};
}

void Context::RollBack(Owner owner)
{
    for (auto const& distribution : m_pendingDistributions)
        distribution->RollBack(owner);
    PassToUsers(owner);
    DropOwnedBy(owner);
    std::erase_if(m_watched, [](auto const& distribution) { return distribution->Drawers().empty(); });
}

// What `owner` made and something else in waiting stands on goes to that one.
void Context::PassToUsers(Owner owner)
{
    auto const pass = [owner](Fate& used, Owner user) {
        if (!used.stored && used.owner == owner)
            used.owner = user;
    };
    for (auto const& distribution : m_pendingDistributions)
        for (auto const& drawer : distribution->Drawers()) {
            if (drawer == nullptr)
                continue;
            Owner const user = drawer->changes.empty() ? drawer->fate.owner : drawer->changes.back().owner;
            pass(distribution->fate, user);
            for (auto const& set : drawer->sets)
                pass(set->fate, user);
            for (Change const& change : drawer->changes)
                pass(change.before->fate, user);
        }
    for (auto const& distribution : m_pendingDistributions)
        if (distribution->fate.stored || distribution->fate.owner != owner)
            for (Dimension const& dimension : distribution->Grid())
                pass(m_collections.at(dimension.collection).fate, distribution->fate.owner);
    for (auto const& set : m_pendingSets)
        if (set->fate.owner != owner)
            pass(m_collections.at(set->collection).fate, set->fate.owner);
}

void Context::DropOwnedBy(Owner owner)
{
    auto const isDropped = [owner](Fate const& fate) { return !fate.stored && fate.owner == owner; };
    std::erase_if(m_pendingDistributions, [&](auto const& distribution) {
        if (!isDropped(distribution->fate))
            return false;
        m_distributions.erase(distribution->ID().Index());
        distribution->DropTitles();
        distribution->Detach();
        return true;
    });
    std::erase_if(m_pendingSets, [&](auto const& set) {
        if (!isDropped(set->fate))
            return false;
        m_sets.erase(set->index);
        set->index = kNoIndex; // a temporary one lives on as such
        return true;
    });
    std::erase_if(m_pendingCollections, [&](int index) {
        if (!isDropped(m_collections.at(index).fate))
            return false;
        std::erase_if(m_sets, [index](auto const& entry) { return entry.second->collection == index; });
        m_collections.erase(index);
        return true;
    });
}

} // namespace simdb
