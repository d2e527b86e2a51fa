#include "DataPath.h"

#include "Crc32c.h"
#include "Hdf5.h"
#include "KVOSimTypeKey.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace simdb
{

namespace
{

// From here on a call moves a contiguous part faster than a copy through pages of the mapping that have to be looked up one by one.
constexpr std::size_t kDirectBytes = std::size_t(64) << 10;

Extents BufferExtents(std::span<Range const> ranges) noexcept
{
    Extents extents;
    std::transform(ranges.begin(), ranges.end(), extents.begin(), [](Range const& range) { return range.Count(); });
    return extents;
}

} // namespace

/// Copies through the mapping, where the transfer may use it, each made when the next one is known, whose beginning is fetched meanwhile.
class DataPath::MappedCopies
{
public:
    MappedCopies(FileAccess& access, Way way) noexcept : m_access(access), m_way(way) { m_access.Begin(); }

    Way GetWay() const noexcept { return m_way; }
    bool MayMap() const noexcept { return m_way == Way::Mapped; }

    /// The parts at `offset` of the file must have been handed out by the mapping. Exactly one of the buffers is given.
    void Add(StridedRuns const& runs, std::uint64_t offset, std::byte const* source, std::byte* target) noexcept
    {
        Make({m_access.Again(offset), runs.runBytes});
        m_runs = runs;
        m_offset = offset;
        m_source = source;
        m_target = target;
    }
    void Finish() noexcept { Make({}); }

private:
    void Make(Upcoming const& upcoming) noexcept
    {
        if (m_source != nullptr)
            CopyToFirst(m_runs, m_access.Again(m_offset), m_source, upcoming);
        else if (m_target != nullptr)
            CopyToSecond(m_runs, m_access.Again(m_offset), m_target, upcoming);
        m_source = m_target = nullptr;
    }

    FileAccess& m_access;
    Way m_way;
    StridedRuns m_runs{{}, {}, {}, 0};
    std::uint64_t m_offset = 0;
    std::byte const* m_source = nullptr;
    std::byte* m_target = nullptr;
};

DataPath::DataPath(FileAccess& access, Hdf5Dataset& dataset, bool isNew)
    : m_access(access), m_dataset(dataset), m_valueBytes(static_cast<std::size_t>(KVOSimTypeKeySize(dataset.Shape().typeKey))),
      m_grid(dataset.Shape().sizes, dataset.Shape().chunkSizes),
      m_chunkBytes(static_cast<std::uint64_t>(m_grid.ValuesPerChunk()) * m_valueBytes), m_chunked(!dataset.Shape().chunkSizes.empty()),
      m_table(isNew)
{
    if (m_chunked) {
        if (isNew)
            m_places.emplace();
        return;
    }
    // The whole drawer is one chunk. Its space may be a hole of the file, so it is not written through the mapping.
    ChunkPlace place{ChunkPlace::State::Unwritten, ChunkPlace::Solid::No, 0};
    if (auto const address = m_dataset.ContiguousAddress()) {
        place.state = ChunkPlace::State::Written;
        place.address = *address;
        m_places.emplace().Add({}, place.address, m_chunkBytes);
        if (isNew && m_dataset.Shape().initialValue == std::array<std::byte, 8>{})
            m_access.Clear(place.address, m_chunkBytes);
    }
    m_table.Set(0, place);
}

void DataPath::SetCacheBytes(std::uint64_t bytes) noexcept
{
    m_cacheBytes = bytes == 0 ? CacheBytesDefault() : std::min(bytes, CacheBytesLimit());
}

StridedRuns DataPath::Runs(ChunkPiece const& piece, std::span<std::int64_t const> bufferExtents) const noexcept
{
    return StridedRuns({piece.counts.data(), m_grid.Rank()}, m_grid.ChunkSizes(), bufferExtents, m_valueBytes);
}

ChunkPlace DataPath::Place(std::int64_t chunk, Extents const& origin)
{
    ChunkPlace place = m_table.Find(chunk);
    if (place.state != ChunkPlace::State::Unknown)
        return place;
    auto const address = m_dataset.ChunkAddress({origin.data(), m_grid.Rank()});
    place.state = address ? ChunkPlace::State::Written : ChunkPlace::State::Unwritten;
    place.address = address.value_or(0);
    m_table.Set(chunk, place);
    return place;
}

void DataPath::Read(std::span<Range const> ranges, void* buffer, Way way, Inspect const& inspect)
{
    MappedCopies copies(m_access, way);
    Extents const extents = BufferExtents(ranges);
    m_grid.ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        auto* const target = static_cast<std::byte*>(buffer) + piece.bufferOffset * static_cast<std::int64_t>(m_valueBytes);
        StridedRuns const runs = Runs(piece, {extents.data(), m_grid.Rank()});
        if (inspect) {
            copies.Finish(); // what it reads may move the mapping
            ChunkPlace const place = Place(piece.chunk, piece.origin);
            if (place.state == ChunkPlace::State::Written) {
                bool const isTarget = runs.IsOneRun() && runs.runBytes == m_chunkBytes;
                bool const fits = m_chunkBytes <= FileAccess::kStagingBytes;
                std::byte* const whole = isTarget ? target : fits ? m_access.Staging() : nullptr;
                inspect(piece.origin, place.address, whole);
                if (isTarget)
                    return;
                if (whole != nullptr)
                    return CopyToSecond(runs, whole + piece.chunkOffset * static_cast<std::int64_t>(m_valueBytes), target);
            }
        }
        ReadPiece(copies, piece, runs, target);
    });
    copies.Finish();
}

