#include "KVOSimDistribution.h"

#include "Context.h"
#include "Distribution.h"
#include "Hdf5.h"
#include "Session.h"

#include <string>
#include <vector>

namespace
{

constexpr char const* kOpening = "Cannot open a distribution";
constexpr char const* kAskingForTitle = "Cannot read the title of a matrix of the database";
constexpr char const* kQuerying = "Cannot describe the drawers of a distribution";

simdb::Distribution& Checked(std::shared_ptr<simdb::Distribution> const& distribution, char const* doing)
{
    if (distribution == nullptr)
        simdb::ThrowReason(doing, "", "the distribution is null");
    distribution->RequireOpen(doing);
    return *distribution;
}

// Chunked or not, every dense drawer can grow; sparse ones are written once.
int ExtendableDim(simdb::Drawer const& drawer)
{
    if (drawer.kind != KVOSimDenseDrawer)
        return -1;
    return drawer.sets.size() == 1 ? 0 : drawer.sets.size() == 2 ? 2 : -1;
}

KVOSimDrawer Describe(simdb::Distribution& distribution, simdb::Drawer& drawer)
{
    KVOSimDrawer description;
    description.id = drawer.number;
    description.kind = drawer.kind;
    description.typeKey = distribution.RangeType();
    if (drawer.kind == KVOSimSparseDrawer)
        description.serialization.SetSparse();
    else if (drawer.kind == KVOSimSparseSymDrawer)
        description.serialization.SetSparseSym();
    else
        for (std::int64_t const size : distribution.Dense(drawer).Shape().chunkSizes)
            description.chunkSizes.Append(static_cast<int>(size));
    for (std::size_t d = 0; d < drawer.sets.size(); ++d) {
        description.dimensionSizes.Append(static_cast<int>(drawer.sets[d]->size));
        description.csets.Append(distribution.RequireOpen(kQuerying).IDOf(*drawer.sets[d], distribution.Grid()[d].color));
    }
    description.extendableDim = ExtendableDim(drawer);
    return description;
}

} // namespace

KVOSimDistribution::KVOSimDistribution(KVOSimDistributionID const& id)
    : m_distribution(simdb::FindContext(id.ContextID(), kOpening)->Borrow(id, kOpening))
{
}

KVOSimDistributionID KVOSimDistribution::ID() const
{
    return m_distribution != nullptr ? m_distribution->ID() : KVOSimDistributionID();
}

int KVOSimDistribution::Type() const
{
    return Checked(m_distribution, "Cannot ask for the type of a distribution").Type();
}

void KVOSimDistribution::SetTitle(char const* title, char const* unit, char const* description)
{
    auto const text = [](char const* given) { return std::string(given != nullptr ? given : ""); };
    Checked(m_distribution, "Cannot give a title to a matrix of the database").SetLabel({text(title), text(unit), text(description)});
}

char const* KVOSimDistribution::Title() const
{
    return Checked(m_distribution, kAskingForTitle).GetLabel().title.c_str();
}

char const* KVOSimDistribution::Unit() const
{
    return Checked(m_distribution, kAskingForTitle).GetLabel().unit.c_str();
}

char const* KVOSimDistribution::Description() const
{
    return Checked(m_distribution, kAskingForTitle).GetLabel().description.c_str();
}

int KVOSimDistribution::NumDimensions() const
{
    return Checked(m_distribution, "Cannot ask for the dimensions of a distribution").Rank();
}

KVOSimArray<KVOSimCollectionID> const& KVOSimDistribution::Collections() const
{
    return Checked(m_distribution, "Cannot ask for the collections of a distribution").Collections();
}

void KVOSimDistribution::QueryDrawers(KVOSimArray<KVOSimDrawer>& drawers) const
{
    simdb::Distribution& distribution = Checked(m_distribution, kQuerying);
    KVOSimArray<KVOSimDrawer> result;
    for (auto const& drawer : distribution.Drawers())
        if (drawer != nullptr)
            result.Append(Describe(distribution, *drawer));
    drawers = std::move(result);
}

std::int64_t KVOSimDistribution::DimensionSize(int dim) const
{
    auto const& sets = Checked(m_distribution, kQuerying).DrawerAt(0, kQuerying).sets;
    if (dim < 0 || static_cast<std::size_t>(dim) >= sets.size())
        simdb::ThrowReason(kQuerying, m_distribution->Path(), "there is no dimension " + std::to_string(dim));
    return sets[static_cast<std::size_t>(dim)]->size;
}

