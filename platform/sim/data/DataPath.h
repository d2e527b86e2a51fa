#pragma once

#include "ChunkGrid.h"
#include "ChunkIndex.h"
#include "ChunkTable.h"
#include "FileAccess.h"
#include "Hdf5Dataset.h"
#include "StridedCopy.h"

#include <functional>

namespace simdb
{

/// Moves the values of one drawer between its place in the file and the callers' buffers; HDF5 is called for new chunks only, and asked
/// once for the place of each.
///
/// Failures throw KVOSimException; a write that fails half-way leaves the chunks that it has reached with new values.
class DataPath
{
public:
    /// @param access,dataset  outlive this object
    /// @param isNew           nothing is written yet
    DataPath(FileAccess& access, Hdf5Dataset& dataset, bool isNew);

    ChunkGrid const& Grid() const noexcept { return m_grid; }
    void SetCacheBytes(std::uint64_t bytes) noexcept;

    /// Whether values may go through the kept mapping, which brings pages of the file to the process's memory. By calls alone a transfer
    /// takes no more memory than Staging() beside the caller's.
    enum class Way { Mapped, CallsAlone };

    /// Looks at a chunk that is about to be read. @param whole  where its bytes are put by this, and read from; null where there is no
    /// memory for them: they are read again
    using Inspect = std::function<void(Extents const& origin, std::uint64_t address, std::byte* whole)>;
    void Read(std::span<Range const> ranges, void* buffer, Way way, Inspect const& inspect = nullptr);
    /// What a whole chunk holds from now on. @param crc  CRC-32C of its bytes
    using OnWhole = std::function<void(Extents const& origin, std::uint32_t crc)>;
    void Write(std::span<Range const> ranges, void const* buffer, Way way, OnWhole const& onWhole = nullptr);
    /// The values themselves where they lie in one piece and the mapping is the fast way to them, else null.
    void* InPlace(std::span<Range const> ranges, bool toWrite);
    /// The same to be read, whether or not it is fast: they are fetched from the disk where they have to be.
    void const* FetchInPlace(std::span<Range const> ranges);
    /// @param way  CallsAlone: what is skipped between parts that are read is not announced
    void Announce(std::span<Range const> ranges, Way way);
    /// Gives every chunk its place; those that had none hold the initial value.
    void Allocate();
    bool IsWritten(Extents const& chunk) { return Address(chunk).has_value(); }
    /// Where a chunk lies in the file, by its numbers; none if it was never written.
    std::optional<std::uint64_t> Address(Extents const& chunk);
    /// How much of it a transfer may keep mapped.
    std::uint64_t BytesToKeep(Way way) const noexcept;
    /// The checksum of where the values lie, kept current; none while it is not known.
    std::optional<PlacesSum> const& Places() const noexcept { return m_places; }
    void SetPlaces(PlacesSum const& places) noexcept { m_places = places; }
    /// Changes the size of dimension `dim` of a chunked drawer.
    void Resize(int dim, std::int64_t size);

private:
    class MappedCopies;
    StridedRuns Runs(ChunkPiece const& piece, std::span<std::int64_t const> bufferExtents) const noexcept;
    ChunkPlace Place(std::int64_t chunk, Extents const& origin);

    void ReadPiece(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte* buffer);
    bool IsNearlyAllOf(StridedRuns const& runs) const noexcept;
    void WriteAny(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer);
    std::uint32_t WriteWhole(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer);
    void WritePiece(MappedCopies& copies, ChunkPiece const& piece, ChunkPlace place, StridedRuns const& runs, std::byte const* buffer);
    void WriteNewChunk(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer);
    enum class Fill { Values, Zeros };
    void CreateChunk(ChunkPiece const& piece, std::byte const* values, Fill fill = Fill::Values);
    void ForgetFailedChunk(ChunkPiece const& failed);
    template<class Find>
    void* FindInPlace(std::span<Range const> ranges, Find const& find);
    bool MayWriteMapped(std::int64_t chunk, ChunkPlace& place);
    void FillMargin(std::size_t dim, std::int64_t oldSize);

    FileAccess& m_access;
    Hdf5Dataset& m_dataset;
    std::size_t m_valueBytes;
    ChunkGrid m_grid;
    std::uint64_t m_chunkBytes;
    bool m_chunked;
    ChunkTable m_table;
    std::optional<PlacesSum> m_places;
    std::uint64_t m_cacheBytes = CacheBytesDefault();
};

} // namespace simdb
