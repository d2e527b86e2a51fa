#include "Hdf5Dataset.h"

#include "KVOSimTypeKey.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace simdb
{

namespace
{

using Sizes = std::array<hsize_t, H5S_MAX_RANK>;

// Keys 7 and 8 are stored as the plain integers they are made of.
hid_t FileType(int typeKey) noexcept
{
    switch (typeKey) {
    case KVOSimInt8:
        return H5T_STD_I8LE;
    case KVOSimInt32:
    case KVOSimEnum32:
        return H5T_STD_I32LE;
    case KVOSimDouble:
        return H5T_IEEE_F64LE;
    case KVOSimFloat:
        return H5T_IEEE_F32LE;
    case KVOSimUInt8:
        return H5T_STD_U8LE;
    case KVOSimUInt32:
    case KVOSimReference32:
        return H5T_STD_U32LE;
    default:
        return H5I_INVALID_HID;
    }
}

int TypeKey(hid_t type) noexcept
{
    for (int const key : {KVOSimDouble, KVOSimInt32, KVOSimInt8, KVOSimFloat, KVOSimUInt8, KVOSimUInt32})
        if (H5Tequal(type, FileType(key)) > 0)
            return key;
    return 0;
}

Sizes Hdf5Sizes(std::span<std::int64_t const> sizes) noexcept
{
    Sizes result;
    std::copy(sizes.begin(), sizes.end(), result.begin());
    return result;
}

} // namespace

Hdf5Dataset::Hdf5Dataset(std::shared_ptr<File> const& file, DenseShape const& shape) : m_file(file), m_shape(shape)
{
    constexpr char kDoing[] = "Cannot create a dense drawer in";
    std::string const& path = m_file->Path();
    int const rank = static_cast<int>(shape.sizes.size());
    Sizes const sizes = Hdf5Sizes(shape.sizes), chunks = Hdf5Sizes(shape.chunkSizes);
    Sizes unlimited;
    unlimited.fill(H5S_UNLIMITED);
    bool const chunked = !shape.chunkSizes.empty();
    // A fill value that is set makes HDF5 write all of a contiguous dataset; zeros are what its fresh space holds anyway.
    bool const zero = std::all_of(shape.initialValue.begin(), shape.initialValue.end(), [](std::byte b) { return b == std::byte{}; });
    constexpr std::size_t kFillBuffer = std::size_t(1) << 20; // HDF5's

    Hdf5Guard const guard(Hdf5Guard::kReserve + (chunked || zero ? 0 : kFillBuffer));
    hid_t const type = FileType(shape.typeKey);
    Hid const space(Checked(H5Screate_simple(rank, sizes.data(), chunked ? unlimited.data() : nullptr), kDoing, path));
    Hid const properties(Checked(H5Pcreate(H5P_DATASET_CREATE), kDoing, path));
    Checked(H5Pset_obj_track_times(properties, false), kDoing, path);
    Checked(H5Pset_fill_time(properties, H5D_FILL_TIME_IFSET), kDoing, path);
    if (chunked || !zero)
        Checked(H5Pset_fill_value(properties, type, shape.initialValue.data()), kDoing, path);
    if (chunked)
        Checked(H5Pset_chunk(properties, rank, chunks.data()), kDoing, path);
    else
        Checked(H5Pset_alloc_time(properties, H5D_ALLOC_TIME_EARLY), kDoing, path);
    Hid const access(Checked(H5Pcreate(H5P_DATASET_ACCESS), kDoing, path));
    if (chunked)
        Checked(H5Pset_chunk_cache(access, 0, 0, 1.0), kDoing, path);
    m_dataset = Hid(Checked(H5Dcreate_anon(m_file->Hdf5(), type, space, properties, access), kDoing, path));
}

Hdf5Dataset::Hdf5Dataset(std::shared_ptr<File> const& file, hid_t group, char const* name) : m_file(file), m_name(name)
{
    constexpr char kDoing[] = "Cannot open a dense drawer of";
    Hdf5Guard const guard;
    Hid const access(Checked(H5Pcreate(H5P_DATASET_ACCESS), kDoing, m_file->Path()));
    Checked(H5Pset_chunk_cache(access, 0, 0, 1.0), kDoing, m_file->Path());
    m_dataset = Hid(Checked(H5Dopen2(group, name, access), kDoing, m_file->Path()));
    ReadShape();
    H5Iinc_ref(group);
    m_group = Hid(group);
}

void Hdf5Dataset::ThrowForeign(char const* why) const
{
    ThrowReason(KVOSimException::Kind::Damaged, "Cannot open a dense drawer of", m_file->Path(),
                std::string("the dataset \"") + m_name + "\" " + why);
}

void Hdf5Dataset::ReadShape()
{
    constexpr char kDoing[] = "Cannot read the shape of a dense drawer of";
    std::string const& path = m_file->Path();
    Hid const type(Checked(H5Dget_type(m_dataset), kDoing, path));
    m_shape.typeKey = TypeKey(type);
    if (m_shape.typeKey == 0)
        ThrowForeign("has a type that drawers don't have");
    Hid const space(Checked(H5Dget_space(m_dataset), kDoing, path));
    int const rank = static_cast<int>(Checked(H5Sget_simple_extent_ndims(space), kDoing, path));
    if (rank < 1)
        ThrowForeign("has no dimension");
    Sizes sizes;
    Checked(H5Sget_simple_extent_dims(space, sizes.data(), nullptr), kDoing, path);
    if (std::any_of(sizes.begin(), sizes.begin() + rank, [](hsize_t s) { return s > std::numeric_limits<std::int64_t>::max(); }))
        ThrowForeign("is larger than drawers can be");
    m_shape.sizes.assign(sizes.begin(), sizes.begin() + rank);
    Hid const properties(Checked(H5Dget_create_plist(m_dataset), kDoing, path));
    ReadLayout(properties);
    H5D_fill_value_t fill;
    Checked(H5Pfill_value_defined(properties, &fill), kDoing, path);
    if (fill != H5D_FILL_VALUE_UNDEFINED)
        Checked(H5Pget_fill_value(properties, FileType(m_shape.typeKey), m_shape.initialValue.data()), kDoing, path);
}

void Hdf5Dataset::ReadLayout(hid_t properties)
{
    H5D_layout_t const layout = H5Pget_layout(properties);
    if ((layout != H5D_CHUNKED && layout != H5D_CONTIGUOUS) || H5Pget_external_count(properties) != 0)
        ThrowForeign("is neither chunked nor contiguous in the file");
    m_filtered = H5Pget_nfilters(properties) != 0;
    if (layout != H5D_CHUNKED)
        return;
    Sizes chunks;
    int const rank = static_cast<int>(
        Checked(H5Pget_chunk(properties, H5S_MAX_RANK, chunks.data()), "Cannot read the chunks of a dense drawer of", m_file->Path()));
    m_shape.chunkSizes.assign(chunks.begin(), chunks.begin() + rank);
}

void Hdf5Dataset::LinkTo(hid_t group, char const* name)
{
    Hdf5Guard const guard;
    std::string kept(name); // first: nobody would take back a name that is there when this fails
    Checked(H5Olink(m_dataset, group, name, H5P_DEFAULT, H5P_DEFAULT), "Cannot name a dense drawer of", m_file->Path());
    H5Iinc_ref(group);
    m_group = Hid(group);
    m_name = std::move(kept);
}

void Hdf5Dataset::TakePlaceOf(Hdf5Dataset& other)
{
    Hdf5Guard const guard;
    CopyAttributesOf(other.m_dataset);
    if (!other.m_group.IsValid())
        return;
    std::string const name = other.m_name;
    Checked(H5Ldelete(other.m_group, name.c_str(), H5P_DEFAULT), "Cannot replace a dense drawer of", m_file->Path());
    try {
        LinkTo(other.m_group, name.c_str());
    } catch (...) {
        H5Olink(other.m_dataset, other.m_group, name.c_str(), H5P_DEFAULT, H5P_DEFAULT);
        throw;
    }
}

void Hdf5Dataset::CopyAttributesOf(hid_t other)
{
    constexpr char kDoing[] = "Cannot copy the attributes of a dense drawer of";
    std::string const& path = m_file->Path();
    H5O_info_t info;
    Checked(H5Oget_info2(other, &info, H5O_INFO_NUM_ATTRS), kDoing, path);
    for (hsize_t i = 0; i < info.num_attrs; ++i) {
        Hid const source(Checked(H5Aopen_by_idx(other, ".", H5_INDEX_NAME, H5_ITER_INC, i, H5P_DEFAULT, H5P_DEFAULT), kDoing, path));
        std::string name(static_cast<std::size_t>(std::max<ssize_t>(H5Aget_name(source, 0, nullptr), 0)) + 1, '\0');
        Checked(H5Aget_name(source, name.size(), name.data()), kDoing, path);
        Hid const type(Checked(H5Aget_type(source), kDoing, path)), space(Checked(H5Aget_space(source), kDoing, path));
        Hid const target(Checked(H5Acreate2(m_dataset, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT), kDoing, path));
        std::vector<std::byte> value(H5Tget_size(type) * static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
        Checked(H5Aread(source, type, value.data()), kDoing, path);
        Checked(H5Awrite(target, type, value.data()), kDoing, path);
    }
}

namespace
{

struct Selection {
    Hid file;
    Hid memory;
};

Selection Select(hid_t dataset, std::span<Range const> ranges, char const* doing, std::string const& path)
{
    Sizes start, count;
    for (std::size_t d = 0; d < ranges.size(); ++d) {
        start[d] = static_cast<hsize_t>(ranges[d].first);
        count[d] = static_cast<hsize_t>(ranges[d].Count());
    }
    Selection result{Hid(Checked(H5Dget_space(dataset), doing, path)),
                     Hid(Checked(H5Screate_simple(static_cast<int>(ranges.size()), count.data(), nullptr), doing, path))};
    Checked(H5Sselect_hyperslab(result.file, H5S_SELECT_SET, start.data(), nullptr, count.data(), nullptr), doing, path);
    return result;
}

} // namespace

// For each chunk that is met HDF5 allocates what describes its part; it holds whole chunks that pass filters or are written for the first
// time.
std::size_t Hdf5Dataset::BytesToMove(std::span<Range const> ranges) const noexcept
{
    constexpr std::size_t kBytesPerChunk = 2048;
    if (m_shape.chunkSizes.empty())
        return Hdf5Guard::kReserve;
    std::size_t chunks = 1;
    for (std::size_t d = 0; d < ranges.size(); ++d)
        chunks *= static_cast<std::size_t>(ranges[d].last / m_shape.chunkSizes[d] - ranges[d].first / m_shape.chunkSizes[d] + 1);
    return Hdf5Guard::kReserve + chunks * kBytesPerChunk + 3 * ChunkBytes();
}

std::size_t Hdf5Dataset::ChunkBytes() const noexcept
{
    std::size_t bytes = static_cast<std::size_t>(KVOSimTypeKeySize(m_shape.typeKey));
    for (std::int64_t const size : m_shape.chunkSizes)
        bytes *= static_cast<std::size_t>(size);
    return bytes;
}

void Hdf5Dataset::Read(std::span<Range const> ranges, void* buffer)
{
    constexpr char kDoing[] = "Cannot read values of";
    Hdf5Guard const guard(BytesToMove(ranges));
    Selection const selection = Select(m_dataset, ranges, kDoing, m_file->Path());
    Checked(H5Dread(m_dataset, FileType(m_shape.typeKey), selection.memory, selection.file, H5P_DEFAULT, buffer), kDoing, m_file->Path());
}

void Hdf5Dataset::Write(std::span<Range const> ranges, void const* buffer)
{
    constexpr char kDoing[] = "Cannot write values to";
    Hdf5Guard const guard(BytesToMove(ranges));
    Selection const selection = Select(m_dataset, ranges, kDoing, m_file->Path());
    Checked(H5Dwrite(m_dataset, FileType(m_shape.typeKey), selection.memory, selection.file, H5P_DEFAULT, buffer), kDoing, m_file->Path());
}

void Hdf5Dataset::SetExtent(int dim, std::int64_t size)
{
    // What a chunk at a new edge holds beyond it is overwritten, by way of a copy of the chunk.
    bool const cuts = size < m_shape.sizes[static_cast<std::size_t>(dim)];
    Hdf5Guard const guard(Hdf5Guard::kReserve + (cuts ? 2 * ChunkBytes() : 0));
    Sizes sizes = Hdf5Sizes(m_shape.sizes);
    sizes[static_cast<std::size_t>(dim)] = static_cast<hsize_t>(size);
    Checked(H5Dset_extent(m_dataset, sizes.data()), "Cannot resize a dense drawer of", m_file->Path());
    m_shape.sizes[static_cast<std::size_t>(dim)] = size;
}

std::uint64_t Hdf5Dataset::WriteChunk(std::span<std::int64_t const> offset, void const* values, std::size_t bytes)
{
    Hdf5Guard const guard;
    Sizes const start = Hdf5Sizes(offset);
    Checked(H5Dwrite_chunk(m_dataset, H5P_DEFAULT, 0, start.data(), bytes, values), "Cannot write a new chunk to", m_file->Path());
    return m_file->ValuesAddress();
}

std::uint64_t Hdf5Dataset::TakeChunk(std::span<std::int64_t const> offset, void const* zeros, std::size_t bytes)
{
    Hdf5Guard const guard;
    struct Leaving {
        explicit Leaving(File& f) noexcept : file(f) { file.SetLeavingZeros(true); }
        ~Leaving() { file.SetLeavingZeros(false); }
        File& file;
    } const leaving(*m_file);
    return WriteChunk(offset, zeros, bytes);
}

std::optional<std::uint64_t> Hdf5Dataset::ChunkAddress(std::span<std::int64_t const> offset) const
{
    // HDF5's own question for an address goes through all chunks, and that for the size fails where there is none. Reading searches the
    // index, and leaves a chunk that does not exist alone.
    constexpr char kDoing[] = "Cannot find a chunk in";
    Hdf5Guard const guard;
    std::array<Range, H5S_MAX_RANK> first;
    std::transform(offset.begin(), offset.end(), first.begin(), [](std::int64_t at) { return Range{at, at}; });
    Selection const selection = Select(m_dataset, {first.data(), offset.size()}, kDoing, m_file->Path());
    struct Finding {
        explicit Finding(File& f) noexcept : file(f) { file.SetFinding(true); }
        ~Finding() { file.SetFinding(false); }
        File& file;
    } const finding(*m_file);
    std::array<std::byte, 8> ignored;
    Checked(H5Dread(m_dataset, FileType(m_shape.typeKey), selection.memory, selection.file, H5P_DEFAULT, ignored.data()), kDoing,
            m_file->Path());
    std::uint64_t const address = m_file->ValuesAddress();
    return address == UINT64_MAX ? std::nullopt : std::optional<std::uint64_t>(address);
}

std::optional<std::uint64_t> Hdf5Dataset::ContiguousAddress() const
{
    Hdf5Guard const guard;
    haddr_t const address = H5Dget_offset(m_dataset);
    H5Eclear2(H5E_DEFAULT);
    return address == HADDR_UNDEF ? std::nullopt : std::optional<std::uint64_t>(address);
}

} // namespace simdb
