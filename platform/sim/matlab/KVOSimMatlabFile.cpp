#include "KVOSimMatlabFile.h"

#include "Hdf5.h"

#include <new>
#include <string>
#include <vector>

using simdb::Checked;
using simdb::Hdf5Guard;
using simdb::Hid;

namespace
{

constexpr char kOpening[] = "Cannot open the .mat file";
constexpr char kReading[] = "Cannot read the .mat file";
constexpr std::size_t kChunkCache = std::size_t{32} << 20; // compressed chunks are unpacked once for the columns that they share
constexpr std::size_t kForChunks = kChunkCache + Hdf5Guard::kReserve;

std::string TextAttribute(hid_t object, char const* name)
{
    if (H5Aexists(object, name) <= 0)
        return {};
    Hid const attribute(H5Aopen(object, name, H5P_DEFAULT)), type(H5Aget_type(attribute));
    std::size_t const bytes = type.IsValid() ? H5Tget_size(type) : 0;
    if (bytes == 0 || bytes > 64 || H5Tget_class(type) != H5T_STRING || H5Tis_variable_str(type) > 0)
        return {};
    std::string text(bytes, '\0');
    Hid const space(H5Aget_space(attribute));
    if (H5Sget_simple_extent_npoints(space) != 1 || H5Aread(attribute, type, text.data()) < 0)
        return {};
    return text.substr(0, text.find('\0'));
}

// A whole number that is an attribute; -1 when there is none.
std::int64_t NumberAttribute(hid_t object, char const* name)
{
    std::int64_t number = -1;
    if (H5Aexists(object, name) <= 0)
        return -1;
    Hid const attribute(H5Aopen(object, name, H5P_DEFAULT)), space(H5Aget_space(attribute));
    if (H5Sget_simple_extent_npoints(space) != 1 || H5Aread(attribute, H5T_NATIVE_INT64, &number) < 0)
        return -1;
    return number;
}

bool IsNumeric(std::string const& matlabClass)
{
    for (char const* one : {"double", "single", "logical", "int8", "int16", "int32", "int64", "uint8", "uint16", "uint32", "uint64"})
        if (matlabClass == one)
            return true;
    return false;
}

std::vector<hsize_t> ShapeOf(hid_t dataset)
{
    Hid const space(H5Dget_space(dataset));
    int const rank = H5Sget_simple_extent_ndims(space);
    std::vector<hsize_t> shape(rank > 0 ? static_cast<std::size_t>(rank) : 0);
    H5Sget_simple_extent_dims(space, shape.data(), nullptr);
    return shape;
}

bool IsComplex(hid_t dataset)
{
    Hid const type(H5Dget_type(dataset));
    return H5Tget_class(type) == H5T_COMPOUND;
}

std::int64_t LengthOf(hid_t list)
{
    std::int64_t length = list >= 0 ? 1 : 0; // MATLAB writes a list as one dimension, other programs as a column
    for (hsize_t const size : list >= 0 ? ShapeOf(list) : std::vector<hsize_t>())
        length *= static_cast<std::int64_t>(size);
    return length;
}

Hid OpenList(hid_t group, char const* name)
{
    return Hid(H5Lexists(group, name, H5P_DEFAULT) > 0 ? H5Dopen2(group, name, H5P_DEFAULT) : H5I_INVALID_HID);
}

herr_t TakeName(hid_t, char const* name, H5L_info_t const*, void* target)
try {
    static_cast<std::vector<std::string>*>(target)->emplace_back(name);
    return 0;
} catch (std::bad_alloc const&) { // no exception goes through HDF5
    return -1;
}

} // namespace

struct KVOSimMatlabFile::Content {
    /// The variable and what is read of it. @return false where it is no matrix
    bool Open(std::string const& name, KVOSimMatlabVariable& variable)
    {
        starts.Reset();
        rows.Reset();
        values.Reset();
        Hid const object(H5Oopen(file, name.c_str(), H5P_DEFAULT));
        variable = {};
        variable.name = atr_String(name.c_str());
        if (!object.IsValid() || !IsNumeric(TextAttribute(object, "MATLAB_class")))
            return false;
        return H5Iget_type(object) == H5I_GROUP ? OpenSparse(object, variable) : OpenDense(name, variable);
    }

    bool OpenSparse(hid_t group, KVOSimMatlabVariable& variable)
    {
        variable.rows = NumberAttribute(group, "MATLAB_sparse");
        starts = OpenList(group, "jc");
        rows = OpenList(group, "ir");
        values = OpenList(group, "data"); // it and the rows are left out of a matrix without entries
        if (variable.rows < 0 || !starts.IsValid() || LengthOf(starts) < 1)
            return false;
        variable.isSparse = true;
        variable.columns = LengthOf(starts) - 1;
        variable.entries = LengthOf(values);
        variable.isComplex = values.IsValid() && IsComplex(values);
        return LengthOf(rows) == variable.entries;
    }

