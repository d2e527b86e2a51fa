#include "DenseDrawer.h"

#include "ChunkIndex.h"
#include "Crc32c.h"
#include "DataPath.h"
#include "Hdf5.h"
#include "Hdf5Dataset.h"
#include "KVOSimTypeKey.h"
#include "ValueSums.h"

#include <algorithm>
#include <limits>

namespace simdb
{

struct DenseDrawer::State {
    State(std::shared_ptr<FileAccess> bytes, std::unique_ptr<Hdf5Dataset> data, bool isNew)
        : access(std::move(bytes)), dataset(std::move(data))
    {
        if (!access->LeavesAllToHdf5() && !dataset->IsFiltered())
            path = std::make_unique<DataPath>(*access, *dataset, isNew);
    }
    File& GetFile() const noexcept { return *access->GetFile(); }

    std::shared_ptr<FileAccess> access;
    std::unique_ptr<Hdf5Dataset> dataset;
    std::unique_ptr<DataPath> path; ///< null: HDF5 moves the values
    std::shared_ptr<ValueSums> sums;
    std::optional<std::uint32_t> initialCrc; ///< of a chunk that holds the initial value
};

namespace
{

void RequireRanges(std::span<std::int64_t const> sizes, std::span<Range const> ranges, char const* doing, std::string const& path)
{
    bool inside = ranges.size() == sizes.size();
    for (std::size_t d = 0; inside && d < ranges.size(); ++d)
        inside = ranges[d].first >= 0 && ranges[d].first <= ranges[d].last && ranges[d].last < sizes[d];
    if (!inside)
        ThrowReason(doing, path, "the range lies outside the drawer");
}

void RequireShape(DenseShape const& shape, std::string const& path)
{
    auto const require = [&](bool held, char const* why) {
        if (!held)
            ThrowReason("Cannot create a dense drawer in", path, why);
    };
    require(!shape.sizes.empty() && shape.sizes.size() <= H5S_MAX_RANK, "a drawer has 1 to 32 dimensions");
    require(shape.chunkSizes.empty() || shape.chunkSizes.size() == shape.sizes.size(), "there must be one chunk size per dimension");
    std::int64_t const valueBytes = KVOSimTypeKeySize(shape.typeKey);
    std::int64_t bytes = valueBytes;
    for (std::int64_t const size : shape.sizes)
        require(size >= 0 && !__builtin_mul_overflow(bytes, std::max<std::int64_t>(size, 1), &bytes), "its sizes are too large");
    std::int64_t chunkBytes = valueBytes;
    for (std::int64_t const size : shape.chunkSizes)
        require(size >= 1 && !__builtin_mul_overflow(chunkBytes, size, &chunkBytes) &&
                    chunkBytes <= std::numeric_limits<std::uint32_t>::max(),
                "a chunk must have 1 or more values in every dimension and less than 4 GiB");
}

std::uint64_t ContiguousBytes(DenseShape const& shape) noexcept
{
    auto bytes = static_cast<std::uint64_t>(KVOSimTypeKeySize(shape.typeKey));
    for (std::int64_t const size : shape.sizes)
        bytes *= static_cast<std::uint64_t>(size);
    return bytes;
}

std::uint64_t ChunkBytes(DenseShape const& shape) noexcept
{
    return static_cast<std::uint64_t>(ChunkGrid(shape.sizes, shape.chunkSizes).ValuesPerChunk()) *
           static_cast<std::uint64_t>(KVOSimTypeKeySize(shape.typeKey));
}

DataPath::Way WayOf(DenseDrawer::Way const& way) noexcept
{
    return way.callsAlone ? DataPath::Way::CallsAlone : DataPath::Way::Mapped;
}

// The chunk whose first value is at `origin`.
ValueSums::Place ChunkAt(Extents const& origin, DenseShape const& shape)
{
    ValueSums::Place chunk;
    for (std::size_t d = 0; d < shape.chunkSizes.size(); ++d)
        chunk.push_back(origin[d] / shape.chunkSizes[d]);
    return chunk;
}

} // namespace

DenseDrawer::DenseDrawer(std::unique_ptr<State> state) noexcept : m_state(std::move(state)) {}

DenseDrawer::~DenseDrawer() = default;

std::shared_ptr<DenseDrawer> DenseDrawer::Create(std::shared_ptr<FileAccess> access, DenseShape const& shape)
{
    RequireShape(shape, access->GetFile()->Path());
    auto dataset = std::make_unique<Hdf5Dataset>(access->GetFile(), shape);
    return std::shared_ptr<DenseDrawer>(new DenseDrawer(std::make_unique<State>(std::move(access), std::move(dataset), true)));
}

std::shared_ptr<DenseDrawer> DenseDrawer::Open(std::shared_ptr<FileAccess> access, hid_t group, char const* name)
{
    auto dataset = std::make_unique<Hdf5Dataset>(access->GetFile(), group, name);
    return std::shared_ptr<DenseDrawer>(new DenseDrawer(std::make_unique<State>(std::move(access), std::move(dataset), false)));
}

void DenseDrawer::LinkTo(hid_t group, char const* name)
{
    m_state->dataset->LinkTo(group, name);
}

DenseShape const& DenseDrawer::Shape() const noexcept
{
    return m_state->dataset->Shape();
}

hid_t DenseDrawer::Dataset()
{
    return m_state->dataset->Id();
}

void DenseDrawer::Read(std::span<Range const> ranges, void* buffer, Way const& way)
{
    constexpr char const* kReading = "Cannot read values of";
    RequireRanges(Shape().sizes, ranges, kReading, m_state->GetFile().Path());
    auto const inspect = [&](Extents const& origin, std::uint64_t address, std::byte* whole) {
        FileAccess& access = *m_state->access;
        std::uint64_t const bytes = ChunkBytes(Shape());
        std::uint32_t const crc = whole != nullptr ? access.ReadSummed(address, whole, bytes, m_state->path->BytesToKeep(WayOf(way)))
                                                   : access.Sum(address, bytes);
        if (std::string const fault = Fault(ChunkAt(origin, Shape()), crc); !fault.empty())
            ThrowReason(KVOSimException::Kind::Damaged, kReading, m_state->GetFile().Path(), fault);
    };
    bool const inspects = way.verify && m_state->sums && !m_state->dataset->IsFiltered();
    if (m_state->path)
        return m_state->path->Read(ranges, buffer, WayOf(way), inspects ? DataPath::Inspect(inspect) : nullptr);
    if (inspects)
        ChunkGrid(Shape().sizes, Shape().chunkSizes).ForEachPiece(ranges, [&](ChunkPiece const& piece) {
            if (auto const address = m_state->dataset->ChunkAddress({piece.origin.data(), ranges.size()}))
                inspect(piece.origin, *address, nullptr);
        });
    m_state->dataset->Read(ranges, buffer);
}

void DenseDrawer::Write(std::span<Range const> ranges, void const* buffer, Way const& way)
{
    constexpr char const* kWriting = "Cannot write values to";
    RequireRanges(Shape().sizes, ranges, kWriting, m_state->GetFile().Path());
    if (m_state->sums) {
        m_state->GetFile().RequireWritable(kWriting);
        BeginChange(ranges);
    }
    if (!m_state->path)
        return m_state->dataset->Write(ranges, buffer); // the commit will read what changed
    auto const keepSum = [&](Extents const& origin, std::uint32_t crc) { m_state->sums->EndChange(ChunkAt(origin, Shape()), crc); };
    m_state->path->Write(ranges, buffer, WayOf(way), m_state->sums ? DataPath::OnWhole(keepSum) : nullptr);
}

void DenseDrawer::BeginChange(std::span<Range const> ranges)
{
    ChunkGrid(Shape().sizes, Shape().chunkSizes).ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        ValueSums::Place const chunk = ChunkAt(piece.origin, Shape());
        m_state->sums->BeginChange(chunk, m_state->dataset->IsFiltered() || ChunkAddress(chunk));
    });
}