std::int64_t KVOSimDistribution::DataSizeItems(int number, int item) const
{
    constexpr char const* kSizing = "Cannot ask for the size of a drawer";
    simdb::Distribution& distribution = Checked(m_distribution, kSizing);
    simdb::Drawer& drawer = distribution.DrawerAt(number, kSizing);
    int const slots = drawer.kind == KVOSimDenseDrawer ? 1 : simdb::SparseDrawer::SlotsOf(drawer.kind);
    if (item < 0 || item >= slots)
        simdb::ThrowReason(kSizing, distribution.Path(), "it has no slot " + std::to_string(item));
    if (drawer.kind != KVOSimDenseDrawer)
        return simdb::SparseDrawer::Count(distribution.Sparse(drawer).Shape(), item);
    std::int64_t count = 1;
    for (auto const& set : drawer.sets)
        if (__builtin_mul_overflow(count, set->size, &count))
            simdb::ThrowReason(KVOSimException::Kind::Damaged, kSizing, distribution.Path(),
                               "its sizes are too large: the file is damaged");
    return count;
}

KVOSimArrayPlace KVOSimDistribution::ArrayPlace(int number, int item) const
{
    constexpr char const* kLocating = "Cannot ask for the place of an array";
    simdb::Distribution& distribution = Checked(m_distribution, kLocating);
    simdb::Drawer& drawer = distribution.DrawerAt(number, kLocating);
    if (drawer.kind == KVOSimDenseDrawer || item < 0 || item >= simdb::SparseDrawer::SlotsOf(drawer.kind))
        simdb::ThrowReason(kLocating, distribution.Path(), "it is dense, or has no slot " + std::to_string(item));
    KVOSimArrayPlace place;
    distribution.Sparse(drawer).ForEachArray([&](std::int64_t slot, hid_t, std::uint64_t address, std::uint64_t bytes) {
        if (slot == item)
            place = {address, bytes};
    });
    return place;
}

bool KVOSimDistribution::ChunkAllocated(int number, KVOSimArray<KVOSimDimRange> const& range) const
{
    constexpr char const* kAsking = "Cannot ask for the chunks of a drawer";
    simdb::Distribution& distribution = Checked(m_distribution, kAsking);
    simdb::Drawer& drawer = distribution.DrawerAt(number, kAsking);
    if (range.Size() != distribution.Rank())
        simdb::ThrowReason(kAsking, distribution.Path(), "there must be one range per dimension");
    if (drawer.kind != KVOSimDenseDrawer)
        return true; // unchunked, as all sparse ones
    simdb::DenseDrawer& dense = distribution.Dense(drawer);
    std::vector<simdb::Range> chunks;
    for (int d = 0; d < range.Size(); ++d) {
        std::size_t const dim = static_cast<std::size_t>(d);
        std::int64_t const size = drawer.sets[dim]->size;
        std::int64_t const chunkSize = dense.Shape().chunkSizes.empty() ? size : dense.Shape().chunkSizes[dim];
        std::int64_t const count = size == 0 ? 0 : (size - 1) / chunkSize + 1;
        KVOSimDimRange const& asked = range[d];
        if (asked.kind != 3)
            simdb::ThrowReason(kAsking, distribution.Path(), "a range must be of kind 3, which counts chunks");
        if (asked.collection.ContextID() != distribution.ID().ContextID() ||
            asked.collection.Index() != distribution.Grid()[dim].collection)
            simdb::ThrowReason(kAsking, distribution.Path(), "the collection of range " + std::to_string(d) + " is not the dimension's");
        if (asked.first < 0 || asked.first > asked.last || asked.last >= count)
            simdb::ThrowReason(kAsking, distribution.Path(),
                               "the chunks " + std::to_string(asked.first) + " to " + std::to_string(asked.last) +
                                   " lie outside the drawer");
        chunks.push_back({asked.first, asked.last});
    }
    return dense.ChunksAllocated(chunks);
}

void KVOSimDistribution::SetCacheSize(std::uint64_t bytes)
{
    Checked(m_distribution, "Cannot set the cache of a distribution").SetCacheSize(bytes);
}

void KVOSimDistribution::ResetCacheSize()
{
    Checked(m_distribution, "Cannot set the cache of a distribution").ResetCacheSize();
}

std::uint64_t KVOSimDistribution::CacheSize() const
{
    return Checked(m_distribution, "Cannot ask for the cache of a distribution").CacheSize();
}
