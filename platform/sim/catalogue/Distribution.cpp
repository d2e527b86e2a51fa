#include "Distribution.h"

#include "Context.h"
#include "DrawerName.h"
#include "FileAccess.h"
#include "Hdf5.h"
#include "KVOBasException.h"
#include "KVOSimTypeKey.h"
#include "Session.h"
#include "ValueSums.h"

#include <algorithm>
#include <new>

namespace simdb
{

namespace
{

constexpr char const* kOpening = "Cannot open a drawer of the database";

// Enumerations and references lie in the file as the integers they are.
int StoredKey(int typeKey) noexcept
{
    return typeKey == KVOSimEnum32 ? KVOSimInt32 : typeKey == KVOSimReference32 ? KVOSimUInt32 : typeKey;
}

/// Tells the distribution when its last client has gone.
struct Lease {
    explicit Lease(std::shared_ptr<Distribution> d) noexcept : distribution(std::move(d)) {}
    Lease(Lease const&) = delete;
    Lease& operator=(Lease const&) = delete;
    ~Lease() { distribution->Return(); }

    std::shared_ptr<Distribution> distribution;
};

} // namespace

std::vector<std::shared_ptr<MemberSet>> Drawer::SetsAfter(std::size_t kept) const
{
    std::vector<std::shared_ptr<MemberSet>> result = sets;
    for (std::size_t i = changes.size(); i > kept; --i)
        result[static_cast<std::size_t>(changes[i - 1].dim)] = changes[i - 1].before;
    return result;
}

Distribution::Distribution(Context& context, int index, int rangeType, int type, std::vector<Dimension> grid)
    : m_context(&context), m_path(context.SharedPath()), m_id(context.ID(), index), m_rangeType(rangeType), m_type(type),
      m_grid(std::move(grid))
{
    for (Dimension const& dimension : m_grid)
        m_collections.Append(KVOSimCollectionID(context.ID(), dimension.collection, dimension.color));
}

Distribution::~Distribution() = default;

Context& Distribution::RequireOpen(char const* doing) const
{
    if (m_context == nullptr)
        ThrowReason(doing, Path(), "the distribution's database was closed, or the transaction that made it did not commit");
    return *m_context;
}

Drawer& Distribution::DrawerAt(int number, char const* doing) const
{
    RequireOpen(doing);
    if (number < 0 || number >= static_cast<int>(m_drawers.size()) || m_drawers[static_cast<std::size_t>(number)] == nullptr)
        ThrowReason(doing, Path(), "distribution " + std::to_string(m_id.Index()) + " has no drawer " + std::to_string(number));
    return *m_drawers[static_cast<std::size_t>(number)];
}

// A process that died with an extension in an open transaction may leave the dataset larger than its sets.
void Distribution::FitToSets(Drawer& drawer, DenseDrawer& dense) const
{
    for (int d = 0; d < Rank(); ++d) {
        std::int64_t const size = drawer.sets[static_cast<std::size_t>(d)]->size;
        if (dense.Shape().sizes[static_cast<std::size_t>(d)] > size)
            dense.Resize(d, size);
    }
}

// What a filter has changed is another program's work, and lies elsewhere.
void Distribution::CheckPlaces(Drawer& drawer, std::optional<PlacesSum> const& found) const
{
    if (found && *found != *drawer.recorded)
        ThrowReason(KVOSimException::Kind::Damaged, kOpening, Path(),
                    std::string("the file is damaged: the places of the values of ") + DrawerName(m_id.Index(), drawer.number).c_str() +
                        " do not fit their checksum; if another program has changed them on purpose, h5repack makes a sound file");
    if (!found)
        drawer.recorded.reset();
    drawer.checked = true;
}

std::optional<PlacesSum> Distribution::PlacesOf(Drawer& drawer)
{
    if (drawer.kind != KVOSimDenseDrawer)
        return drawer.sparse != nullptr ? drawer.sparse->Places() : drawer.places;
    if (drawer.dense == nullptr && drawer.places)
        return drawer.places;
    DenseDrawer& dense = Dense(drawer);
    return dense.Places() ? dense.Places() : dense.FindPlaces();
}

bool Distribution::HasOpenDrawers() const noexcept
{
    return std::ranges::any_of(m_drawers, [](auto const& drawer) { return drawer && (drawer->dense || drawer->sparse); });
}

DenseDrawer& Distribution::Dense(Drawer& drawer)
{
    Context& context = RequireOpen(kOpening);
    if (drawer.dense != nullptr)
        return *drawer.dense;
    if (drawer.kind != KVOSimDenseDrawer)
        ThrowReason(kOpening, Path(), "it is a sparse drawer");
    Session const& session = context.OpenSession(kOpening);
    DrawerName const name(m_id.Index(), drawer.number);
    std::shared_ptr<DenseDrawer> dense;
    {
        Hdf5Guard const guard(context.BytesForNames());
        dense = DenseDrawer::Open(session.GetAccess(), context.Group(), name.c_str());
        dense->SetSums(drawer.sums != nullptr ? drawer.sums : OpenSums(name.OfSums(), dense->Shape()));
    }
    DenseShape const& shape = dense->Shape();
    bool fits = static_cast<int>(shape.sizes.size()) == Rank() && shape.typeKey == StoredKey(m_rangeType);
    for (std::size_t d = 0; fits && d < shape.sizes.size(); ++d)
        fits = shape.sizes[d] >= drawer.sets[d]->size;
    for (std::int64_t const chunk : shape.chunkSizes)
        fits = fits && chunk <= INT32_MAX;
    if (!fits)
        ThrowReason(KVOSimException::Kind::Damaged, kOpening, Path(),
                    std::string("the dataset ") + name.c_str() + " does not fit the catalogue: the file is damaged");
    if (drawer.recorded && !drawer.checked)
        CheckPlaces(drawer, drawer.places = dense->FindPlaces());
    if (drawer.places)
        dense->SetPlaces(*drawer.places);
    context.Watch(*this);
    if (session.GetFile()->IsWritable())
        FitToSets(drawer, *dense);
    dense->SetCacheBytes(CacheSize());
    drawer.dense = std::move(dense);
    drawer.sums.reset();
    return *drawer.dense;
}

// Null where there are none.
std::shared_ptr<ValueSums> Distribution::OpenSums(char const* name, DenseShape const& shape) const
{
    Context const& context = RequireOpen(kOpening);
    Session const& session = context.OpenSession(kOpening);
    if (!session.HasChecksums() || shape.chunkSizes.empty())
        return nullptr;
    htri_t const exists = H5Lexists(context.Group(), name, H5P_DEFAULT);
    if (exists < 0)
        ThrowHdf5(kOpening, Path());
    return exists > 0 ? std::make_shared<ValueSums>(session.GetAccess(), context.Group(), name, shape.sizes.size()) : nullptr;
}

void Distribution::WriteSums()
{
    for (auto const& drawer : m_drawers) {
        if (drawer == nullptr)
            continue;
        ValueSums const* const sums = drawer->dense != nullptr ? drawer->dense->Sums().get() : drawer->sums.get();
        if (sums != nullptr && sums->HasChanges())
            Dense(*drawer).WriteSums();
    }
}

void Distribution::AcceptSums() noexcept
{
    for (auto const& drawer : m_drawers) {
        if (drawer == nullptr)
            continue;
        if (drawer->dense != nullptr && drawer->dense->Sums() != nullptr)
            drawer->dense->Sums()->Accept();
        drawer->sums.reset();
    }
}

SparseDrawer& Distribution::Sparse(Drawer& drawer)
{
    Context& context = RequireOpen(kOpening);
    if (drawer.sparse != nullptr)
        return *drawer.sparse;
    if (drawer.kind == KVOSimDenseDrawer)
        ThrowReason(kOpening, Path(), "it is a dense drawer");
    Hdf5Guard const guard(context.BytesForNames());
    SparseShape const expected{drawer.kind, m_rangeType, drawer.sets[0]->size, drawer.sets[1]->size, 0};
    std::shared_ptr<SparseDrawer> sparse = SparseDrawer::Open(context.OpenSession(kOpening).GetFile(), context.Group(),
                                                              DrawerName(m_id.Index(), drawer.number).c_str(), expected);
    if (drawer.recorded && !drawer.checked)
        CheckPlaces(drawer, drawer.places = sparse->Places());
    drawer.sparse = std::move(sparse);
    return *drawer.sparse;
}

Drawer& Distribution::AddDrawer(int kind, std::vector<std::shared_ptr<MemberSet>> sets, std::shared_ptr<DenseDrawer> dense,
                                std::shared_ptr<SparseDrawer> sparse)
{
    constexpr char const* kAdding = "Cannot create a drawer in the database";
    Context& context = RequireOpen(kAdding);
    context.Touch(*this);
    if (!IsTemporary())
        for (auto const& set : sets)
            context.MakeStorable(set);
    auto drawer = std::make_unique<Drawer>();
    drawer->number = static_cast<int>(m_drawers.size());
    drawer->kind = kind;
    drawer->sets = std::move(sets);
    drawer->fate.owner = context.OpenSession(kAdding).CurrentTransaction();
    drawer->dense = std::move(dense);
    drawer->sparse = std::move(sparse);
    drawer->checked = true;
    if (drawer->dense != nullptr)
        drawer->dense->SetCacheBytes(CacheSize());
    if (!IsTemporary())
        context.Watch(*this);
    m_drawers.push_back(std::move(drawer));
    return *m_drawers.back();
}

Drawer& Distribution::AddStoredDrawer(int number, int kind)
{
    std::size_t const place = static_cast<std::size_t>(number);
    if (place >= m_drawers.size())
        m_drawers.resize(place + 1);
    if (m_drawers[place] == nullptr) {
        m_drawers[place] = std::make_unique<Drawer>();
        m_drawers[place]->number = number;
        m_drawers[place]->kind = kind;
        m_drawers[place]->fate.stored = true;
        m_drawers[place]->linked = true;
    }
    return *m_drawers[place];
}

void Distribution::ChangeSet(Drawer& drawer, int dim, std::shared_ptr<MemberSet> set)
{
    constexpr char const* kChanging = "Cannot change a dimension of a drawer of the database";
    Context& context = RequireOpen(kChanging);
    context.Touch(*this);
    if (!IsTemporary())
        context.MakeStorable(set);
    std::shared_ptr<MemberSet>& current = drawer.sets[static_cast<std::size_t>(dim)];
    drawer.changes.push_back({context.OpenSession(kChanging).CurrentTransaction(), dim, current});
    try {
        if (drawer.kind == KVOSimDenseDrawer && current->size != set->size) {
            DenseDrawer& dense = Dense(drawer);
            FitToSets(drawer, dense); // a rollback may have failed to
            dense.Resize(dim, set->size);
        }
    } catch (...) {
        drawer.changes.pop_back();
        throw;
    }
    current = std::move(set);
}

std::shared_ptr<Distribution> Distribution::Borrow()
{
    std::shared_ptr<Distribution> borrowed = m_borrowed.lock();
    if (borrowed == nullptr) {
        borrowed = std::shared_ptr<Distribution>(std::make_shared<Lease>(shared_from_this()), this);
        m_borrowed = borrowed;
    }
    return borrowed;
}

void Distribution::Return() noexcept
{
    ResetCacheSize();
    CloseUnlessBorrowed();
}

// What has its name in the file can be opened again; everything else must stay open to exist.
void Distribution::CloseUnlessBorrowed() noexcept
{
    if (!m_borrowed.expired())
        return;
    for (auto const& drawer : m_drawers)
        if (drawer != nullptr && drawer->linked) {
            if (drawer->dense != nullptr) {
                drawer->places = drawer->dense->Places();
                if (drawer->dense->Sums() != nullptr && drawer->dense->Sums()->HasChanges())
                    drawer->sums = drawer->dense->Sums();
            }
            drawer->dense.reset();
            drawer->sparse.reset();
        }
}

std::uint64_t Distribution::CacheSize() const noexcept
{
    return m_cacheGrant != 0 ? m_cacheGrant : CacheBytesDefault();
}

void Distribution::SetCacheSize(std::uint64_t bytes)
{
    constexpr char const* kCaching = "Cannot set the cache of a distribution";
    m_cacheGrant = RequireOpen(kCaching).OpenSession(kCaching).GrantCache(bytes, m_cacheGrant);
    PassCacheSize();
}

void Distribution::ResetCacheSize() noexcept
{
    if (m_cacheGrant == 0)
        return;
    if (m_context != nullptr)
        m_context->OpenSession("").GrantCache(0, m_cacheGrant);
    m_cacheGrant = 0;
    PassCacheSize();
}

void Distribution::PassCacheSize() noexcept
{
    for (auto const& drawer : m_drawers)
        if (drawer != nullptr && drawer->dense != nullptr)
            drawer->dense->SetCacheBytes(CacheSize());
}

void Distribution::Link(Drawer& drawer)
{
    DrawerName const name(m_id.Index(), drawer.number);
    Hdf5Guard const guard(m_context->BytesForNames());
    if (drawer.dense == nullptr) {
        drawer.sparse->LinkTo(m_context->Group(), name.c_str());
    } else {
        ValueSums* const sums = drawer.dense->Sums().get();
        if (sums != nullptr)
            sums->Stored().LinkTo(m_context->Group(), name.OfSums());
        try {
            drawer.dense->LinkTo(m_context->Group(), name.c_str());
        } catch (...) {
            if (sums != nullptr)
                H5Ldelete(m_context->Group(), name.OfSums(), H5P_DEFAULT);
            throw;
        }
    }
    drawer.linked = true;
}

// The object lives on without a name as long as it is open. Should HDF5 refuse, the name stays, and the next commit finds it made.
void Distribution::Unlink(Drawer& drawer) noexcept
{
    Hdf5Guard const guard(std::nothrow);
    DrawerName const name(m_id.Index(), drawer.number);
    drawer.linked = H5Ldelete(m_context->Group(), name.c_str(), H5P_DEFAULT) < 0;
    if (!drawer.linked && drawer.dense != nullptr && drawer.dense->Sums() != nullptr)
        H5Ldelete(m_context->Group(), name.OfSums(), H5P_DEFAULT);
}

// Should it fail, the dataset stays larger than its sets: no reader of the database sees that, and who opens or extends it tries again.
void Distribution::ShrinkAfterRollBack(Drawer& drawer) noexcept
{
    try {
        FitToSets(drawer, Dense(drawer));
    } catch (KVOBasException const&) {
    } catch (std::bad_alloc const&) {
    }
}

void Distribution::RollBack(Owner owner) noexcept
{
    for (auto& drawer : m_drawers) {
        if (drawer == nullptr)
            continue;
        auto& changes = drawer->changes;
        std::size_t const before = changes.size();
        while (!changes.empty() && changes.back().owner == owner) {
            drawer->sets[static_cast<std::size_t>(changes.back().dim)] = changes.back().before;
            changes.pop_back();
        }
        // Below a change that stays, the ones of `owner` stay with it.
        for (std::size_t i = changes.size(); i-- > 1;)
            if (changes[i - 1].owner == owner)
                changes[i - 1].owner = changes[i].owner;
        if (!drawer->fate.stored && drawer->fate.owner == owner) {
            if (changes.empty()) {
                drawer.reset();
                continue;
            }
            drawer->fate.owner = changes.front().owner;
        }
        if (changes.size() != before && drawer->kind == KVOSimDenseDrawer)
            ShrinkAfterRollBack(*drawer);
    }
    while (!m_drawers.empty() && m_drawers.back() == nullptr)
        m_drawers.pop_back();
    RollBackLabel(owner);
}

bool Distribution::HasOpenWork() const noexcept
{
    return IsTemporary() || !fate.stored || !m_labelChanges.empty() ||
           m_isRelabelled || // a temporary one may always hold on to what a transaction made
           std::any_of(m_drawers.begin(), m_drawers.end(),
                       [](auto const& drawer) { return drawer != nullptr && (!drawer->fate.stored || !drawer->changes.empty()); });
}

void Distribution::Detach() noexcept
{
    ResetCacheSize();
    m_drawers.clear();
    m_context = nullptr;
}

} // namespace simdb