void* DenseDrawer::InPlace(std::span<Range const> ranges, bool toWrite)
{
    RequireRanges(Shape().sizes, ranges, "Cannot find values of", m_state->GetFile().Path());
    if (!m_state->path || (toWrite && !m_state->GetFile().IsWritable()))
        return nullptr;
    if (toWrite && m_state->sums) // first: it may move the mapping
        BeginChange(ranges);
    return m_state->path->InPlace(ranges, toWrite);
}

void const* DenseDrawer::FetchInPlace(std::span<Range const> ranges)
{
    RequireRanges(Shape().sizes, ranges, "Cannot find values of", m_state->GetFile().Path());
    return m_state->path ? m_state->path->FetchInPlace(ranges) : nullptr;
}

void DenseDrawer::Announce(std::span<Range const> ranges, Way const& way) noexcept
{
    try {
        RequireRanges(Shape().sizes, ranges, "Cannot announce values of", m_state->GetFile().Path());
        if (m_state->path)
            m_state->path->Announce(ranges, WayOf(way));
    } catch (...) {
        // Deliberate: an announcement is a hint, the transfer that follows reports what is wrong.
    }
}

void DenseDrawer::Resize(int dim, std::int64_t size)
{
    DenseShape shape = Shape();
    std::string const& path = m_state->GetFile().Path();
    if (dim < 0 || static_cast<std::size_t>(dim) >= shape.sizes.size())
        ThrowReason("Cannot resize a dense drawer of", path, "it has no such dimension");
    m_state->GetFile().RequireWritable("Cannot resize a dense drawer of");
    shape.sizes[static_cast<std::size_t>(dim)] = size;
    RequireShape(shape, path);
    if (shape.chunkSizes.empty())
        return ReplaceBy(shape);
    if (m_state->sums)
        Doubt(dim, size);
    if (m_state->path)
        m_state->path->Resize(dim, size);
    else
        m_state->dataset->SetExtent(dim, size);
}

