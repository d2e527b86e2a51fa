#pragma once

#include "ChunkIndex.h"
#include "Hdf5.h"
#include "SimFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace simdb
{

/// What a sparse drawer is like. Dimension 0 is the rows.
struct SparseShape {
    int kind = 3; ///< KVOSimSparseDrawer or KVOSimSparseSymDrawer
    int typeKey = 3;
    std::int64_t rows = 0;
    std::int64_t columns = 0;
    std::int64_t nonzeros = 0;
};

/// One sparse drawer: an HDF5 group of one-dimensional datasets, compressed rows counted from 0. Slots: 0 values, 1 column indices, 2 row
/// starts (rows + 1), 3 the diagonal of the symmetric kind (rows).
class SparseDrawer
{
public:
    static constexpr int kSlots = 4;

    /// The memory of one slot; null with 0 bytes.
    using Buffers = std::array<void*, kSlots>;
    using ConstBuffers = std::array<void const*, kSlots>;

    /// A new drawer without a name, with these values. @param checksums  keep checksums of them  @throws KVOSimException, nothing is left,
    /// when the row starts do not rise from 0 to the number of values, or a column index lies outside
    static std::shared_ptr<SparseDrawer> Create(std::shared_ptr<File> file, SparseShape const& shape, ConstBuffers const& values,
                                                bool checksums);
    /// The group `name` below `group`; `expected` but its nonzeros is what it must be like.
    static std::shared_ptr<SparseDrawer> Open(std::shared_ptr<File> file, hid_t group, char const* name, SparseShape const& expected);

    SparseShape const& Shape() const noexcept { return m_shape; }
    /// How many slots this kind has.
    int Slots() const noexcept { return SlotsOf(m_shape.kind); }
    static int SlotsOf(int kind) noexcept { return kind == 4 ? 4 : 3; }
    /// Entries of a slot of a drawer of that shape, and the bytes of one.
    static std::int64_t Count(SparseShape const& shape, int slot) noexcept;
    static std::size_t EntryBytes(SparseShape const& shape, int slot) noexcept;

    void LinkTo(hid_t group, char const* name);
    /// The group, for attributes; the drawer's own.
    hid_t Group() const noexcept { return m_group; }

    /// Calls visit(slot, dataset, address, bytes) for every array that takes space.
    void ForEachArray(std::function<void(std::int64_t, hid_t, std::uint64_t, std::uint64_t)> const& visit) const;
    /// Where the arrays lie in the file.
    PlacesSum Places() const;

    /// All slots; the same checks as in Create() guard the reader from a damaged file.
    /// @param verify  they must fit their checksums, where there are some
    void Read(Buffers const& values, bool verify = false);
    bool HasSums() const noexcept { return m_sums.IsValid(); }
    /// Where the entries of rows first to last lie among all: last - first + 2 row starts, checked.
    std::vector<std::int32_t> RowStarts(std::int64_t first, std::int64_t last);
    /// The part of the slots that rows first to last have, those with memory only. @param starts  their RowStarts()
    void ReadRows(std::int64_t first, std::vector<std::int32_t> const& starts, Buffers const& values);
    void Write(ConstBuffers const& values);

private:
    SparseDrawer(std::shared_ptr<File> file, SparseShape const& shape) noexcept : m_file(std::move(file)), m_shape(shape) {}
    using Sums = std::array<std::uint32_t, kSlots>;
    void OpenSums(std::string const& path);
    void ReadPart(int slot, std::int64_t first, std::int64_t count, void* values);
    void WriteSlots(ConstBuffers const& values);
    void WriteSums(Sums const& sums);
    Sums SumsOf(ConstBuffers const& values) const noexcept;
    void Verify(ConstBuffers const& values) const;

    std::shared_ptr<File> m_file;
    SparseShape m_shape;
    Hid m_group;
    std::array<Hid, kSlots> m_datasets;
    std::string m_name; ///< of the group; empty until it has one
    Hid m_sums;         ///< invalid: there are no checksums
};

} // namespace simdb
