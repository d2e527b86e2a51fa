#include "Context.h"

#include "Crc32c.h"
#include "Distribution.h"
#include "Session.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <numeric>
#include <string_view>

namespace simdb
{

namespace
{

constexpr char const* kCollection = "Cannot create a collection in the database";
constexpr char const* kSet = "Cannot create a set in the database";
constexpr char const* kDistribution = "Cannot create a distribution in the database";

// Adds to two lists or to none.
template<class List, class Entry, class Insert>
void AddWithPending(List& pending, Entry const& entry, Insert const& insert)
{
    pending.push_back(entry);
    try {
        insert();
    } catch (...) {
        pending.pop_back();
        throw;
    }
}

std::size_t ContentHash(int collection, std::span<int const> numbers)
{
    std::string_view const bytes(reinterpret_cast<char const*>(numbers.data()), numbers.size_bytes());
    return std::hash<std::string_view>()(bytes) ^ (static_cast<std::size_t>(collection) * 0x9e3779b97f4a7c15u);
}

} // namespace

Context::Context(Session& session, int index)
    : m_session(&session), m_path(std::make_shared<std::string const>(session.Path())), m_index(index)
{
}

Context::~Context()
{
    Detach();
}

void Context::Detach() noexcept
{
    for (auto const& [index, distribution] : m_distributions)
        distribution->Detach();
    m_staged = {};
    m_pendingDistributions.clear();
    m_watched.clear();
    m_distributions.clear();
    m_tables.reset();
    m_group.Reset();
    m_session = nullptr;
}

KVOSimContextID Context::ID() const
{
    return m_session != nullptr ? KVOSimContextID(m_session->Serial(), m_index) : KVOSimContextID();
}

Session& Context::OpenSession(char const* doing) const
{
    if (m_session == nullptr)
        ThrowReason(doing, Path(), "the database was closed");
    return *m_session;
}

KVOSimCollectionID Context::CreateCollection(int members, int type)
{
    Session& session = OpenSession(kCollection);
    session.RequireWritable(kCollection);
    if (members < 0)
        ThrowReason(kCollection, Path(), "it would have " + std::to_string(members) + " members");
    if (m_nextCollection == INT_MAX)
        ThrowReason(kCollection, Path(), "the context has no number left for it");

    int const index = m_nextCollection;
    auto biggest = std::make_shared<MemberSet>();
    biggest->collection = index;
    biggest->index = kBiggestSet;
    biggest->size = members;
    AddWithPending(m_pendingCollections, index, [&] {
        m_collections.emplace(index, Collection{index, members, type, std::move(biggest), {session.CurrentTransaction()}});
    });
    ++m_nextCollection;
    return KVOSimCollectionID(ID(), index);
}

Collection& Context::CollectionOf(KVOSimCollectionID const& id, char const* doing)
{
    OpenSession(doing);
    if (id.IsNull())
        ThrowReason(doing, Path(), "the collection's identifier is null");
    if (id.ContextID() != ID())
        ThrowReason(doing, Path(), "the collection belongs to another context or database");
    auto const found = m_collections.find(id.Index());
    if (found == m_collections.end() || id.Color() < 0)
        ThrowReason(doing, Path(), "there is no collection " + std::to_string(id.Index()) + " of colour " + std::to_string(id.Color()));
    return found->second;
}

std::shared_ptr<MemberSet> Context::CreateSet(KVOSimCollectionID const& collection, std::span<int const> numbers, SetLife life,
                                              char const* doing)
{
    Session& session = OpenSession(doing);
    bool const temporary = life != SetLife::Stored;
    if (!temporary)
        session.RequireWritable(doing);
    int const owner = CollectionOf(collection, doing).index;
    if (std::any_of(numbers.begin(), numbers.end(), [](int number) { return number < 0; }))
        ThrowReason(doing, Path(), "a member number is negative");

    // The same temporary set again is the same set: callers ask for the part of a view over and over.
    std::size_t const hash = temporary ? ContentHash(owner, numbers) : 0;
    if (temporary) {
        auto [candidate, end] = m_temporaryByContent.equal_range(hash);
        for (; candidate != end; ++candidate)
            if (auto const set = candidate->second.lock();
                set != nullptr && set->collection == owner && std::ranges::equal(*set->numbers, numbers)) {
                if (life == SetLife::Temporary)
                    m_sets.emplace(set->temporaryIndex, set);
                return set;
            }
    }
    if (temporary ? m_nextTemporarySet == INT_MIN : m_nextSet == INT_MAX)
        ThrowReason(doing, Path(), "the context has no number left for it");

    auto set = std::make_shared<MemberSet>();
    set->collection = owner;
    set->size = static_cast<std::int64_t>(numbers.size());
    set->numbers = std::make_shared<std::vector<int> const>(numbers.begin(), numbers.end());
    set->fate.owner = session.CurrentTransaction();
    if (temporary) {
        set->temporaryIndex = m_nextTemporarySet;
        ForgetSetsNobodyHolds();
        if (life == SetLife::WhileHeld)
            m_heldSets.emplace(m_nextTemporarySet, set);
        else
            m_sets.emplace(m_nextTemporarySet, set);
        --m_nextTemporarySet;
        m_temporaryByContent.emplace(hash, set);
    } else {
        set->index = m_nextSet;
        AddWithPending(m_pendingSets, set, [&] { m_sets.emplace(m_nextSet, set); });
        ++m_nextSet;
    }
    return set;
}

// Now and then, so that each entry is looked at a few times only.
void Context::ForgetSetsNobodyHolds()
{
    if (m_temporaryByContent.size() < m_forgetAt)
        return;
    auto const isGone = [](auto const& entry) { return entry.second.expired(); };
    std::erase_if(m_temporaryByContent, isGone);
    std::erase_if(m_heldSets, isGone);
    m_forgetAt = 64 + 2 * m_temporaryByContent.size();
}

std::shared_ptr<MemberSet> Context::SetOf(KVOSimCSetID const& id, char const* doing)
{
    OpenSession(doing);
    if (id.IsNull())
        ThrowReason(doing, Path(), "the set's identifier is null");
    Collection const& collection = CollectionOf(id.CollectionID(), doing);
    if (id.Index() == kBiggestSet)
        return collection.biggest;
    std::shared_ptr<MemberSet> set;
    if (auto const found = m_sets.find(id.Index()); found != m_sets.end())
        set = found->second;
    else if (auto const held = m_heldSets.find(id.Index()); held != m_heldSets.end())
        set = held->second.lock();
    if (set == nullptr || set->collection != collection.index)
        ThrowReason(doing, Path(),
                    "there is no set " + std::to_string(id.Index()) + " in collection " + std::to_string(id.CollectionID().Index()));
    return set;
}

KVOSimCSetID Context::IDOf(MemberSet const& set, int color) const
{
    return KVOSimCSetID(KVOSimCollectionID(ID(), set.collection, color), set.PublicIndex());
}

std::shared_ptr<std::vector<int> const> Context::NumbersOf(MemberSet& set)
{
    if (set.numbers != nullptr)
        return set.numbers;
    if (set.index == kBiggestSet) {
        auto all = std::make_shared<std::vector<int>>(static_cast<std::size_t>(set.size));
        std::iota(all->begin(), all->end(), 0);
        return all; // not kept: it is made in no time
    }
    auto numbers = std::make_shared<std::vector<int> const>(m_tables->LoadNumbers(set.firstInFile, set.size));
    if (set.checksum && Crc32c(numbers->data(), numbers->size() * sizeof(int)) != *set.checksum)
        ThrowDamaged("numbers that do not fit their checksum in set", set.index);
    if (std::any_of(numbers->begin(), numbers->end(), [](int number) { return number < 0; }))
        ThrowDamaged("a negative member number in set", set.index);
    return set.numbers = std::move(numbers);
}

std::vector<std::shared_ptr<MemberSet>> Context::StoredSets() const
{
    std::vector<std::shared_ptr<MemberSet>> sets;
    for (auto const& [index, set] : m_sets)
        if (set->fate.stored)
            sets.push_back(set);
    return sets;
}

void Context::ForEachTable(std::function<void(char const*, hid_t)> const& visit) const
{
    if (m_tables)
        m_tables->ForEachTable(visit);
}

void Context::MakeStorable(std::shared_ptr<MemberSet> const& set)
{
    if (set->index != kNoIndex)
        return;
    if (m_nextSet == INT_MAX)
        ThrowReason(kSet, Path(), "the context has no number left for it");
    AddWithPending(m_pendingSets, set, [&] { m_sets.emplace(m_nextSet, set); });
    set->index = m_nextSet++;
    set->fate.owner = m_session->CurrentTransaction();
}

std::vector<Dimension> Context::CheckedGrid(KVOSimGrid const& grid, char const* doing)
{
    if (grid.Collections().IsEmpty() || grid.Collections().Size() > static_cast<int>(kMaxRank))
        ThrowReason(doing, Path(), "its grid has " + std::to_string(grid.Collections().Size()) + " dimensions, 1 to 32 are possible");
    std::vector<Dimension> dimensions;
    for (KVOSimCollectionID const& id : grid.Collections()) {
        Dimension const dimension{CollectionOf(id, doing).index, id.Color()};
        if (std::find(dimensions.begin(), dimensions.end(), dimension) != dimensions.end())
            ThrowReason(doing, Path(), "two dimensions of its grid are the same collection: use a colour variant for one of them");
        dimensions.push_back(dimension);
    }
    return dimensions;
}

KVOSimDistributionID Context::CreateDistribution(KVOSimGrid const& grid, int rangeType, int type, bool temporary)
{
    Session& session = OpenSession(kDistribution);
    session.RequireWritable(kDistribution);
    if (rangeType < KVOSimInt8 || rangeType > KVOSimReference32)
        ThrowReason(kDistribution, Path(), "there is no range type " + std::to_string(rangeType));
    if (type < -1)
        ThrowReason(kDistribution, Path(), "its type " + std::to_string(type) + " is negative");
    std::vector<Dimension> dimensions = CheckedGrid(grid, kDistribution);
    if (temporary ? m_nextTemporaryDistribution == INT_MIN : m_nextDistribution == INT_MAX)
        ThrowReason(kDistribution, Path(), "the context has no number left for it");

    int const index = temporary ? m_nextTemporaryDistribution-- : m_nextDistribution++;
    auto const distribution = std::make_shared<Distribution>(*this, index, rangeType, type, std::move(dimensions));
    distribution->fate.owner = session.CurrentTransaction();
    AddWithPending(m_pendingDistributions, distribution, [&] { m_distributions.emplace(index, distribution); });
    distribution->isPending = true;
    return distribution->ID();
}

std::shared_ptr<Distribution> Context::Borrow(KVOSimDistributionID const& id, char const* doing)
{
    OpenSession(doing);
    auto const found = m_distributions.find(id.Index());
    if (found == m_distributions.end())
        ThrowReason(doing, Path(), "there is no distribution " + std::to_string(id.Index()) + " in context " + std::to_string(m_index));
    return found->second->Borrow();
}

std::vector<int> Context::StoredDistributions() const
{
    std::vector<int> indices;
    for (auto found = m_distributions.lower_bound(0); found != m_distributions.end(); ++found)
        indices.push_back(found->first);
    return indices;
}

KVOSimDistributionID Context::Find(std::string const& title, char const* doing)
{
    std::optional<Titled> const titled = OpenSession(doing).GetTitles().Find(title);
    if (!titled || titled->context != m_index)
        return {};
    auto const found = m_distributions.find(titled->distribution);
    return found != m_distributions.end() && found->second->GetLabel().title == title ? found->second->ID() : KVOSimDistributionID();
}

std::size_t Context::BytesForNames() const noexcept
{
    constexpr std::size_t kBytesPerName = 256;
    return Hdf5Guard::kReserve + m_distributions.size() * kBytesPerName;
}

void Context::Touch(Distribution& distribution)
{
    if (!distribution.isPending)
        m_pendingDistributions.push_back(distribution.shared_from_this());
    distribution.isPending = true;
}

void Context::Watch(Distribution& distribution)
{
    if (distribution.isWatched || !m_session->HasChecksums() || !m_session->GetFile()->IsWritable())
        return;
    m_watched.push_back(distribution.shared_from_this());
    distribution.isWatched = true;
}

} // namespace simdb