void DenseDrawer::ReplaceBy(DenseShape const& shape)
{
    DenseDrawer other(std::make_unique<State>(m_state->access, std::make_unique<Hdf5Dataset>(m_state->access->GetFile(), shape), true));
    CopyTo(other);
    other.m_state->dataset->TakePlaceOf(*m_state->dataset);
    m_state.swap(other.m_state);
}

// Some slices along the first dimension at a time.
void DenseDrawer::CopyTo(DenseDrawer& other)
{
    constexpr std::int64_t kBytes = 16 << 20;
    std::vector<Range> ranges;
    for (std::size_t d = 0; d < Shape().sizes.size(); ++d)
        ranges.push_back({0, std::min(Shape().sizes[d], other.Shape().sizes[d]) - 1});
    std::int64_t const count = ranges[0].Count();
    std::int64_t sliceBytes = KVOSimTypeKeySize(Shape().typeKey);
    for (std::size_t d = 1; d < ranges.size(); ++d)
        sliceBytes *= ranges[d].Count();
    if (sliceBytes == 0)
        return;
    std::int64_t const step = std::clamp<std::int64_t>(kBytes / sliceBytes, 1, std::max<std::int64_t>(count, 1));
    std::unique_ptr<void, mem_Deleter> const values(mem_OperatorNewThrow(mem_ArrayBytes(step, static_cast<std::size_t>(sliceBytes))));
    for (std::int64_t first = 0; first < count; first += step) {
        ranges[0] = {first, std::min(first + step, count) - 1};
        Read(ranges, values.get());
        other.Write(ranges, values.get());
    }
}

