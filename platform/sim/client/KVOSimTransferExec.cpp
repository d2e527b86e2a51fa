// Transfers that are carried out: new drawers, extensions, reading, writing.

#include "KVOSimTransfer.h"

#include "ChunkGrid.h"
#include "Context.h"
#include "DenseView.h"
#include "Distribution.h"
#include "KVOBasException.h"
#include "KVOSimTypeKey.h"
#include "Session.h"
#include "ValueSums.h"

#include <algorithm>
#include <new>
#include <utility>

namespace
{

constexpr char const* kReading = "Cannot read values";
constexpr char const* kWriting = "Cannot write values";
constexpr char const* kMaking = "Cannot create a drawer";
constexpr char const* kExtending = "Cannot extend a drawer";

std::int64_t SlotBytes(simdb::SparseShape const& shape, int slot)
{
    return simdb::SparseDrawer::Count(shape, slot) * static_cast<std::int64_t>(simdb::SparseDrawer::EntryBytes(shape, slot));
}

} // namespace

// What goes with the process needs none.
bool KVOSimTransfer::KeepsChecksums() const
{
    return m_checksums && !m_distribution->IsTemporary() && m_distribution->RequireOpen(kMaking).OpenSession(kMaking).HasChecksums();
}

void KVOSimTransfer::MakeDenseDrawer(char const* doing)
{
    simdb::Context& context = m_distribution->RequireOpen(doing);
    simdb::DenseShape shape;
    shape.typeKey = m_distribution->RangeType();
    shape.chunkSizes = m_chunkSizes;
    shape.initialValue = m_initialValue;
    std::vector<std::shared_ptr<simdb::MemberSet>> sets;
    for (Dim const& dim : m_dims) {
        sets.push_back(context.SetOf(dim.set, doing));
        shape.sizes.push_back(sets.back()->size);
    }
    auto const& access = context.OpenSession(doing).GetAccess();
    auto dense = simdb::DenseDrawer::Create(access, shape);
    if (KeepsChecksums())
        dense->SetSums(std::make_shared<simdb::ValueSums>(access, simdb::ChunkGrid(shape.sizes, shape.chunkSizes).ChunkCounts()));
    m_drawer = m_distribution->AddDrawer(KVOSimDenseDrawer, std::move(sets), std::move(dense), nullptr).number;
    m_newDrawer = NewDrawer::None;
}

void KVOSimTransfer::MakeSparseDrawer(char const* doing)
{
    simdb::Context& context = m_distribution->RequireOpen(doing);
    std::vector<std::shared_ptr<simdb::MemberSet>> sets{context.SetOf(m_dims[0].set, doing), context.SetOf(m_dims[1].set, doing)};
    simdb::SparseShape const shape{m_serialization.Code(), m_distribution->RangeType(), sets[0]->size, sets[1]->size, m_nonzeros};
    if (m_nonzeros > INT32_MAX)
        Refuse(doing, "row starts of 32 bits cannot count " + std::to_string(m_nonzeros) + " values");
    simdb::SparseDrawer::ConstBuffers values{};
    for (int slot = 0; slot < simdb::SparseDrawer::SlotsOf(shape.kind); ++slot)
        values[static_cast<std::size_t>(slot)] = BufferOf(slot, SlotBytes(shape, slot), false, doing);
    auto sparse = simdb::SparseDrawer::Create(context.OpenSession(doing).GetFile(), shape, values, KeepsChecksums());
    m_drawer = m_distribution->AddDrawer(shape.kind, std::move(sets), nullptr, std::move(sparse)).number;
    m_newDrawer = NewDrawer::None;
}

void KVOSimTransfer::InitializePersistentDrawer()
{
    if (RequireDistribution(kMaking); m_newDrawer == NewDrawer::None)
        Refuse(kMaking, "the transfer was not told to make a new one");
    CheckNewDrawer(kMaking);
    if (m_serialization.Code() != KVOSimDenseDrawer)
        Refuse(kMaking, "a sparse one is made when its values are written");
    MakeDenseDrawer(kMaking);
}

void KVOSimTransfer::InitializeExtension()
{
    if (RequireDistribution(kExtending); !IsExtension() || m_newDrawer != NewDrawer::None)
        Refuse(kExtending, "the transfer was told of no new members");
    CheckExtension(kExtending);
    simdb::Context& context = m_distribution->RequireOpen(kExtending);
    simdb::Drawer& drawer = m_distribution->DrawerAt(m_drawer, kExtending);
    for (std::size_t d = 0; d < m_dims.size(); ++d) {
        if (m_dims[d].extension.IsNull())
            continue;
        std::vector<int> numbers = *context.NumbersOf(*drawer.sets[d]);
        auto const added = context.NumbersOf(*context.SetOf(m_dims[d].extension, kExtending));
        numbers.insert(numbers.end(), added->begin(), added->end());
        // A temporary set: the caller may name another one by SetDimMembers, and only what is used at the commit is stored.
        auto set = context.CreateSet(m_dims[d].extension.CollectionID(), numbers, simdb::Context::SetLife::Temporary, kExtending);
        m_distribution->ChangeSet(drawer, static_cast<int>(d), std::move(set));
        m_dims[d].extension = KVOSimCSetID();
    }
}