void DataPath::ReadPiece(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte* buffer)
{
    ChunkPlace const place = Place(piece.chunk, piece.origin);
    if (place.state == ChunkPlace::State::Unwritten)
        return CopyToSecond(runs.Repeating(0),
                            m_access.Initial(m_dataset.Shape().initialValue, m_valueBytes, runs.runBytes, !copies.MayMap()), buffer);
    std::uint64_t const offset = place.address + static_cast<std::uint64_t>(piece.chunkOffset) * m_valueBytes;
    if (runs.IsOneRun() && runs.runBytes >= kDirectBytes)
        return m_access.ReadMany(offset, buffer, runs.runBytes, BytesToKeep(copies.GetWay()));
    if (copies.MayMap() && m_access.ForReading(offset, runs, m_cacheBytes) != nullptr)
        return copies.Add(runs, offset, nullptr, buffer);
    if (!copies.MayMap() && IsNearlyAllOf(runs)) {
        m_access.Read(offset, m_access.Staging(), static_cast<std::size_t>(runs.Span(0)));
        return CopyToSecond(runs, m_access.Staging(), buffer);
    }
    runs.ForEachRun([&](std::int64_t inFile, std::int64_t inBuffer) {
        m_access.Read(offset + static_cast<std::uint64_t>(inFile), buffer + inBuffer, runs.runBytes);
    });
}

// Whether reading the gaps between runs as well costs less than a call for each, and hardly more bytes.
bool DataPath::IsNearlyAllOf(StridedRuns const& runs) const noexcept
{
    auto const span = static_cast<std::uint64_t>(runs.Span(0));
    std::uint64_t const bytes = static_cast<std::uint64_t>(runs.NumRuns()) * runs.runBytes;
    return !runs.IsOneRun() && span <= FileAccess::kStagingBytes && bytes >= span - span / 20;
}

void DataPath::Write(std::span<Range const> ranges, void const* buffer, Way way, OnWhole const& onWhole)
{
    MappedCopies copies(m_access, way);
    m_access.GetFile()->RequireWritable("Cannot write values to");
    Extents const extents = BufferExtents(ranges);
    m_grid.ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        auto const* const source = static_cast<std::byte const*>(buffer) + piece.bufferOffset * static_cast<std::int64_t>(m_valueBytes);
        StridedRuns const runs = Runs(piece, {extents.data(), m_grid.Rank()});
        if (onWhole && std::equal(m_grid.ChunkSizes().begin(), m_grid.ChunkSizes().end(), piece.counts.begin()))
            onWhole(piece.origin, WriteWhole(copies, piece, runs, source));
        else
            WriteAny(copies, piece, runs, source);
    });
    copies.Finish();
}

void DataPath::WriteAny(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer)
{
    ChunkPlace const place = Place(piece.chunk, piece.origin);
    if (place.state == ChunkPlace::State::Written)
        WritePiece(copies, piece, place, runs, buffer);
    else
        WriteNewChunk(copies, piece, runs, buffer);
}