bool DenseDrawer::ChunksAllocated(std::span<Range const> chunks) const
{
    DenseShape const& shape = Shape();
    if (shape.chunkSizes.empty())
        return true;
    ChunkGrid const grid(shape.sizes, shape.chunkSizes);
    RequireRanges(grid.ChunkCounts(), chunks, "Cannot find chunks of", m_state->GetFile().Path());
    return ChunkGrid::ForEachPlace(chunks, [&](Extents const& at) {
        if (m_state->path)
            return m_state->path->IsWritten(at);
        Extents origin;
        for (std::size_t d = 0; d < grid.Rank(); ++d)
            origin[d] = at[d] * grid.ChunkSizes()[d];
        return m_state->dataset->ChunkAddress({origin.data(), grid.Rank()}).has_value();
    });
}

// In front of a new size: what chunks at the edge hold behind it is written anew, and is other values when the drawer is cut.
void DenseDrawer::Doubt(int dim, std::int64_t size)
{
    auto const d = static_cast<std::size_t>(dim);
    ChunkGrid const grid(Shape().sizes, Shape().chunkSizes);
    bool const isCut = size < grid.Sizes()[d];
    std::int64_t const edge = std::min(size, grid.Sizes()[d]);
    if (edge % grid.ChunkSizes()[d] == 0)
        return;
    std::vector<Range> chunks;
    for (std::int64_t const count : grid.ChunkCounts())
        chunks.push_back({0, count - 1});
    chunks[d].first = chunks[d].last = edge / grid.ChunkSizes()[d];
    if (std::ranges::any_of(chunks, [](Range const& range) { return range.Count() < 1; }))
        return;
    ChunkGrid::ForEachPlace(chunks, [&](Extents const& at) {
        ValueSums::Place const chunk(at.begin(), at.begin() + static_cast<std::ptrdiff_t>(chunks.size()));
        if (isCut)
            m_state->sums->BeginChange(chunk, ChunkAddress(chunk).has_value());
        else
            m_state->sums->Doubt(chunk);
        return true;
    });
}

bool DenseDrawer::IsMovedByHdf5() const noexcept
{
    return !m_state->path;
}

void DenseDrawer::Allocate()
{
    m_state->GetFile().RequireWritable("Cannot make space for values in");
    if (m_state->path)
        m_state->path->Allocate();
}

std::optional<std::uint64_t> DenseDrawer::ChunkAddress(std::span<std::int64_t const> chunk) const
{
    ChunkGrid const grid(Shape().sizes, Shape().chunkSizes);
    Extents at{}, origin{};
    for (std::size_t d = 0; d < chunk.size(); ++d) {
        if (chunk[d] >= grid.ChunkCounts()[d])
            return std::nullopt;
        at[d] = chunk[d];
        origin[d] = chunk[d] * grid.ChunkSizes()[d];
    }
    if (m_state->path)
        return m_state->path->Address(at);
    return m_state->dataset->IsFiltered() ? std::nullopt : m_state->dataset->ChunkAddress({origin.data(), chunk.size()});
}

void DenseDrawer::SetSums(std::shared_ptr<ValueSums> sums) noexcept
{
    m_state->sums = std::move(sums);
}

std::shared_ptr<ValueSums> const& DenseDrawer::Sums() const noexcept
{
    return m_state->sums;
}

void DenseDrawer::WriteSums()
{
    m_state->sums->Write([&](ValueSums::Place const& chunk) -> std::optional<std::uint32_t> {
        auto const address = ChunkAddress(chunk);
        if (!address)
            return std::nullopt;
        return m_state->access->Sum(*address, ChunkBytes(Shape()));
    });
}

std::int64_t DenseDrawer::CheckValues(std::function<void(std::string const& what)> const& onDamage)
{
    std::int64_t checked = 0;
    ChunkGrid const grid(Shape().sizes, Shape().chunkSizes);
    std::vector<Range> chunks;
    for (std::int64_t const count : grid.ChunkCounts())
        chunks.push_back({0, count - 1});
    if (!m_state->sums || std::ranges::any_of(chunks, [](Range const& range) { return range.Count() < 1; }))
        return 0;
    ChunkGrid::ForEachPlace(chunks, [&](Extents const& at) {
        ValueSums::Place const chunk(at.begin(), at.begin() + static_cast<std::ptrdiff_t>(chunks.size()));
        if (auto const address = ChunkAddress(chunk)) {
            ++checked;
            std::uint32_t const crc = m_state->access->Sum(*address, ChunkBytes(Shape()));
            if (std::string const fault = Fault(chunk, crc); !fault.empty())
                onDamage(fault);
        }
        return true;
    });
    return checked;
}

