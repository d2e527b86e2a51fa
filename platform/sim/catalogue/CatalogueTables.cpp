#include "CatalogueTables.h"

#include "ChunkIndex.h"
#include "Crc32c.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>

#include <sys/stat.h>

namespace simdb
{

namespace
{

constexpr char const* kReading = "Cannot read the catalogue of the database";
constexpr char const* kWriting = "Cannot write the catalogue of the database";
constexpr char const* kNumbersName = "set_members";
// A small database stays small, and a commit of a thousand matrices touches a few chunks of each table.
constexpr std::size_t kChunkBytes = 16384;
// Small sets are gathered to pieces of this many numbers, since a transfer of HDF5 costs as much as copying some thousand of them.
constexpr std::size_t kNumbersPerWrite = 262144;

struct Field {
    char const* name;
    std::size_t offset;
    hid_t type;
};

Hid RowType(std::size_t bytes, std::initializer_list<Field> fields)
{
    Hid type(H5Tcreate(H5T_COMPOUND, bytes));
    for (Field const& field : fields)
        if (!type.IsValid() || H5Tinsert(type, field.name, field.offset, field.type) < 0)
            return {};
    return type;
}

template<class Row>
struct Description;

template<>
struct Description<CollectionRow> {
    static constexpr char const* kName = "collections";
    static Hid Type()
    {
        return RowType(sizeof(CollectionRow), {{"index", offsetof(CollectionRow, index), H5T_STD_I32LE},
                                               {"members", offsetof(CollectionRow, members), H5T_STD_I32LE},
                                               {"type", offsetof(CollectionRow, type), H5T_STD_I32LE}});
    }
};

template<>
struct Description<SetRow> {
    static constexpr char const* kName = "sets";
    static Hid Type()
    {
        return RowType(sizeof(SetRow), {{"index", offsetof(SetRow, index), H5T_STD_I32LE},
                                        {"collection", offsetof(SetRow, collection), H5T_STD_I32LE},
                                        {"first", offsetof(SetRow, first), H5T_STD_I64LE},
                                        {"count", offsetof(SetRow, count), H5T_STD_I64LE}});
    }
};

template<>
struct Description<DistributionRow> {
    static constexpr char const* kName = "distributions";
    static Hid Type()
    {
        return RowType(sizeof(DistributionRow), {{"index", offsetof(DistributionRow, index), H5T_STD_I32LE},
                                                 {"range_type", offsetof(DistributionRow, rangeType), H5T_STD_I32LE},
                                                 {"type", offsetof(DistributionRow, type), H5T_STD_I32LE},
                                                 {"dimensions", offsetof(DistributionRow, dimensions), H5T_STD_I32LE}});
    }
};

template<>
struct Description<GridRow> {
    static constexpr char const* kName = "grids";
    static Hid Type()
    {
        return RowType(sizeof(GridRow), {{"distribution", offsetof(GridRow, distribution), H5T_STD_I32LE},
                                         {"dimension", offsetof(GridRow, dimension), H5T_STD_I32LE},
                                         {"collection", offsetof(GridRow, collection), H5T_STD_I32LE},
                                         {"color", offsetof(GridRow, color), H5T_STD_I32LE}});
    }
};

template<>
struct Description<DrawerRow> {
    static constexpr char const* kName = "drawers";
    static Hid Type()
    {
        return RowType(sizeof(DrawerRow), {{"distribution", offsetof(DrawerRow, distribution), H5T_STD_I32LE},
                                           {"drawer", offsetof(DrawerRow, drawer), H5T_STD_I32LE},
                                           {"kind", offsetof(DrawerRow, kind), H5T_STD_I32LE},
                                           {"dimension", offsetof(DrawerRow, dimension), H5T_STD_I32LE},
                                           {"set", offsetof(DrawerRow, set), H5T_STD_I32LE}});
    }
};

template<>
struct Description<ChecksumRow> {
    static constexpr char const* kName = "checksums";
    static Hid Type()
    {
        return RowType(sizeof(ChecksumRow), {{"distribution", offsetof(ChecksumRow, distribution), H5T_STD_I32LE},
                                             {"drawer", offsetof(ChecksumRow, drawer), H5T_STD_I32LE},
                                             {"pieces", offsetof(ChecksumRow, pieces), H5T_STD_I64LE},
                                             {"sum", offsetof(ChecksumRow, sum), H5T_STD_U64LE},
                                             {"file", offsetof(ChecksumRow, file), H5T_STD_U32LE},
                                             {"check", offsetof(ChecksumRow, check), H5T_STD_U32LE}});
    }
};

// All of a row but its own check, behind the rows before it.
std::uint32_t CheckOf(ChecksumRow const& row, std::uint32_t before) noexcept
{
    return Crc32c(&row, offsetof(ChecksumRow, check), before);
}

template<class Row>
Hid CheckedType(File const& file, char const* doing)
{
    Hid type = Description<Row>::Type();
    if (!type.IsValid())
        ThrowHdf5(doing, file.Path());
    return type;
}

std::int64_t FileBytes(File const& file)
{
    struct stat status = {};
    if (fstat(file.Descriptor(), &status) != 0)
        return 0;
    return status.st_size;
}

// What HDF5 may take to move that many bytes of a table: it describes each chunk for itself.
std::size_t BytesToMove(std::uint64_t tableBytes) noexcept
{
    constexpr std::size_t kBytesPerChunk = 2048;
    return Hdf5Guard::kReserve + tableBytes / kChunkBytes * kBytesPerChunk;
}

} // namespace

// Opens a table that exists; one that does not has no rows.
Hid CatalogueTables::OpenTable(Table& table, char const* name, hid_t type, std::size_t rowBytes)
{
    htri_t const exists = H5Lexists(m_group, name, H5P_DEFAULT);
    if (exists < 0)
        ThrowHdf5(kReading, m_file->Path());
    if (exists == 0)
        return {};
    Hid dataset(Checked(H5Dopen2(m_group, name, H5P_DEFAULT), kReading, m_file->Path()));
    Hid const fileType(Checked(H5Dget_type(dataset), kReading, m_file->Path()));
    Hid const space(Checked(H5Dget_space(dataset), kReading, m_file->Path()));
    hsize_t rows = 0;
    if (H5Tequal(fileType, type) <= 0 || H5Sget_simple_extent_ndims(space) != 1 || H5Sget_simple_extent_dims(space, &rows, nullptr) != 1)
        ThrowReason(KVOSimException::Kind::Damaged, kReading, m_file->Path(),
                    std::string("the table ") + name + " is not of the documented form");
    // No row takes less than its bytes, so a number of rows beyond the file is damage, and not to be allocated.
    if (rows > static_cast<std::uint64_t>(FileBytes(*m_file)) / rowBytes)
        ThrowReason(KVOSimException::Kind::Damaged, kReading, m_file->Path(),
                    std::string("the table ") + name + " claims more rows than the file can hold");
    table.rows = table.written = static_cast<std::int64_t>(rows);
    return dataset;
}

void CatalogueTables::Read(Table& table, hid_t type, std::int64_t first, std::int64_t count, void* rows)
{
    if (count == 0)
        return;
    Hdf5Guard const guard(BytesToMove(static_cast<std::uint64_t>(count) * H5Tget_size(type)));
    hsize_t const start = static_cast<hsize_t>(first), extent = static_cast<hsize_t>(count);
    Hid const fileSpace(Checked(H5Dget_space(table.dataset), kReading, m_file->Path()));
    Hid const memorySpace(Checked(H5Screate_simple(1, &extent, nullptr), kReading, m_file->Path()));
    if (H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, &start, nullptr, &extent, nullptr) < 0 ||
        H5Dread(table.dataset, type, memorySpace, fileSpace, H5P_DEFAULT, rows) < 0)
        ThrowHdf5(kReading, m_file->Path());
}