std::uint32_t DataPath::WriteWhole(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer)
{
    ChunkPlace place = Place(piece.chunk, piece.origin);
    if (place.state == ChunkPlace::State::Written && runs.IsOneRun() && m_chunkBytes >= kDirectBytes) {
        m_access.RequireReach(place.address, m_chunkBytes);
        return m_access.WriteSummed(place.address, buffer, m_chunkBytes, copies.MayMap() && MayWriteMapped(piece.chunk, place),
                                    BytesToKeep(copies.GetWay()));
    }
    WriteAny(copies, piece, runs, buffer);
    copies.Finish(); // of a copy that waits nobody knows whether it will be made
    std::uint32_t crc = 0;
    runs.ForEachRun([&](std::int64_t, std::int64_t inBuffer) { crc = Crc32c(buffer + inBuffer, runs.runBytes, crc); });
    return crc;
}

void DataPath::WritePiece(MappedCopies& copies, ChunkPiece const& piece, ChunkPlace place, StridedRuns const& runs, std::byte const* buffer)
{
    std::uint64_t const offset = place.address + static_cast<std::uint64_t>(piece.chunkOffset) * m_valueBytes;
    m_access.RequireReach(offset, static_cast<std::uint64_t>(runs.Span(0)));
    if (runs.IsOneRun() && runs.runBytes >= kDirectBytes)
        return m_access.WriteMany(offset, buffer, runs.runBytes, copies.MayMap() && MayWriteMapped(piece.chunk, place),
                                  BytesToKeep(copies.GetWay()));
    if (copies.MayMap() && MayWriteMapped(piece.chunk, place) && m_access.ForWriting(offset, runs, buffer, m_cacheBytes) != nullptr)
        return copies.Add(runs, offset, buffer, nullptr);
    if (std::uint64_t const bytes = static_cast<std::uint64_t>(runs.NumRuns()) * runs.runBytes;
        !copies.MayMap() && bytes == m_chunkBytes && bytes <= FileAccess::kStagingBytes) {
        CopyToFirst(runs, m_access.Staging(), buffer);
        return m_access.Write(offset, m_access.Staging(), bytes);
    }
    runs.ForEachRun([&](std::int64_t inFile, std::int64_t inBuffer) {
        m_access.Write(offset + static_cast<std::uint64_t>(inFile), buffer + inBuffer, runs.runBytes);
    });
}

// Of a drawer larger than the memory for it, blocks that were kept would only drive out others that are used again no later.
std::uint64_t DataPath::BytesToKeep(Way way) const noexcept
{
    if (way == Way::CallsAlone)
        return 0;
    std::uint64_t bytes = m_valueBytes;
    for (std::int64_t const size : m_dataset.Shape().sizes)
        bytes *= static_cast<std::uint64_t>(size);
    return bytes <= m_cacheBytes ? m_cacheBytes : 0;
}

void* DataPath::InPlace(std::span<Range const> ranges, bool toWrite)
{
    return FindInPlace(ranges, [&](std::int64_t chunk, ChunkPlace& place, std::uint64_t offset, std::uint64_t bytes) {
        bool const may = !toWrite || MayWriteMapped(chunk, place);
        return may ? m_access.InPlace(offset, bytes, BytesToKeep(Way::Mapped), toWrite) : nullptr;
    });
}

void const* DataPath::FetchInPlace(std::span<Range const> ranges)
{
    return FindInPlace(ranges, [&](std::int64_t, ChunkPlace const&, std::uint64_t offset, std::uint64_t bytes) {
        return m_access.Fetched(offset, bytes, m_cacheBytes, BytesToKeep(Way::Mapped) == 0);
    });
}

// find(chunk, place, offset, bytes) for values that lie in one piece of the file; else null.
template<class Find>
void* DataPath::FindInPlace(std::span<Range const> ranges, Find const& find)
{
    std::array<Range, kMaxRank> const chunks = m_grid.Chunks(ranges);
    if (std::any_of(chunks.begin(), chunks.begin() + static_cast<std::ptrdiff_t>(ranges.size()),
                    [](Range const& range) { return range.Count() > 1; }))
        return nullptr;
    Extents const extents = BufferExtents(ranges);
    std::byte* values = nullptr;
    m_grid.ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        StridedRuns const runs = Runs(piece, {extents.data(), m_grid.Rank()});
        ChunkPlace place = Place(piece.chunk, piece.origin);
        std::uint64_t const offset = place.address + static_cast<std::uint64_t>(piece.chunkOffset) * m_valueBytes;
        if (runs.IsOneRun() && place.state == ChunkPlace::State::Written && offset % m_valueBytes == 0)
            values = find(piece.chunk, place, offset, runs.runBytes);
    });
    return values;
}