void KVOSimTransfer::ExecRead()
{
    simdb::Drawer& drawer = ViewedDrawer(kReading);
    if (!m_read)
        Refuse(kReading, "the transfer was not set up for reading");
    if (drawer.kind == KVOSimDenseDrawer) {
        simdb::DenseView const view = ViewOf(drawer, kReading);
        void* const buffer = BufferOf(0, view.bytes, true, kReading);
        if (view.bytes == 0)
            return;
        if (view.runs.empty())
            m_distribution->Dense(drawer).Read(view.Ranges(), buffer, {m_verify, m_callsAlone});
        else
            ReadRuns(m_distribution->Dense(drawer), view, static_cast<std::size_t>(KVOSimTypeKeySize(m_distribution->RangeType())), buffer,
                     {m_verify, m_callsAlone});
        return;
    }
    bool const isWhole = IsWholeSparseView(drawer, true, kReading);
    simdb::SparseDrawer& sparse = m_distribution->Sparse(drawer);
    bool const hasAll = std::all_of(m_buffers.begin(), m_buffers.begin() + sparse.Slots(), [](Buffer const& b) { return b.isSet; });
    if (!isWhole || (m_dims[0].set.IsNull() && !hasAll && !m_verify))
        return ReadSparseRows(sparse);
    simdb::SparseDrawer::Buffers values{};
    for (int slot = 0; slot < sparse.Slots(); ++slot)
        values[static_cast<std::size_t>(slot)] = BufferOf(slot, SlotBytes(sparse.Shape(), slot), true, kReading);
    sparse.Read(values, m_verify);
}

void KVOSimTransfer::ReadSparseRows(simdb::SparseDrawer& sparse)
{
    auto const starts = sparse.RowStarts(m_dims[0].first, m_dims[0].last);
    // As a drawer of these rows alone would have them.
    simdb::SparseShape part = sparse.Shape();
    part.rows = m_dims[0].last - m_dims[0].first + 1;
    part.nonzeros = starts.back() - starts.front();
    simdb::SparseDrawer::Buffers values{};
    for (int slot = 0; slot < sparse.Slots(); ++slot)
        if (m_buffers[static_cast<std::size_t>(slot)].isSet)
            values[static_cast<std::size_t>(slot)] = BufferOf(slot, SlotBytes(part, slot), true, kReading);
    sparse.ReadRows(m_dims[0].first, starts, values);
}

void KVOSimTransfer::ExecWrite()
{
    RequireWritable(kWriting);
    if (m_newDrawer != NewDrawer::None) {
        CheckNewDrawer(kWriting);
        if (m_serialization.Code() != KVOSimDenseDrawer)
            return MakeSparseDrawer(kWriting);
        std::int64_t bytes = KVOSimTypeKeySize(m_distribution->RangeType());
        for (Dim const& dim : m_dims)
            bytes *= m_distribution->RequireOpen(kWriting).SetOf(dim.set, kWriting)->size; // CheckNewDrawer knows that it does not overflow
        BufferOf(0, bytes, false, kWriting);
        MakeDenseDrawer(kWriting);
    }
    simdb::Drawer& drawer = ViewedDrawer(kWriting);
    if (drawer.kind == KVOSimDenseDrawer) {
        simdb::DenseView const view = ViewOf(drawer, kWriting);
        void const* const buffer = BufferOf(0, view.bytes, false, kWriting);
        if (view.bytes == 0)
            return;
        if (view.runs.empty())
            m_distribution->Dense(drawer).Write(view.Ranges(), buffer, {false, m_callsAlone});
        else
            WriteRuns(m_distribution->Dense(drawer), view, static_cast<std::size_t>(KVOSimTypeKeySize(m_distribution->RangeType())), buffer,
                      {false, m_callsAlone});
        return;
    }
    IsWholeSparseView(drawer, false, kWriting);
    simdb::SparseDrawer& sparse = m_distribution->Sparse(drawer);
    simdb::SparseDrawer::ConstBuffers values{};
    for (int slot = 0; slot < sparse.Slots(); ++slot)
        values[static_cast<std::size_t>(slot)] = BufferOf(slot, SlotBytes(sparse.Shape(), slot), false, kWriting);
    sparse.Write(values);
}

// find(drawer, ranges) for a view of a dense drawer that is ranges; else null.
template<class Values, class Find>
Values* KVOSimTransfer::FindInPlace(char const* doing, Find const& find) const
{
    simdb::Drawer& drawer = ViewedDrawer(doing);
    if (drawer.kind != KVOSimDenseDrawer || m_verify || m_callsAlone)
        return nullptr;
    simdb::DenseView const view = ViewOf(drawer, doing);
    return view.bytes > 0 && view.runs.empty() ? find(m_distribution->Dense(drawer), view.Ranges()) : nullptr;
}

void const* KVOSimTransfer::InPlace() const
{
    auto const find = [](simdb::DenseDrawer& dense, std::span<simdb::Range const> ranges) { return dense.InPlace(ranges, false); };
    return m_read ? FindInPlace<void const>(kReading, find) : nullptr;
}

void const* KVOSimTransfer::FetchInPlace() const
{
    auto const find = [](simdb::DenseDrawer& dense, std::span<simdb::Range const> ranges) { return dense.FetchInPlace(ranges); };
    return m_read ? FindInPlace<void const>(kReading, find) : nullptr;
}

void* KVOSimTransfer::InPlaceForWriting()
{
    auto const find = [](simdb::DenseDrawer& dense, std::span<simdb::Range const> ranges) { return dense.InPlace(ranges, true); };
    return m_read && m_write ? FindInPlace<void>(kWriting, find) : nullptr;
}

void KVOSimTransfer::AnnounceRead() const noexcept
{
    try {
        simdb::Drawer& drawer = ViewedDrawer(kReading);
        if (drawer.kind != KVOSimDenseDrawer)
            return;
        simdb::DenseView const view = ViewOf(drawer, kReading);
        if (view.bytes > 0 && view.runs.empty())
            m_distribution->Dense(drawer).Announce(view.Ranges(), {false, m_callsAlone});
    } catch (KVOBasException const&) { // advice that cannot be taken
    } catch (std::bad_alloc const&) {
    }
}
