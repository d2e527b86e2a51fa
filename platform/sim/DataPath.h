#pragma once

#include "ChunkGrid.h"
#include "ChunkIndex.h"
#include "ChunkTable.h"
#include "FileAccess.h"
#include "Hdf5Dataset.h"
#include "StridedCopy.h"

namespace simdb
{

/// Moves the values of one drawer between its place in the file and the callers' buffers; HDF5 is called for new chunks only, and asked
/// once for the place of each.
///
/// Failures throw KVOSimException; a write that fails half-way leaves the chunks that it has reached with new values.
class DataPath
{
public:
    /// @param dataset  outlives this object
    /// @param isNew    nothing is written yet
    DataPath(File& file, Hdf5Dataset& dataset, bool isNew);

    ChunkGrid const& Grid() const noexcept { return m_grid; }
    void SetCacheBytes(std::uint64_t bytes) noexcept;

    void Read(std::span<Range const> ranges, void* buffer);
    void Write(std::span<Range const> ranges, void const* buffer);
    /// The values themselves where they lie in one piece and the mapping is the fast way to them, else null.
    void* InPlace(std::span<Range const> ranges, bool toWrite);
    /// The same to be read, whether or not it is fast: they are fetched from the disk where they have to be.
    void const* FetchInPlace(std::span<Range const> ranges);
    void Announce(std::span<Range const> ranges);
    bool IsWritten(Extents const& chunk);
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
    void WritePiece(MappedCopies& copies, ChunkPiece const& piece, ChunkPlace place, StridedRuns const& runs, std::byte const* buffer);
    void WriteNewChunk(MappedCopies& copies, ChunkPiece const& piece, StridedRuns const& runs, std::byte const* buffer);
    void CreateChunk(ChunkPiece const& piece, std::byte const* values);
    void ForgetFailedChunk(ChunkPiece const& failed);
    std::uint64_t BytesToKeep() const noexcept;
    template<class Find>
    void* FindInPlace(std::span<Range const> ranges, Find const& find);
    bool MayWriteMapped(FileAccess const& access, std::int64_t chunk, ChunkPlace& place);
    void FillMargin(std::size_t dim, std::int64_t oldSize);

    File& m_file;
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
