#include "SimWorkload.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace workload
{

namespace
{

using simdb::Checked;
using simdb::Hid;

constexpr hsize_t kChunk = 40; // of doubles, squared: 12.8 KB
constexpr hsize_t kEdge = 2 * kChunk;
constexpr char const* kDoing = "Cannot run the workload on";

double Value(int number, std::size_t i)
{
    return number * 1e6 + static_cast<double>(i);
}

std::vector<double> Values(int number, std::size_t count)
{
    std::vector<double> values(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = Value(number, i);
    return values;
}

void Require(herr_t result, simdb::File const& file)
{
    if (result < 0)
        simdb::ThrowHdf5(kDoing, file.Path());
}

void SetNumber(simdb::File const& file, hid_t object, int number)
{
    if (H5Aexists(object, "number") > 0) {
        Hid const attribute(Checked(H5Aopen(object, "number", H5P_DEFAULT), kDoing, file.Path()));
        Require(H5Awrite(attribute, H5T_NATIVE_INT, &number), file);
        return;
    }
    Hid const space(H5Screate(H5S_SCALAR));
    Hid const attribute(Checked(H5Acreate2(object, "number", H5T_STD_I32LE, space, H5P_DEFAULT, H5P_DEFAULT), kDoing, file.Path()));
    Require(H5Awrite(attribute, H5T_NATIVE_INT, &number), file);
}

int Number(hid_t object)
{
    int number = 0;
    if (H5Aexists(object, "number") > 0) {
        Hid const attribute(H5Aopen(object, "number", H5P_DEFAULT));
        EXPECT_GE(H5Aread(attribute, H5T_NATIVE_INT, &number), 0);
    }
    return number;
}

Hid MakeDataset(simdb::File const& file, hid_t group, char const* name, hsize_t rows)
{
    hsize_t const sizes[2] = {rows, kEdge}, unlimited[2] = {H5S_UNLIMITED, H5S_UNLIMITED}, chunk[2] = {kChunk, kChunk};
    Hid const space(H5Screate_simple(2, sizes, unlimited));
    Hid const properties(H5Pcreate(H5P_DATASET_CREATE));
    double const initial = -1.0;
    Require(H5Pset_chunk(properties, 2, chunk), file);
    Require(H5Pset_fill_value(properties, H5T_NATIVE_DOUBLE, &initial), file);
    return Hid(Checked(H5Dcreate2(group, name, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, properties, H5P_DEFAULT), kDoing, file.Path()));
}

// The chunks of row `chunkRow`.
void WriteChunks(simdb::File const& file, hid_t dataset, hsize_t chunkRow, int number)
{
    auto const values = Values(number, kChunk * kChunk);
    for (hsize_t column = 0; column < kEdge; column += kChunk) {
        hsize_t const offset[2] = {chunkRow * kChunk, column};
        Require(H5Dwrite_chunk(dataset, H5P_DEFAULT, 0, offset, values.size() * sizeof(double), values.data()), file);
    }
}

void CheckChunks(hid_t dataset, hsize_t chunkRow, int number)
{
    auto const expected = Values(number, kChunk * kChunk);
    for (hsize_t column = 0; column < kEdge; column += kChunk) {
        hsize_t const start[2] = {chunkRow * kChunk, column}, count[2] = {kChunk, kChunk};
        Hid const space(H5Dget_space(dataset)), memory(H5Screate_simple(2, count, nullptr));
        ASSERT_GE(H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr), 0);
        std::vector<double> values(expected.size());
        ASSERT_GE(H5Dread(dataset, H5T_NATIVE_DOUBLE, memory, space, H5P_DEFAULT, values.data()), 0);
        EXPECT_TRUE(values == expected) << "chunk at " << start[0] << ", " << start[1];
    }
}

void Remove(simdb::File const& file, std::string const& name)
{
    if (H5Lexists(file.Hdf5(), name.c_str(), H5P_DEFAULT) > 0)
        Require(H5Ldelete(file.Hdf5(), name.c_str(), H5P_DEFAULT), file);
}

constexpr hsize_t kPassing = 500;

void MakePassing(simdb::File const& file, std::string const& name, int number)
{
    Hid const space(H5Screate_simple(1, &kPassing, nullptr));
    Hid const dataset(Checked(H5Dcreate2(file.Hdf5(), name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                              kDoing, file.Path()));
    Require(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, Values(number, kPassing).data()), file);
}

void CheckPassing(simdb::File const& file, int number)
{
    Hid const dataset(H5Dopen2(file.Hdf5(), ("passing" + std::to_string(number)).c_str(), H5P_DEFAULT));
    std::vector<double> values(kPassing);
    EXPECT_GE(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
    EXPECT_TRUE(values == Values(number, kPassing));
}

} // namespace

void Change(simdb::File& file, int number)
{
    simdb::SilentErrors const silent;
    hid_t const root = file.Hdf5();
    Remove(file, "passing" + std::to_string(number - 1));
    std::string const name = "commit" + std::to_string(number);
    if (H5Lexists(root, name.c_str(), H5P_DEFAULT) == 0) { // it is there when a commit is tried again
        Hid const group(Checked(H5Gcreate2(root, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), kDoing, file.Path()));
    }
    Hid const group(Checked(H5Gopen2(root, name.c_str(), H5P_DEFAULT), kDoing, file.Path()));
    SetNumber(file, group, number);
    Hid const own = H5Lexists(group, "values", H5P_DEFAULT) > 0 ? Hid(Checked(H5Dopen2(group, "values", H5P_DEFAULT), kDoing, file.Path()))
                                                                : MakeDataset(file, group, "values", kEdge);
    WriteChunks(file, own, 1, number);

    Hid const shared = H5Lexists(root, "shared", H5P_DEFAULT) > 0 ? Hid(Checked(H5Dopen2(root, "shared", H5P_DEFAULT), kDoing, file.Path()))
                                                                  : MakeDataset(file, root, "shared", 0);
    hsize_t const sizes[2] = {static_cast<hsize_t>(number) * kChunk, kEdge};
    Require(H5Dset_extent(shared, sizes), file);
    WriteChunks(file, shared, static_cast<hsize_t>(number) - 1, number);
    Hid const rootGroup(Checked(H5Gopen2(root, "/", H5P_DEFAULT), kDoing, file.Path()));
    SetNumber(file, rootGroup, number);
    std::string const passing = "passing" + std::to_string(number);
    Remove(file, passing);
    MakePassing(file, passing, number);
}

std::string FolderWithoutDisk()
{
    char const* const memory = "/dev/shm";
    return access(memory, R_OK | W_OK | X_OK) == 0 ? memory : std::filesystem::temp_directory_path().string();
}

int CheckedCommits(simdb::File& file)
{
    simdb::SilentErrors const silent;
    Hid const root(H5Gopen2(file.Hdf5(), "/", H5P_DEFAULT));
    int const commits = Number(root);
    H5G_info_t info;
    EXPECT_GE(H5Gget_info(root, &info), 0);
    EXPECT_EQ(info.nlinks, commits == 0 ? 0u : static_cast<hsize_t>(commits) + 2) << "something of a later commit is there";
    if (commits > 0)
        CheckPassing(file, commits);
    Hid const shared(commits > 0 ? H5Dopen2(root, "shared", H5P_DEFAULT) : H5I_INVALID_HID);
    for (int number = 1; number <= commits; ++number) {
        SCOPED_TRACE("commit " + std::to_string(number));
        Hid const group(H5Gopen2(root, ("commit" + std::to_string(number)).c_str(), H5P_DEFAULT));
        EXPECT_EQ(Number(group), number);
        Hid const own(H5Dopen2(group, "values", H5P_DEFAULT));
        CheckChunks(own, 1, number);
        CheckChunks(shared, static_cast<hsize_t>(number) - 1, number);
    }
    return commits;
}

} // namespace workload
