#include "DatabaseCheck.h"

#include "Context.h"
#include "Distribution.h"
#include "Hdf5.h"
#include "KVOSimException.h"
#include "Session.h"
#include "SimJournal.h"
#include "ValueSums.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace simdb
{

namespace
{

constexpr char const* kChecking = "Cannot check the database";

/// A part of the file that one thing has for itself.
struct Extent {
    std::uint64_t address;
    std::uint64_t bytes;
    int owner;
};

/// Column indices of each row rise strictly.
bool RowsAscend(std::span<std::int32_t const> rowStart, std::span<std::int32_t const> columns)
{
    for (std::size_t row = 0; row + 1 < rowStart.size(); ++row)
        for (std::int32_t k = rowStart[row] + 1; k < rowStart[row + 1]; ++k)
            if (columns[static_cast<std::size_t>(k)] <= columns[static_cast<std::size_t>(k) - 1])
                return false;
    return true;
}

class Check
{
public:
    explicit Check(Session const& session) : m_session(session), m_file(*session.GetFile()) {}

    KVOSimCheckReport Run()
    {
        m_report.hasChecksums = m_session.HasChecksums();
        // The superblock and the mark.
        Take(Owner("the beginning of the file", {0, -1, -1, ""}), 0, FileMark::kEnd);
        for (int index = 0; index < m_session.ContextCount(); ++index)
            Look(*m_session.ContextAt(index));
        LookAtExtents();
        return std::move(m_report);
    }

private:
    struct Named {
        std::string name;
        KVOSimDamage where;
    };

    int Owner(std::string name, KVOSimDamage const& where)
    {
        m_owners.push_back({std::move(name), where});
        return static_cast<int>(m_owners.size()) - 1;
    }
    void Take(int owner, std::uint64_t address, std::uint64_t bytes)
    {
        if (bytes > 0)
            m_extents.push_back({address, bytes, owner});
    }
    void Report(KVOSimDamage damage, std::string const& what)
    {
        damage.what = DRXUnicodeString(what.c_str());
        m_report.damages.Append(damage);
    }
    // A failure is what is looked for.
    template<class Look>
    void Try(KVOSimDamage const& where, Look const& look)
    {
        try {
            look();
        } catch (KVOSimException const& failure) {
            Report(where, failure.AsString().c_str());
        }
    }

    void Look(Context& context)
    {
        int const number = context.ID().Index();
        KVOSimDamage const catalogue{number, -1, -1, ""};
        context.ForEachTable([&](char const* name, hid_t dataset) {
            Try(catalogue, [&] {
                TakeHeader(Owner(std::string("the header of the table ") + name, catalogue), dataset);
                int const owner = Owner(std::string("the table ") + name, catalogue);
                auto const take = [&](std::uint64_t address, std::uint64_t bytes) { Take(owner, address, bytes); };
                if (auto const index = ChunkIndex::OfTable(m_file, dataset))
                    index->Walk([&](std::span<std::int64_t const>, std::uint64_t address) { take(address, index->ChunkBytes()); }, take);
            });
        });
        for (auto const& set : context.StoredSets())
            Try(catalogue, [&] { context.NumbersOf(*set); });
        for (int const index : context.StoredDistributions()) {
            KVOSimDistributionID const id(context.ID(), index);
            std::shared_ptr<Distribution> const distribution = context.Borrow(id, kChecking);
            for (auto const& drawer : distribution->Drawers())
                if (drawer != nullptr)
                    Try({number, index, drawer->number, ""}, [&] { Look(*distribution, *drawer, {number, index, drawer->number, ""}); });
        }
    }

    void Look(Distribution& distribution, Drawer& drawer, KVOSimDamage const& where)
    {
        ++m_report.drawers;
        std::string const name = "matrix " + std::to_string(where.distribution) +
                                 (where.drawer == 0 ? "" : ", drawer " + std::to_string(where.drawer)) + " of context " +
                                 std::to_string(where.context);
        int const owner = Owner(name, where), header = Owner("the header of " + name, where);
        if (drawer.kind != KVOSimDenseDrawer) {
            SparseDrawer& sparse = distribution.Sparse(drawer);
            sparse.ForEachArray([&](std::int64_t, hid_t dataset, std::uint64_t address, std::uint64_t bytes) {
                TakeHeader(header, dataset);
                Take(owner, address, bytes);
                ++m_report.pieces;
            });
            return LookAtRows(sparse, where);
        }
        DenseDrawer& dense = distribution.Dense(drawer);
        TakeHeader(header, dense.Dataset());
        dense.ForEachPiece(
            [&](std::uint64_t address, std::uint64_t bytes) {
                Take(owner, address, bytes);
                ++m_report.pieces;
            },
            [&](std::uint64_t address, std::uint64_t bytes) { Take(owner, address, bytes); });
        if (dense.Sums() == nullptr)
            return;
        DenseDrawer& sums = dense.Sums()->Stored();
        int const ownerOfSums = Owner("the checksums of " + name, where);
        auto const take = [&](std::uint64_t address, std::uint64_t bytes) { Take(ownerOfSums, address, bytes); };
        TakeHeader(ownerOfSums, sums.Dataset());
        sums.ForEachPiece(take, take);
        m_report.values += dense.CheckValues([&](std::string const& what) { Report(where, what); });
    }

    void LookAtRows(SparseDrawer& sparse, KVOSimDamage const& where)
    {
        std::array<std::vector<std::byte>, SparseDrawer::kSlots> arrays;
        SparseDrawer::Buffers buffers{};
        for (int slot = 0; slot < sparse.Slots(); ++slot) {
            auto const s = static_cast<std::size_t>(slot);
            arrays[s].resize(static_cast<std::size_t>(SparseDrawer::Count(sparse.Shape(), slot)) *
                             SparseDrawer::EntryBytes(sparse.Shape(), slot));
            buffers[s] = arrays[s].data();
        }
        if (sparse.HasSums())
            m_report.values += sparse.Slots();
        sparse.Read(buffers, true); // checks that row starts rise, and columns lie inside
        auto const numbers = [&](std::size_t slot) {
            return std::span(reinterpret_cast<std::int32_t const*>(arrays[slot].data()), arrays[slot].size() / sizeof(std::int32_t));
        };
        if (!RowsAscend(numbers(2), numbers(1)))
            Report(where, "the column indices of a row do not rise");
    }

    // As much of it as no header lacks.
    void TakeHeader(int owner, hid_t object)
    {
        constexpr std::uint64_t kPrefix = 16;
        Hdf5Guard const guard;
        H5O_info_t info;
        if (H5Oget_info2(object, &info, H5O_INFO_BASIC) < 0)
            ThrowHdf5(kChecking, m_file.Path());
        Take(owner, info.addr, kPrefix);
    }

    void LookAtExtents()
    {
        std::uint64_t const end = m_file.End();
        std::erase_if(m_extents, [&](Extent const& extent) {
            bool const isInside = extent.address <= end && extent.bytes <= end - extent.address;
            if (!isInside)
                Report(OwnerOf(extent).where, PlaceOf(extent) + " lie behind the end of the file");
            return !isInside;
        });
        std::ranges::sort(m_extents, {}, &Extent::address);
        std::size_t last = 0; // the one that reaches farthest of those before
        for (std::size_t i = 1; i < m_extents.size(); ++i) {
            Extent const &extent = m_extents[i], &before = m_extents[last];
            if (extent.address < before.address + before.bytes)
                Report(OwnerOf(extent).where, PlaceOf(extent) + " lie in " + OwnerOf(before).name);
            if (extent.address + extent.bytes > before.address + before.bytes)
                last = i;
        }
    }
    Named const& OwnerOf(Extent const& extent) const { return m_owners[static_cast<std::size_t>(extent.owner)]; }
    static std::string PlaceOf(Extent const& extent)
    {
        return std::to_string(extent.bytes) + " bytes at " + std::to_string(extent.address);
    }

    Session const& m_session;
    File const& m_file;
    KVOSimCheckReport m_report;
    std::vector<Named> m_owners;
    std::vector<Extent> m_extents;
};

} // namespace

KVOSimCheckReport CheckDatabase(Session const& session)
{
    return Check(session).Run();
}

} // namespace simdb