// Why a chunk of that sum is not as it was written; empty where it is.
std::string DenseDrawer::Fault(std::vector<std::int64_t> const& chunk, std::uint32_t crc) const
{
    std::optional<std::uint32_t> expected = m_state->sums->Expected(chunk);
    if (expected == ValueSums::kInitial) {
        DenseShape const& shape = Shape();
        if (!m_state->initialCrc) {
            std::byte const* const values =
                m_state->access->Initial(shape.initialValue, static_cast<std::size_t>(KVOSimTypeKeySize(shape.typeKey)), ChunkBytes(shape));
            m_state->initialCrc = Crc32c(values, ChunkBytes(shape));
        }
        expected = ValueSums::Of(*m_state->initialCrc);
    }
    if (!expected || *expected == ValueSums::Of(crc))
        return {};
    std::string place;
    for (std::int64_t const number : chunk)
        place += (place.empty() ? "" : ", ") + std::to_string(number);
    return "the values of " + m_state->dataset->Name() + " in chunk (" + place + ") " +
           (*expected == ValueSums::kChanging
                ? "were being changed when a process ended without a commit, and may be old or new; writing some of them settles it"
                : "do not fit their checksum: the file is damaged");
}

std::optional<PlacesSum> DenseDrawer::Places() const
{
    return m_state->path ? m_state->path->Places() : std::nullopt;
}

std::optional<ChunkIndex> DenseDrawer::Index() const
{
    Hdf5Dataset const& dataset = *m_state->dataset;
    Checked(H5Dflush(dataset.Id()), "Cannot find the chunks of a dense drawer of", m_state->GetFile().Path());
    return ChunkIndex::Of(m_state->GetFile(), dataset.Id(), Shape().chunkSizes,
                          static_cast<std::size_t>(KVOSimTypeKeySize(Shape().typeKey)));
}

void DenseDrawer::ForEachPiece(OnPlace const& onPiece, OnPlace const& onNode)
{
    Hdf5Guard const guard;
    Hdf5Dataset const& dataset = *m_state->dataset;
    if (dataset.IsFiltered())
        return;
    if (Shape().chunkSizes.empty()) {
        if (auto const address = dataset.ContiguousAddress())
            onPiece(*address, ContiguousBytes(Shape()));
    } else if (std::optional<ChunkIndex> const index = Index()) {
        index->Walk([&](std::span<std::int64_t const>, std::uint64_t address) { onPiece(address, index->ChunkBytes()); }, onNode);
    }
}

std::optional<PlacesSum> DenseDrawer::FindPlaces()
{
    Hdf5Guard const guard;
    Hdf5Dataset const& dataset = *m_state->dataset;
    if (dataset.IsFiltered())
        return std::nullopt;
    PlacesSum places;
    if (!Shape().chunkSizes.empty()) {
        std::optional<ChunkIndex> const index = Index();
        if (!index)
            return std::nullopt;
        places = index->Sum();
    } else if (auto const address = dataset.ContiguousAddress()) {
        places.Add({}, *address, ContiguousBytes(Shape()));
    }
    SetPlaces(places);
    return places;
}

void DenseDrawer::SetPlaces(PlacesSum const& places) noexcept
{
    if (m_state->path)
        m_state->path->SetPlaces(places);
}

void DenseDrawer::SetCacheBytes(std::uint64_t bytes) noexcept
{
    if (m_state->path)
        m_state->path->SetCacheBytes(bytes);
}

} // namespace simdb