bool DataPath::MayWriteMapped(std::int64_t chunk, ChunkPlace& place)
{
    // A chunk from another session may have lost its blocks: programs that copy files leave zeros out.
    if (place.solid == ChunkPlace::Solid::Unknown) {
        place.solid = m_access.HasHole(place.address, m_chunkBytes) ? ChunkPlace::Solid::No : ChunkPlace::Solid::Yes;
        m_table.Set(chunk, place);
    }
    return place.solid == ChunkPlace::Solid::Yes;
}

void DataPath::WriteNewChunk(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer)
{
    if (runs.IsOneRun() && runs.runBytes == m_chunkBytes)
        return CreateChunk(piece, buffer);
    DenseShape const& shape = m_dataset.Shape();
    bool const isWhole = static_cast<std::uint64_t>(runs.NumRuns()) * runs.runBytes == m_chunkBytes;
    if (m_chunkBytes > FileAccess::kStagingBytes || (!copies.MayMap() && !isWhole)) {
        CreateChunk(piece, m_access.Initial(shape.initialValue, m_valueBytes, m_chunkBytes, !copies.MayMap()));
        return WritePiece(copies, piece, m_table.Find(piece.chunk), runs, buffer);
    }
    std::byte* const staging = m_access.Staging();
    if (!isWhole)
        std::memcpy(staging, m_access.Initial(shape.initialValue, m_valueBytes, m_chunkBytes), m_chunkBytes);
    CopyToFirst(runs, staging + piece.chunkOffset * static_cast<std::int64_t>(m_valueBytes), buffer);
    CreateChunk(piece, staging);
}

void DataPath::Allocate()
{
    DenseShape const& shape = m_dataset.Shape();
    std::array<Range, kMaxRank> all;
    bool isEmpty = !m_chunked;
    for (std::size_t d = 0; d < m_grid.Rank(); ++d) {
        all[d] = {0, m_grid.Sizes()[d] - 1};
        isEmpty = isEmpty || m_grid.Sizes()[d] == 0;
    }
    if (isEmpty)
        return;
    bool const isZero = std::all_of(shape.initialValue.begin(), shape.initialValue.end(), [](std::byte b) { return b == std::byte{}; });
    m_grid.ForEachPiece({all.data(), m_grid.Rank()}, [&](ChunkPiece const& piece) {
        if (Place(piece.chunk, piece.origin).state != ChunkPlace::State::Written)
            CreateChunk(piece, m_access.Initial(shape.initialValue, m_valueBytes, m_chunkBytes), isZero ? Fill::Zeros : Fill::Values);
    });
}

void DataPath::CreateChunk(ChunkPiece const& piece, std::byte const* values, Fill fill)
{
    Hdf5Guard const guard;
    std::span<std::int64_t const> const origin(piece.origin.data(), m_grid.Rank());
    m_table.Set(piece.chunk, {ChunkPlace::State::Unknown, ChunkPlace::Solid::Yes, 0}); // until it is known how far HDF5 came
    try {
        bool const isHole = fill == Fill::Zeros;
        std::uint64_t const address =
            isHole ? m_dataset.TakeChunk(origin, values, m_chunkBytes) : m_dataset.WriteChunk(origin, values, m_chunkBytes);
        m_table.Set(piece.chunk, {ChunkPlace::State::Written, isHole ? ChunkPlace::Solid::Unknown : ChunkPlace::Solid::Yes, address});
        if (m_places)
            m_places->Add(origin, address, m_chunkBytes);
    } catch (...) {
        m_places.reset();
        ForgetFailedChunk(piece);
        throw;
    }
}

// HDF5 remembers the chunk that it looked for last, and where it meant to put it, although it never entered a chunk whose writing failed
// into its index: a second attempt would be lost when the file is closed. So it gets another one to remember.
void DataPath::ForgetFailedChunk(ChunkPiece const& failed)
{
    Extents other = failed.origin;
    std::span<std::int64_t const> const origin(other.data(), m_grid.Rank());
    for (std::size_t d = 0; d < m_grid.Rank(); ++d)
        if (m_grid.ChunkCounts()[d] > 1) {
            other[d] = failed.origin[d] > 0 ? 0 : m_grid.ChunkSizes()[d];
            m_dataset.ChunkAddress(origin);
            return;
        }
    // It was to be the only one: there is a second one for a moment.
    std::int64_t const size = m_grid.Sizes()[0];
    other[0] = m_grid.ChunkSizes()[0];
    m_dataset.SetExtent(0, other[0] + 1);
    m_dataset.ChunkAddress(origin);
    m_dataset.SetExtent(0, size);
}

