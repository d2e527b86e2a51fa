#include "SimWorkload.h"

#include "DrawerOracle.h"
#include "SimJournal.h"

namespace workload
{

namespace
{

using simdb::Hid;

constexpr std::int64_t kChunk = 40; // of doubles, squared: 12.8 KB
constexpr std::int64_t kEdge = 2 * kChunk;
constexpr std::int64_t kPassing = 500;

std::vector<double> Values(int number, std::int64_t count)
{
    std::vector<double> values(static_cast<std::size_t>(count));
    std::iota(values.begin(), values.end(), number * 1e6);
    return values;
}

bool Exists(simdb::File const& file, std::string const& name)
{
    return H5Lexists(file.Hdf5(), name.c_str(), H5P_DEFAULT) > 0;
}

// What is there when a commit is tried again is used again.
std::shared_ptr<simdb::DenseDrawer> Drawer(FilePointer const& file, std::string const& name, simdb::DenseShape const& shape)
{
    if (Exists(*file, name))
        return OpenDrawer(file, name);
    auto drawer = CreateDrawer(file, shape);
    drawer->LinkTo(file->Hdf5(), name.c_str());
    return drawer;
}

Ranges ChunkRow(std::int64_t row)
{
    return {{row * kChunk, (row + 1) * kChunk - 1}, {0, kEdge - 1}};
}

void Check(FilePointer const& file, std::string const& name, Ranges const& ranges, std::vector<double> const& expected)
{
    std::vector<double> values(expected.size());
    OpenDrawer(file, name)->Read(ranges, values.data());
    EXPECT_TRUE(values == expected) << name;
}

void Remove(simdb::File const& file, std::string const& name)
{
    if (Exists(file, name) && H5Ldelete(file.Hdf5(), name.c_str(), H5P_DEFAULT) < 0)
        simdb::ThrowHdf5("Cannot run the workload on", file.Path());
}

} // namespace

void Change(FilePointer const& file, int number)
{
    simdb::Hdf5Guard const guard;
    std::string const name = "commit" + std::to_string(number), passing = "passing" + std::to_string(number);
    Remove(*file, "passing" + std::to_string(number - 1));
    if (!Exists(*file, name))
        Hid(simdb::Checked(H5Gcreate2(file->Hdf5(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), "Cannot change", file->Path()));
    std::vector<double> const values = Values(number, kChunk * kEdge);
    auto const own = Drawer(file, name + "/values", {{kEdge, kEdge}, {kChunk, kChunk}});
    if (number % 4 == 2)
        file->MarkForWriters();
    own->Write(ChunkRow(1), values.data());

    auto const shared = Drawer(file, "shared", {{0, kEdge}, {kChunk, kChunk}});
    shared->Resize(0, number * kChunk);
    shared->Write(ChunkRow(number - 1), values.data());
    Remove(*file, passing);
    Drawer(file, passing, {{kPassing}, {}})->Write(Ranges{{0, kPassing - 1}}, Values(number, kPassing).data());
}

void Commit(FilePointer const& file, int first, int last)
{
    for (int number = first; number <= last; ++number) {
        Change(file, number);
        file->Commit();
    }
}

FilePointer NewDatabase(std::string const& path, int commits)
{
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".journal");
    auto file = simdb::File::Create(path, simdb::File::Kind::Persistent);
    Commit(file, 1, commits);
    return file;
}

int CheckedCommits(FilePointer const& file)
{
    simdb::Hdf5Guard const guard;
    int const commits = Exists(*file, "shared") ? static_cast<int>(OpenDrawer(file, "shared")->Shape().sizes[0] / kChunk) : 0;
    H5G_info_t info;
    EXPECT_GE(H5Gget_info(file->Hdf5(), &info), 0);
    EXPECT_EQ(info.nlinks, commits == 0 ? 0u : static_cast<hsize_t>(commits) + 2) << "something of a later commit is there";
    if (commits > 0)
        Check(file, "passing" + std::to_string(commits), {{0, kPassing - 1}}, Values(commits, kPassing));
    for (int number = 1; number <= commits; ++number) {
        SCOPED_TRACE("commit " + std::to_string(number));
        Check(file, "commit" + std::to_string(number) + "/values", ChunkRow(1), Values(number, kChunk * kEdge));
        Check(file, "shared", ChunkRow(number - 1), Values(number, kChunk * kEdge));
    }
    return commits;
}

int CommitsIn(std::string const& path, bool readOnly)
{
    return CheckedCommits(simdb::File::Open(path, readOnly));
}

void MakeUnapplied(std::string const& path, int commits)
{
    for (int call = 0, found = 0; found < commits; ++call) {
        NewDatabase(path, commits - 1).reset();
        ChildProcess child([&] {
            auto const file = simdb::File::Open(path, false);
            Change(file, commits);
            KillAtChange(call);
            file->Commit();
            return 0;
        });
        ASSERT_EQ(child.Wait(), -SIGKILL);
        found = CommitsIn(path);
    }
}

} // namespace workload