void CatalogueTables::Write(Table& table, hid_t type, std::int64_t first, std::int64_t count, void const* rows)
{
    if (count == 0)
        return;
    Hdf5Guard const guard(BytesToMove(static_cast<std::uint64_t>(count) * H5Tget_size(type)));
    hsize_t const start = static_cast<hsize_t>(first), extent = static_cast<hsize_t>(count);
    Hid const fileSpace(Checked(H5Dget_space(table.dataset), kWriting, m_file->Path()));
    Hid const memorySpace(Checked(H5Screate_simple(1, &extent, nullptr), kWriting, m_file->Path()));
    if (H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, &start, nullptr, &extent, nullptr) < 0 ||
        H5Dwrite(table.dataset, type, memorySpace, fileSpace, H5P_DEFAULT, rows) < 0)
        ThrowHdf5(kWriting, m_file->Path());
}

// Makes the table as long as it is going to be; it comes into being with its first row.
void CatalogueTables::SetRows(Table& table, char const* name, hid_t type, std::size_t rowBytes, std::int64_t rows)
{
    if (rows == table.written)
        return;
    hsize_t const extent = static_cast<hsize_t>(rows);
    if (table.dataset.IsValid()) {
        if (H5Dset_extent(table.dataset, &extent) < 0)
            ThrowHdf5(kWriting, m_file->Path());
    } else {
        hsize_t const unlimited = H5S_UNLIMITED, chunk = kChunkBytes / rowBytes;
        Hid const space(Checked(H5Screate_simple(1, &extent, &unlimited), kWriting, m_file->Path()));
        Hid const properties(Checked(H5Pcreate(H5P_DATASET_CREATE), kWriting, m_file->Path()));
        if (H5Pset_chunk(properties, 1, &chunk) < 0 || H5Pset_obj_track_times(properties, false) < 0)
            ThrowHdf5(kWriting, m_file->Path());
        table.dataset =
            Hid(Checked(H5Dcreate2(m_group, name, type, space, H5P_DEFAULT, properties, H5P_DEFAULT), kWriting, m_file->Path()));
    }
    table.written = rows;
}

