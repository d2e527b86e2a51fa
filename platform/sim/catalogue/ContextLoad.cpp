// A context read from the tables of its file.

#include "Context.h"

#include "Distribution.h"
#include "Hdf5.h"
#include "Session.h"

#include <climits>

namespace simdb
{

namespace
{

constexpr char const* kReading = "Cannot read the catalogue of the database";

} // namespace

void Context::ThrowDamaged(char const* what, std::int64_t index) const
{
    ThrowReason(KVOSimException::Kind::Damaged, kReading, Path(),
                std::string("the file is damaged: ") + what + " " + std::to_string(index) + " of context " + std::to_string(m_index));
}

void Context::OpenGroup(bool create)
{
    if (m_group.IsValid())
        return;
    Hdf5Guard const guard;
    std::string const name = "context_" + std::to_string(m_index);
    hid_t const file = m_session->GetFile()->Hdf5();
    m_group = Hid(
        Checked(create ? H5Gcreate2(file, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT) : H5Gopen2(file, name.c_str(), H5P_DEFAULT),
                kReading, Path()));
    m_isNew = create;
    m_tables.emplace(m_session->GetFile(), m_group, m_session->HasChecksums());
}

void Context::Load()
{
    OpenGroup(false);
    CatalogueRows const rows = m_tables->Load();
    LoadCollections(rows);
    LoadSets(rows);
    LoadDistributions(rows);
    LoadDrawers(rows);
    LoadChecksums(rows);
}

void Context::LoadCollections(CatalogueRows const& rows)
{
    for (CollectionRow const& row : rows.collections) {
        if (row.index < 0 || row.index == INT_MAX || row.members < 0 || m_collections.contains(row.index))
            ThrowDamaged("a wrong row for collection", row.index);
        auto biggest = std::make_shared<MemberSet>();
        biggest->collection = row.index;
        biggest->index = kBiggestSet;
        biggest->size = row.members;
        m_collections.emplace_hint(m_collections.end(), row.index,
                                   Collection{row.index, row.members, row.type, std::move(biggest), {kNoOwner, true}});
    }
    m_nextCollection = m_collections.empty() ? 0 : m_collections.rbegin()->first + 1;
}

void Context::LoadSets(CatalogueRows const& rows)
{
    std::int64_t const numbers = m_tables->NumberCount();
    for (SetRow const& row : rows.sets) {
        if (row.index < 1 || row.index == INT_MAX || m_sets.contains(row.index) || !m_collections.contains(row.collection) ||
            row.first < 0 || row.count < 0 || row.count > INT_MAX || row.count > numbers || row.first > numbers - row.count)
            ThrowDamaged("a wrong row for set", row.index);
        auto set = std::make_shared<MemberSet>();
        set->collection = row.collection;
        set->index = row.index;
        set->size = row.count;
        set->firstInFile = row.first;
        set->fate.stored = true;
        m_sets.emplace_hint(m_sets.end(), row.index, std::move(set));
    }
    m_nextSet = m_sets.empty() ? 1 : m_sets.rbegin()->first + 1;
}

// The rows of a grid follow one another, in the order of the distributions.
void Context::LoadDistributions(CatalogueRows const& rows)
{
    auto grid = rows.grids.begin();
    for (DistributionRow const& row : rows.distributions) {
        if (row.index < 0 || row.index == INT_MAX || m_distributions.contains(row.index) || row.rangeType < KVOSimInt8 ||
            row.rangeType > KVOSimReference32 || row.dimensions < 1 || row.dimensions > 32 || rows.grids.end() - grid < row.dimensions)
            ThrowDamaged("a wrong row for distribution", row.index);
        std::vector<Dimension> dimensions;
        for (int d = 0; d < row.dimensions; ++d, ++grid) {
            if (grid->distribution != row.index || grid->dimension != d || !m_collections.contains(grid->collection) || grid->color < 0)
                ThrowDamaged("a wrong grid for distribution", row.index);
            dimensions.push_back({grid->collection, grid->color});
        }
        auto distribution = std::make_shared<Distribution>(*this, row.index, row.rangeType, row.type, std::move(dimensions));
        distribution->fate.stored = true;
        m_distributions.emplace_hint(m_distributions.end(), row.index, std::move(distribution));
    }
    m_nextDistribution = m_distributions.empty() ? 0 : m_distributions.rbegin()->first + 1;
}

// A drawer's rows come as one block; a later block of the same drawer replaces its sets.
void Context::LoadDrawers(CatalogueRows const& rows)
{
    for (auto row = rows.drawers.begin(); row != rows.drawers.end();) {
        auto const found = m_distributions.find(row->distribution);
        if (found == m_distributions.end())
            ThrowDamaged("a drawer without a distribution", row->distribution);
        Distribution& distribution = *found->second;
        int const rank = distribution.Rank();
        if (rows.drawers.end() - row < rank)
            ThrowDamaged("an incomplete drawer of distribution", row->distribution);
        bool const kindExists =
            row->kind == KVOSimDenseDrawer || (rank == 2 && (row->kind == KVOSimSparseDrawer || row->kind == KVOSimSparseSymDrawer));
        // A number beyond those of all rows cannot come from counting drawers.
        if (!kindExists || row->drawer < 0 || static_cast<std::size_t>(row->drawer) >= rows.drawers.size())
            ThrowDamaged("a wrong drawer of distribution", row->distribution);
        Drawer& drawer = distribution.AddStoredDrawer(row->drawer, row->kind);
        std::vector<std::shared_ptr<MemberSet>> sets;
        for (int d = 0; d < rank; ++d) {
            DrawerRow const& next = row[d];
            int const collection = distribution.Grid()[static_cast<std::size_t>(d)].collection;
            auto const set = next.set == kBiggestSet     ? m_collections.at(collection).biggest
                             : m_sets.contains(next.set) ? m_sets.at(next.set)
                                                         : nullptr;
            if (next.distribution != row->distribution || next.drawer != row->drawer || next.kind != drawer.kind || next.dimension != d ||
                set == nullptr || set->collection != collection)
                ThrowDamaged("a wrong drawer of distribution", row->distribution);
            sets.push_back(set);
        }
        drawer.sets = std::move(sets);
        row += rank;
    }
}

void Context::LoadChecksums(CatalogueRows const& rows)
{
    for (ChecksumRow const& row : rows.checksums) {
        if (row.distribution == ChecksumRow::kTables)
            continue;
        if (row.distribution == ChecksumRow::kSet) {
            auto const set = m_sets.find(row.drawer);
            if (set == m_sets.end() || row.pieces != set->second->size)
                ThrowDamaged("a wrong checksum of set", row.drawer);
            set->second->checksum = static_cast<std::uint32_t>(row.sum);
            continue;
        }
        auto const distribution = m_distributions.find(row.distribution);
        if (distribution == m_distributions.end())
            ThrowDamaged("a checksum without a distribution", row.distribution);
        Drawer& drawer = distribution->second->DrawerAt(row.drawer, kReading);
        drawer.recorded.reset();
        if (row.file == m_session->FileIdentity())
            drawer.recorded = PlacesSum{row.pieces, row.sum};
    }
}

} // namespace simdb