    bool OpenDense(std::string const& name, KVOSimMatlabVariable& variable)
    {
        Hid const access(H5Pcreate(H5P_DATASET_ACCESS));
        H5Pset_chunk_cache(access, H5D_CHUNK_CACHE_NSLOTS_DEFAULT, kChunkCache, H5D_CHUNK_CACHE_W0_DEFAULT);
        values = Hid(H5Dopen2(file, name.c_str(), access));
        if (!values.IsValid())
            return false;
        std::vector<hsize_t> shape = ShapeOf(values);
        if (NumberAttribute(values, "MATLAB_empty") > 0)
            shape.assign(2, 0); // the dataset holds the sizes, one of which is 0
        if (shape.size() != 2)
            return false;
        variable.columns = static_cast<std::int64_t>(shape[0]); // the last dimension of HDF5 is that which varies fastest
        variable.rows = static_cast<std::int64_t>(shape[1]);
        variable.entries = variable.rows * variable.columns;
        variable.isComplex = IsComplex(values);
        return true;
    }

    void Read(hid_t dataset, hid_t type, std::vector<hsize_t> const& first, std::vector<hsize_t> const& count, void* target) const
    {
        Hid const space(Checked(H5Dget_space(dataset), kReading, path));
        hsize_t all = 1;
        for (hsize_t const size : count)
            all *= size;
        Hid const memory(Checked(H5Screate_simple(1, &all, nullptr), kReading, path));
        Checked(H5Sselect_hyperslab(space, H5S_SELECT_SET, first.data(), nullptr, count.data(), nullptr), kReading, path);
        Checked(H5Dread(dataset, type, memory, space, H5P_DEFAULT, target), kReading, path);
    }

    // A range of a list, which other programs write as a column of one row.
    void ReadList(hid_t list, hid_t type, std::int64_t first, std::int64_t count, void* target) const
    {
        std::vector<hsize_t> const shape = ShapeOf(list);
        std::vector<hsize_t> begin(shape.size(), 0), size(shape.size(), 1);
        std::size_t along = 0;
        while (along + 1 < shape.size() && shape[along] == 1)
            ++along;
        if (shape.empty() || shape[along] < static_cast<hsize_t>(first + count))
            simdb::ThrowReason(KVOSimException::Kind::Damaged, kReading, path, "an array of a sparse matrix is shorter than it says");
        begin[along] = static_cast<hsize_t>(first);
        size[along] = static_cast<hsize_t>(count);
        Read(list, type, begin, size, target);
    }

    /// Of numbers in memory, one part of those that are complex.
    Hid TypeInMemory(bool imaginary) const
    {
        if (!IsComplex(values))
            return Hid(H5Tcopy(H5T_NATIVE_DOUBLE));
        Hid part(Checked(H5Tcreate(H5T_COMPOUND, sizeof(double)), kReading, path));
        Checked(H5Tinsert(part, imaginary ? "imag" : "real", 0, H5T_NATIVE_DOUBLE), kReading, path);
        return part;
    }

    std::string path;
    Hid file;
    Hid starts;
    Hid rows;
    Hid values;
};

KVOSimMatlabFile::KVOSimMatlabFile(char const* path) : m_content(std::make_unique<Content>())
{
    Hdf5Guard const guard;
    m_content->path = path != nullptr ? path : "";
    m_content->file = Hid(Checked(H5Fopen(m_content->path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), kOpening, m_content->path));
}

KVOSimMatlabFile::~KVOSimMatlabFile() = default;

KVOSimArray<KVOSimMatlabVariable> KVOSimMatlabFile::Variables() const
{
    Hdf5Guard const guard;
    std::vector<std::string> names;
    Checked(H5Literate(m_content->file, H5_INDEX_NAME, H5_ITER_INC, nullptr, TakeName, &names), kReading, m_content->path);
    KVOSimArray<KVOSimMatlabVariable> variables;
    for (std::string const& name : names) {
        Content each{m_content->path, Hid(H5Freopen(m_content->file)), {}, {}, {}};
        if (KVOSimMatlabVariable variable; each.Open(name, variable))
            variables.Append(variable);
    }
    return variables;
}

KVOSimMatlabVariable KVOSimMatlabFile::Select(char const* name)
{
    Hdf5Guard const guard;
    KVOSimMatlabVariable variable;
    if (!m_content->Open(name != nullptr ? name : "", variable))
        simdb::ThrowReason(KVOSimException::Kind::NotFound, kReading, m_content->path,
                           std::string("it holds no matrix of numbers \"") + (name != nullptr ? name : "") + "\"");
    return variable;
}

void KVOSimMatlabFile::ReadColumnStarts(std::int64_t first, std::int64_t count, std::int64_t* starts) const
{
    Hdf5Guard const guard(kForChunks);
    m_content->ReadList(m_content->starts, H5T_NATIVE_INT64, first, count, starts);
}

void KVOSimMatlabFile::ReadRows(std::int64_t first, std::int64_t count, std::int64_t* rows) const
{
    Hdf5Guard const guard(kForChunks);
    m_content->ReadList(m_content->rows, H5T_NATIVE_INT64, first, count, rows);
}

void KVOSimMatlabFile::ReadValues(std::int64_t first, std::int64_t count, bool imaginary, double* values) const
{
    Hdf5Guard const guard(kForChunks);
    m_content->ReadList(m_content->values, m_content->TypeInMemory(imaginary), first, count, values);
}

void KVOSimMatlabFile::ReadColumn(std::int64_t column, std::int64_t first, std::int64_t count, bool imaginary, double* values) const
{
    Hdf5Guard const guard(kForChunks);
    m_content->Read(m_content->values, m_content->TypeInMemory(imaginary), {static_cast<hsize_t>(column), static_cast<hsize_t>(first)},
                    {1, static_cast<hsize_t>(count)}, values);
}