template<class Row>
void CatalogueTables::LoadTable(Table& table, std::vector<Row>& rows)
{
    Hid const type = CheckedType<Row>(*m_file, kReading);
    table.dataset = OpenTable(table, Description<Row>::kName, type, sizeof(Row));
    rows.resize(static_cast<std::size_t>(table.rows));
    Read(table, type, 0, table.rows, rows.data());
    table.crc = table.writtenCrc = Crc32c(rows.data(), rows.size() * sizeof(Row));
}

template<class Row>
void CatalogueTables::AppendTable(Table& table, std::vector<Row> const& rows)
{
    std::int64_t const count = static_cast<std::int64_t>(rows.size());
    table.writtenCrc = Crc32c(rows.data(), rows.size() * sizeof(Row), table.crc);
    if (count == 0 && table.written == table.rows)
        return;
    Hid const type = CheckedType<Row>(*m_file, kWriting);
    SetRows(table, Description<Row>::kName, type, sizeof(Row), table.rows + count);
    Write(table, type, table.rows, count, rows.data());
}

CatalogueRows CatalogueTables::Load()
{
    Hdf5Guard const guard;
    CatalogueRows rows;
    LoadTable(m_collections, rows.collections);
    LoadTable(m_sets, rows.sets);
    LoadTable(m_distributions, rows.distributions);
    LoadTable(m_grids, rows.grids);
    LoadTable(m_drawers, rows.drawers);
    m_numbers.dataset = OpenTable(m_numbers, kNumbersName, H5T_STD_I32LE, sizeof(std::int32_t));
    if (m_hasChecksums) {
        LoadTable(m_checksums, rows.checksums);
        CheckLoaded(rows.checksums);
    }
    return rows;
}

ChecksumRow CatalogueTables::SumOfTables() const noexcept
{
    ChecksumRow sum{ChecksumRow::kTables, 0, 0, 0, 0, 0};
    for (Table const* const table : {&m_collections, &m_sets, &m_distributions, &m_grids, &m_drawers}) {
        sum.pieces += table->written;
        sum.sum = Hashed(Hashed(sum.sum, static_cast<std::uint64_t>(table->written)), table->writtenCrc);
    }
    return sum;
}

