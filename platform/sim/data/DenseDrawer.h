#pragma once

#include "DenseShape.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <hdf5.h>

namespace simdb
{

class ChunkIndex;
class FileAccess;
struct PlacesSum;
class ValueSums;

/// One dense drawer: an HDF5 dataset, and the data path to its values.
///
/// Whole chunks travel by pread and pwrite between file and buffer, partial ones by strided copies through the file's kept mapping, or by
/// pread and pwrite where the system refuses a page of it; a chunk that is touched for the first time is written whole. An unwritten chunk
/// reads as the initial value. Contiguous drawers are read through the mapping or pread and written by pwrite.
/// HDF5's own hyperslab transfers do all of it when the variable KVO_SIM_DATA_PATH is "hdf5" at the time the file is opened: the
/// reference in the tests, and the way where the data path cannot be used.
class DenseDrawer
{
public:
    /// A new dataset without a name; LinkTo() gives it one. A drawer that never gets one disappears with the file's closing.
    static std::shared_ptr<DenseDrawer> Create(std::shared_ptr<FileAccess> access, DenseShape const& shape);
    /// The dataset `name` below `group`. @throws KVOSimException when it is missing or not one of ours (rank, type, chunks)
    static std::shared_ptr<DenseDrawer> Open(std::shared_ptr<FileAccess> access, hid_t group, char const* name);
    DenseDrawer(DenseDrawer const&) = delete;
    DenseDrawer& operator=(DenseDrawer const&) = delete;
    ~DenseDrawer();

    void LinkTo(hid_t group, char const* name);

    DenseShape const& Shape() const noexcept;
    /// The dataset, for attributes; the drawer's own.
    hid_t Dataset();

    /// How values travel.
    struct Way {
        bool verify = false;     ///< every chunk that is read of is read whole and must fit its checksum, where there are some
        bool callsAlone = false; ///< no page of the file comes to the process's memory
    };
    /// Moves the values of `ranges` (one a dimension, inside the sizes) packed from or to `buffer`.
    /// @throws KVOSimException of kind Damaged that names the dataset and the chunk; the buffer then holds anything
    void Read(std::span<Range const> ranges, void* buffer, Way const& way = {false, false});
    void Write(std::span<Range const> ranges, void const* buffer, Way const& way = {false, false});
    /// The values of `ranges` themselves, packed, where the file is mapped and they lie in one piece; null where Read() or Write() is the
    /// better way, and always before the second use of a part of the file. They stay there until anything else is asked of the file.
    void* InPlace(std::span<Range const> ranges, bool toWrite);
    /// The same to be read, also at the first use: they are fetched from the disk where they have to be.
    void const* FetchInPlace(std::span<Range const> ranges);
    /// Starts reading the values of `ranges` into the page cache, without waiting and without failing.
    void Announce(std::span<Range const> ranges, Way const& way = {false, false}) noexcept;

    /// Changes the size of dimension `dim`; values that are added are the initial value, values cut off are lost. A contiguous drawer is
    /// copied.
    void Resize(int dim, std::int64_t size);

    /// Whether all chunks first to last (numbers of chunks, per dimension) exist; a contiguous drawer does.
    bool ChunksAllocated(std::span<Range const> chunks) const;

    /// HDF5 moves the values: there is a filter, or the variable says so.
    bool IsMovedByHdf5() const noexcept;
    /// Gives every chunk its place in the file; those that had none hold the initial value. Nothing where IsMovedByHdf5().
    void Allocate();
    /// Where a chunk lies, by its number in every dimension; a contiguous drawer is one chunk. None where it has no place, or where a
    /// filter has changed the bytes.
    std::optional<std::uint64_t> ChunkAddress(std::span<std::int64_t const> chunk) const;

    using OnPlace = std::function<void(std::uint64_t address, std::uint64_t bytes)>;
    /// Calls onPiece for every chunk, or for all values of a contiguous drawer, and onNode for what finds chunks. Those that pass a filter,
    /// or that only newer versions of HDF5 make, are left out. What HDF5 has not yet written of the index is flushed.
    void ForEachPiece(OnPlace const& onPiece, OnPlace const& onNode);
    /// The checksum of where the values lie in the file; none where that is not known.
    std::optional<PlacesSum> Places() const;
    /// The same, found in the file; none where values pass a filter. What HDF5 has not yet written of the index is flushed.
    std::optional<PlacesSum> FindPlaces();
    /// Tells what they are, of a drawer that was open before.
    void SetPlaces(PlacesSum const& places) noexcept;

    /// Checksums of the values, kept current from now on; for chunked drawers only.
    void SetSums(std::shared_ptr<ValueSums> sums) noexcept;
    std::shared_ptr<ValueSums> const& Sums() const noexcept;
    /// Stores the checksums of what has changed. Chunks of which only parts were written are read again.
    void WriteSums();
    /// Compares all values with their checksums, and tells of each chunk that does not fit. @return how many were compared
    std::int64_t CheckValues(std::function<void(std::string const& what)> const& onDamage);

    /// How far reading ahead and keeping resident may go: at most an eighth of the machine's memory; a quarter of that at first, and with
    /// 0.
    void SetCacheBytes(std::uint64_t bytes) noexcept;

private:
    struct State;
    explicit DenseDrawer(std::unique_ptr<State> state) noexcept;
    void ReplaceBy(DenseShape const& shape);
    void CopyTo(DenseDrawer& other);
    void BeginChange(std::span<Range const> ranges);
    void Doubt(int dim, std::int64_t size);
    std::string Fault(std::vector<std::int64_t> const& chunk, std::uint32_t crc) const;
    std::optional<ChunkIndex> Index() const;
    std::unique_ptr<State> m_state;
};

} // namespace simdb
