#include "SparseDrawer.h"

#include "Crc32c.h"
#include "KVOSimTypeKey.h"
#include "ValueSums.h"

#include <algorithm>
#include <string>
#include <utility>

namespace simdb
{

namespace
{

constexpr char const* kCreating = "Cannot create a sparse drawer in the database";
constexpr char const* kOpening = "Cannot open a sparse drawer of the database";
constexpr char const* kReading = "Cannot read a sparse drawer of the database";
constexpr char const* kWriting = "Cannot write a sparse drawer of the database";
constexpr std::array<char const*, SparseDrawer::kSlots> kNames{"values", "column_indices", "row_start", "diagonal"};
constexpr char const* kSumsName = "checksums";

hid_t ValueType(int typeKey) noexcept
{
    switch (typeKey) {
    case KVOSimInt8:
        return H5T_STD_I8LE;
    case KVOSimUInt8:
        return H5T_STD_U8LE;
    case KVOSimFloat:
        return H5T_IEEE_F32LE;
    case KVOSimInt32:
    case KVOSimEnum32:
        return H5T_STD_I32LE;
    case KVOSimUInt32:
    case KVOSimReference32:
        return H5T_STD_U32LE;
    default:
        return H5T_IEEE_F64LE;
    }
}

hid_t SlotType(SparseShape const& shape, int slot) noexcept
{
    return slot == 0 || slot == 3 ? ValueType(shape.typeKey) : H5T_STD_I32LE;
}

// One pass without branches over each array: it runs at the speed of reading them. Also of some rows, whose first entry need not be number
// 0.
bool AreRowStarts(SparseShape const& shape, std::int32_t const* rowStart, std::int64_t rows) noexcept
{
    bool held = rowStart[0] >= 0 && rowStart[rows] <= shape.nonzeros;
    for (std::int64_t row = 0; row < rows; ++row)
        held &= rowStart[row] <= rowStart[row + 1];
    return held;
}

bool AreColumns(SparseShape const& shape, std::int32_t const* columns, std::int64_t count) noexcept
{
    std::uint32_t largest = 0;
    for (std::int64_t k = 0; k < count; ++k)
        largest = largest < static_cast<std::uint32_t>(columns[k]) ? static_cast<std::uint32_t>(columns[k]) : largest;
    return count == 0 || largest < shape.columns; // a negative index is a large unsigned one
}

[[noreturn]] void RefuseRows(KVOSimException::Kind kind, char const* doing, std::string const& path)
{
    ThrowReason(kind, doing, path,
                "its row starts must rise from 0 to the number of values, and its column indices lie from 0 to the number of columns - 1");
}

void RequireRows(KVOSimException::Kind kind, SparseShape const& shape, void const* rowStart, void const* columns, char const* doing,
                 std::string const& path)
{
    auto const* const starts = static_cast<std::int32_t const*>(rowStart);
    if (!AreRowStarts(shape, starts, shape.rows) || starts[0] != 0 || starts[shape.rows] != shape.nonzeros ||
        !AreColumns(shape, static_cast<std::int32_t const*>(columns), shape.nonzeros))
        RefuseRows(kind, doing, path);
}

} // namespace

std::int64_t SparseDrawer::Count(SparseShape const& shape, int slot) noexcept
{
    return slot == 2 ? shape.rows + 1 : slot == 3 ? shape.rows : shape.nonzeros;
}

std::size_t SparseDrawer::EntryBytes(SparseShape const& shape, int slot) noexcept
{
    return slot == 0 || slot == 3 ? static_cast<std::size_t>(KVOSimTypeKeySize(shape.typeKey)) : sizeof(std::int32_t);
}

std::shared_ptr<SparseDrawer> SparseDrawer::Create(std::shared_ptr<File> file, SparseShape const& shape, ConstBuffers const& values,
                                                   bool checksums)
{
    Hdf5Guard const guard;
    std::string const path = file->Path();
    RequireRows(KVOSimException::Kind::Misuse, shape, values[2], values[1], kCreating, path);
    std::shared_ptr<SparseDrawer> drawer(new SparseDrawer(std::move(file), shape));
    Hid const properties(Checked(H5Pcreate(H5P_DATASET_CREATE), kCreating, path));
    Checked(H5Pset_obj_track_times(properties, false), kCreating, path);
    drawer->m_group = Hid(Checked(H5Gcreate_anon(drawer->m_file->Hdf5(), H5P_DEFAULT, H5P_DEFAULT), kCreating, path));
    for (int slot = 0; slot < drawer->Slots(); ++slot) {
        hsize_t const count = static_cast<hsize_t>(Count(shape, slot));
        Hid const space(Checked(H5Screate_simple(1, &count, nullptr), kCreating, path));
        drawer->m_datasets[static_cast<std::size_t>(slot)] =
            Hid(Checked(H5Dcreate2(drawer->m_group, kNames[static_cast<std::size_t>(slot)], SlotType(shape, slot), space, H5P_DEFAULT,
                                   properties, H5P_DEFAULT),
                        kCreating, path));
    }
    if (checksums) {
        hsize_t const count = static_cast<hsize_t>(drawer->Slots());
        Hid const space(Checked(H5Screate_simple(1, &count, nullptr), kCreating, path));
        drawer->m_sums = Hid(
            Checked(H5Dcreate2(drawer->m_group, kSumsName, H5T_STD_U32LE, space, H5P_DEFAULT, properties, H5P_DEFAULT), kCreating, path));
    }
    drawer->WriteSlots(values);
    return drawer;
}

std::shared_ptr<SparseDrawer> SparseDrawer::Open(std::shared_ptr<File> file, hid_t group, char const* name, SparseShape const& expected)
{
    Hdf5Guard const guard;
    std::string const path = file->Path();
    std::shared_ptr<SparseDrawer> drawer(new SparseDrawer(std::move(file), expected));
    drawer->m_group = Hid(Checked(H5Gopen2(group, name, H5P_DEFAULT), kOpening, path));
    for (int slot = 0; slot < drawer->Slots(); ++slot) {
        char const* const slotName = kNames[static_cast<std::size_t>(slot)];
        Hid dataset(Checked(H5Dopen2(drawer->m_group, slotName, H5P_DEFAULT), kOpening, path));
        Hid const type(Checked(H5Dget_type(dataset), kOpening, path));
        Hid const space(Checked(H5Dget_space(dataset), kOpening, path));
        hsize_t count = 0;
        bool fits = H5Tequal(type, SlotType(expected, slot)) > 0 && H5Sget_simple_extent_ndims(space) == 1 &&
                    H5Sget_simple_extent_dims(space, &count, nullptr) == 1;
        if (slot == 0)
            drawer->m_shape.nonzeros = static_cast<std::int64_t>(count);
        fits = fits && drawer->m_shape.nonzeros >= 0 && count == static_cast<hsize_t>(Count(drawer->m_shape, slot));
        if (!fits)
            ThrowReason(KVOSimException::Kind::Damaged, kOpening, path,
                        std::string("the dataset ") + name + "/" + slotName + " does not fit the catalogue: the file is damaged");
        drawer->m_datasets[static_cast<std::size_t>(slot)] = std::move(dataset);
    }
    drawer->m_name = name;
    drawer->OpenSums(path);
    return drawer;
}

void SparseDrawer::OpenSums(std::string const& path)
{
    if (Checked(H5Lexists(m_group, kSumsName, H5P_DEFAULT), kOpening, path) == 0)
        return;
    m_sums = Hid(Checked(H5Dopen2(m_group, kSumsName, H5P_DEFAULT), kOpening, path));
    Hid const type(Checked(H5Dget_type(m_sums), kOpening, path));
    Hid const space(Checked(H5Dget_space(m_sums), kOpening, path));
    hsize_t count = 0;
    if (H5Tequal(type, H5T_STD_U32LE) <= 0 || H5Sget_simple_extent_ndims(space) != 1 ||
        H5Sget_simple_extent_dims(space, &count, nullptr) != 1 || count != static_cast<hsize_t>(Slots()))
        ThrowReason(KVOSimException::Kind::Damaged, kOpening, path,
                    "the checksums of " + m_name + " are of another form: the file is damaged");
}

void SparseDrawer::LinkTo(hid_t group, char const* name)
{
    Hdf5Guard const guard;
    std::string kept(name);
    if (H5Olink(m_group, group, name, H5P_DEFAULT, H5P_DEFAULT) < 0)
        ThrowHdf5(kWriting, m_file->Path());
    m_name = std::move(kept);
}

void SparseDrawer::ForEachArray(std::function<void(std::int64_t, hid_t, std::uint64_t, std::uint64_t)> const& visit) const
{
    Hdf5Guard const guard;
    for (int slot = 0; slot < Slots(); ++slot) {
        hid_t const dataset = m_datasets[static_cast<std::size_t>(slot)];
        std::int64_t const count = Count(m_shape, slot);
        haddr_t const address = count > 0 ? H5Dget_offset(dataset) : HADDR_UNDEF;
        if (address != HADDR_UNDEF)
            visit(slot, dataset, address, static_cast<std::uint64_t>(count) * EntryBytes(m_shape, slot));
    }
}

PlacesSum SparseDrawer::Places() const
{
    PlacesSum places;
    ForEachArray([&](std::int64_t slot, hid_t, std::uint64_t address, std::uint64_t bytes) { places.Add({&slot, 1}, address, bytes); });
    return places;
}

void SparseDrawer::Read(Buffers const& values, bool verify)
{
    Hdf5Guard const guard;
    for (int slot = 0; slot < Slots(); ++slot)
        if (Count(m_shape, slot) > 0 && H5Dread(m_datasets[static_cast<std::size_t>(slot)], SlotType(m_shape, slot), H5S_ALL, H5S_ALL,
                                                H5P_DEFAULT, values[static_cast<std::size_t>(slot)]) < 0)
            ThrowHdf5(kReading, m_file->Path());
    if (verify && m_sums.IsValid())
        Verify({values[0], values[1], values[2], values[3]});
    RequireRows(KVOSimException::Kind::Damaged, m_shape, values[2], values[1], kReading, m_file->Path());
}

void SparseDrawer::ReadPart(int slot, std::int64_t first, std::int64_t count, void* values)
{
    if (count == 0)
        return;
    Hid const file(Checked(H5Dget_space(m_datasets[static_cast<std::size_t>(slot)]), kReading, m_file->Path()));
    hsize_t const offset = static_cast<hsize_t>(first), extent = static_cast<hsize_t>(count);
    Checked(H5Sselect_hyperslab(file, H5S_SELECT_SET, &offset, nullptr, &extent, nullptr), kReading, m_file->Path());
    Hid const memory(Checked(H5Screate_simple(1, &extent, nullptr), kReading, m_file->Path()));
    if (H5Dread(m_datasets[static_cast<std::size_t>(slot)], SlotType(m_shape, slot), memory, file, H5P_DEFAULT, values) < 0)
        ThrowHdf5(kReading, m_file->Path());
}

std::vector<std::int32_t> SparseDrawer::RowStarts(std::int64_t first, std::int64_t last)
{
    Hdf5Guard const guard;
    std::vector<std::int32_t> starts(static_cast<std::size_t>(last - first + 2));
    ReadPart(2, first, static_cast<std::int64_t>(starts.size()), starts.data());
    if (!AreRowStarts(m_shape, starts.data(), last - first + 1))
        RefuseRows(KVOSimException::Kind::Damaged, kReading, m_file->Path());
    return starts;
}

void SparseDrawer::ReadRows(std::int64_t first, std::vector<std::int32_t> const& starts, Buffers const& values)
{
    Hdf5Guard const guard;
    std::int64_t const rows = static_cast<std::int64_t>(starts.size()) - 1, entries = starts.back() - starts.front();
    for (int const slot : {0, 1})
        if (void* const memory = values[static_cast<std::size_t>(slot)]; memory != nullptr)
            ReadPart(slot, starts.front(), entries, memory);
    if (values[1] != nullptr && !AreColumns(m_shape, static_cast<std::int32_t const*>(values[1]), entries))
        RefuseRows(KVOSimException::Kind::Damaged, kReading, m_file->Path());
    if (values[2] != nullptr)
        std::copy(starts.begin(), starts.end(), static_cast<std::int32_t*>(values[2]));
    if (values[3] != nullptr && Slots() == kSlots)
        ReadPart(3, first, rows, values[3]);
}

void SparseDrawer::Write(ConstBuffers const& values)
{
    Hdf5Guard const guard;
    RequireRows(KVOSimException::Kind::Misuse, m_shape, values[2], values[1], kWriting, m_file->Path());
    WriteSlots(values);
}

// The checksums say at first that the values are being changed: all of them, as one without the others is none.
void SparseDrawer::WriteSlots(ConstBuffers const& values)
{
    if (m_sums.IsValid()) {
        Sums changing;
        changing.fill(ValueSums::kChanging);
        WriteSums(changing);
    }
    for (int slot = 0; slot < Slots(); ++slot)
        if (Count(m_shape, slot) > 0 && H5Dwrite(m_datasets[static_cast<std::size_t>(slot)], SlotType(m_shape, slot), H5S_ALL, H5S_ALL,
                                                 H5P_DEFAULT, values[static_cast<std::size_t>(slot)]) < 0)
            ThrowHdf5(kWriting, m_file->Path());
    if (m_sums.IsValid())
        WriteSums(SumsOf(values));
}

void SparseDrawer::WriteSums(Sums const& sums)
{
    if (H5Dwrite(m_sums, H5T_NATIVE_UINT32, H5S_ALL, H5S_ALL, H5P_DEFAULT, sums.data()) < 0)
        ThrowHdf5(kWriting, m_file->Path());
}

SparseDrawer::Sums SparseDrawer::SumsOf(ConstBuffers const& values) const noexcept
{
    Sums sums{};
    for (int slot = 0; slot < Slots(); ++slot) {
        auto const s = static_cast<std::size_t>(slot);
        sums[s] = ValueSums::Of(Crc32c(values[s], static_cast<std::size_t>(Count(m_shape, slot)) * EntryBytes(m_shape, slot)));
    }
    return sums;
}

void SparseDrawer::Verify(ConstBuffers const& values) const
{
    Sums stored{};
    if (H5Dread(m_sums, H5T_NATIVE_UINT32, H5S_ALL, H5S_ALL, H5P_DEFAULT, stored.data()) < 0)
        ThrowHdf5(kReading, m_file->Path());
    Sums const found = SumsOf(values);
    for (std::size_t s = 0; s < static_cast<std::size_t>(Slots()); ++s)
        if (stored[s] != found[s])
            ThrowReason(KVOSimException::Kind::Damaged, kReading, m_file->Path(),
                        "the array " + std::string(kNames[s]) + " of " + m_name +
                            (stored[s] == ValueSums::kChanging
                                 ? " was being changed when a process ended, and may be old or new; writing the matrix again settles it"
                                 : " does not fit its checksum: the file is damaged"));
}

} // namespace simdb