void CatalogueTables::CheckLoaded(std::vector<ChecksumRow> const& checksums)
{
    ChecksumRow last{};
    std::uint32_t check = 0;
    for (ChecksumRow const& row : checksums) {
        if (row.check != (check = CheckOf(row, check)))
            ThrowReason(KVOSimException::Kind::Damaged, kReading, m_file->Path(),
                        "the file is damaged: the table of its checksums does not fit its own");
        if (row.distribution == ChecksumRow::kTables)
            last = row;
    }
    m_checksums.crc = m_checksums.writtenCrc = check;
    ChecksumRow const now = SumOfTables();
    if (now.pieces != last.pieces || (now.pieces > 0 && now.sum != last.sum))
        ThrowReason(KVOSimException::Kind::Damaged, kReading, m_file->Path(), "the file is damaged: its tables do not fit their checksum");
}

std::vector<int> CatalogueTables::LoadNumbers(std::int64_t first, std::int64_t count)
{
    std::vector<int> numbers(static_cast<std::size_t>(count));
    Hdf5Guard const guard;
    Read(m_numbers, H5T_STD_I32LE, first, count, numbers.data());
    return numbers;
}

void CatalogueTables::AppendNumbers(std::span<std::shared_ptr<std::vector<int> const> const> numbers)
{
    std::int64_t end = m_numbers.rows;
    for (auto const& set : numbers)
        end += static_cast<std::int64_t>(set->size());
    SetRows(m_numbers, kNumbersName, H5T_STD_I32LE, sizeof(std::int32_t), end);

    std::int64_t first = m_numbers.rows;
    std::vector<int> gathered;
    auto const flush = [&] {
        Write(m_numbers, H5T_STD_I32LE, first, static_cast<std::int64_t>(gathered.size()), gathered.data());
        first += static_cast<std::int64_t>(gathered.size());
        gathered.clear();
    };
    for (auto const& set : numbers) {
        if (gathered.size() + set->size() > kNumbersPerWrite)
            flush();
        if (set->size() > kNumbersPerWrite) {
            Write(m_numbers, H5T_STD_I32LE, first, static_cast<std::int64_t>(set->size()), set->data());
            first += static_cast<std::int64_t>(set->size());
        } else {
            gathered.insert(gathered.end(), set->begin(), set->end());
        }
    }
    flush();
}

void CatalogueTables::Append(CatalogueRows const& rows, std::span<std::shared_ptr<std::vector<int> const> const> numbers)
{
    Hdf5Guard const guard;
    AppendNumbers(numbers);
    AppendTable(m_collections, rows.collections);
    AppendTable(m_sets, rows.sets);
    AppendTable(m_distributions, rows.distributions);
    AppendTable(m_grids, rows.grids);
    AppendTable(m_drawers, rows.drawers);
    if (m_hasChecksums)
        AppendChecksums(rows.checksums);
}

void CatalogueTables::AppendChecksums(std::vector<ChecksumRow> rows)
{
    auto const tables = {&m_collections, &m_sets, &m_distributions, &m_grids, &m_drawers};
    if (std::ranges::any_of(tables, [](Table const* table) { return table->written != table->rows; }))
        rows.push_back(SumOfTables());
    std::uint32_t check = m_checksums.crc;
    for (ChecksumRow& row : rows)
        row.check = check = CheckOf(row, check);
    AppendTable(m_checksums, rows);
    m_checksums.writtenCrc = check;
}

void CatalogueTables::ForEachTable(std::function<void(char const*, hid_t)> const& visit) const
{
    std::pair<char const*, Table const*> const tables[] = {{Description<CollectionRow>::kName, &m_collections},
                                                           {Description<SetRow>::kName, &m_sets},
                                                           {kNumbersName, &m_numbers},
                                                           {Description<DistributionRow>::kName, &m_distributions},
                                                           {Description<GridRow>::kName, &m_grids},
                                                           {Description<DrawerRow>::kName, &m_drawers},
                                                           {Description<ChecksumRow>::kName, &m_checksums}};
    for (auto const& [name, table] : tables)
        if (table->dataset.IsValid())
            visit(name, table->dataset);
}

void CatalogueTables::Accept() noexcept
{
    for (Table* const table : {&m_collections, &m_sets, &m_numbers, &m_distributions, &m_grids, &m_drawers, &m_checksums}) {
        table->rows = table->written;
        table->crc = table->writtenCrc;
    }
}

} // namespace simdb
