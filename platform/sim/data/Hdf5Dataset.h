#pragma once

#include "DenseShape.h"
#include "Hdf5.h"
#include "SimFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace simdb
{

/// The dataset behind a dense drawer: all that HDF5 is asked to do with one.
///
/// Every member throws KVOSimException with the file's path when HDF5 fails.
class Hdf5Dataset
{
public:
    /// A new dataset without a name. Chunked: space is taken chunk by chunk, all dimensions can grow. Contiguous: space is taken at once,
    /// and holds the initial value.
    Hdf5Dataset(std::shared_ptr<File> const& file, DenseShape const& shape);
    /// @throws KVOSimException when it is missing or has a rank, type or layout that drawers don't have
    Hdf5Dataset(std::shared_ptr<File> const& file, hid_t group, char const* name);

    DenseShape const& Shape() const noexcept { return m_shape; }
    hid_t Id() const noexcept { return m_dataset; }
    /// Its name in its group; empty until it has one.
    std::string const& Name() const noexcept { return m_name; }
    /// Values pass through filters (another program's compression): only HDF5 can move them.
    bool IsFiltered() const noexcept { return m_filtered; }

    void LinkTo(hid_t group, char const* name);
    /// Takes the place of `other`: its name, if it has one, and its attributes.
    void TakePlaceOf(Hdf5Dataset& other);

    void Read(std::span<Range const> ranges, void* buffer);
    void Write(std::span<Range const> ranges, void const* buffer);
    /// Changes the size of dimension `dim` of a chunked dataset.
    void SetExtent(int dim, std::int64_t size);

    /// Writes the chunk whose first value is at `offset`, `bytes` bytes long, taking space for it if it has none. @return its address
    std::uint64_t WriteChunk(std::span<std::int64_t const> offset, void const* values, std::size_t bytes);
    /// The same with zeros, which are not written where the new space has no other bytes.
    std::uint64_t TakeChunk(std::span<std::int64_t const> offset, void const* zeros, std::size_t bytes);
    /// Address of the chunk whose first value is at `offset`, none if it was never written.
    std::optional<std::uint64_t> ChunkAddress(std::span<std::int64_t const> offset) const;
    /// Address of a contiguous dataset's first value; none if it takes no space.
    std::optional<std::uint64_t> ContiguousAddress() const;

private:
    std::size_t BytesToMove(std::span<Range const> ranges) const noexcept;
    std::size_t ChunkBytes() const noexcept;
    void ReadShape();
    void ReadLayout(hid_t properties);
    void CopyAttributesOf(hid_t other);
    [[noreturn]] void ThrowForeign(char const* why) const;

    std::shared_ptr<File> m_file;
    Hid m_dataset;
    Hid m_group; ///< with m_name: where the dataset has its name
    std::string m_name;
    DenseShape m_shape;
    bool m_filtered = false;
};

} // namespace simdb