void DataPath::Announce(std::span<Range const> ranges, Way way)
{
    std::uint64_t offset = 0, bytes = 0, left = m_cacheBytes;
    Extents const extents = BufferExtents(ranges);
    auto const announce = [&] {
        if (bytes > 0)
            m_access.Announce(offset, bytes);
    };
    m_grid.ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        ChunkPlace const place = left > 0 ? Place(piece.chunk, piece.origin) : ChunkPlace();
        if (place.state != ChunkPlace::State::Written)
            return;
        std::uint64_t const pieceOffset = place.address + static_cast<std::uint64_t>(piece.chunkOffset) * m_valueBytes;
        StridedRuns const runs = Runs(piece, {extents.data(), m_grid.Rank()});
        auto const span = static_cast<std::uint64_t>(runs.Span(0));
        if (way == Way::CallsAlone && !runs.IsOneRun() && !IsNearlyAllOf(runs)) {
            constexpr std::size_t kWorthACall = std::size_t(16)
                                                << 10; // the system reads in pages, four at a time are not worth a call each
            if (runs.runBytes >= kWorthACall)
                runs.ForEachRun([&](std::int64_t inFile, std::int64_t) {
                    m_access.Announce(pieceOffset + static_cast<std::uint64_t>(inFile), runs.runBytes);
                });
            return;
        }
        std::uint64_t const pieceBytes = std::min(span, left);
        left -= pieceBytes;
        if (bytes > 0 && pieceOffset == offset + bytes) {
            bytes += pieceBytes;
            return;
        }
        announce();
        offset = pieceOffset;
        bytes = pieceBytes;
    });
    announce();
}

std::optional<std::uint64_t> DataPath::Address(Extents const& chunk)
{
    Extents origin;
    for (std::size_t d = 0; d < m_grid.Rank(); ++d)
        origin[d] = chunk[d] * m_grid.ChunkSizes()[d];
    ChunkPlace const place = Place(m_grid.Number(chunk), origin);
    return place.state == ChunkPlace::State::Written ? std::optional(place.address) : std::nullopt;
}

void DataPath::Resize(int dim, std::int64_t size)
{
    auto const d = static_cast<std::size_t>(dim);
    if (size < m_grid.Sizes()[d])
        m_places.reset(); // of the chunks that go, only HDF5 knows the places
    std::vector<std::int64_t> sizes(m_grid.Sizes().begin(), m_grid.Sizes().end());
    std::int64_t const oldSize = std::exchange(sizes[d], size);
    ChunkGrid const old = std::exchange(m_grid, ChunkGrid(sizes, m_dataset.Shape().chunkSizes));
    try {
        m_table.Renumber(old, m_grid);
        FillMargin(d, oldSize);
        m_dataset.SetExtent(dim, size);
    } catch (...) {
        m_grid = old;
        m_table = ChunkTable(false); // HDF5 knows how far it came
        throw;
    }
}

// What an edge chunk held behind the edge may be anything, once another program has written it.
void DataPath::FillMargin(std::size_t dim, std::int64_t oldSize)
{
    std::int64_t const chunkSize = m_grid.ChunkSizes()[dim];
    std::array<Range, kMaxRank> margin;
    for (std::size_t d = 0; d < m_grid.Rank(); ++d)
        margin[d] = {0, m_grid.Sizes()[d] - 1};
    std::int64_t const behindEdge = (chunkSize - oldSize % chunkSize) % chunkSize;
    margin[dim] = {oldSize, oldSize + std::min(m_grid.Sizes()[dim] - oldSize, behindEdge) - 1};
    std::span<Range const> const ranges(margin.data(), m_grid.Rank());
    if (std::any_of(ranges.begin(), ranges.end(), [](Range const& range) { return range.Count() < 1; }))
        return;
    MappedCopies copies(m_access, Way::Mapped);
    m_grid.ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        ChunkPlace const place = Place(piece.chunk, piece.origin);
        if (place.state != ChunkPlace::State::Written)
            return;
        StridedRuns const runs = Runs(piece, m_grid.ChunkSizes());
        std::byte const* const values = m_access.Initial(m_dataset.Shape().initialValue, m_valueBytes, runs.runBytes);
        WritePiece(copies, piece, place, runs.Repeating(1), values);
        copies.Finish(); // the values may move when they are asked for again
    });
}

} // namespace simdb
