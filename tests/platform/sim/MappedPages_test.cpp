#include "ChildProcess.h"
#include "DrawerOracle.h"
#include "ResidentBytes.h"
#include "SimFailure.h"
#include "TemporaryFolder.h"

#include <chrono>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <thread>

using simdb::DenseDrawer;
using simdb::File;

// A page of a mapping that cannot be had is a signal to who touches it, which ends these tests.

namespace
{

Sizes const kSizes{400, 300};
Ranges const kRows{{0, 399}, {7, 20}};

DrawerBytes RowsOf(std::byte value)
{
    return DrawerBytes(400 * 14 * 8, value);
}

DrawerBytes Rows(DenseDrawer& drawer)
{
    DrawerBytes values = RowsOf(std::byte{0xA5});
    drawer.Read(kRows, values.data());
    return values;
}

// A chunked drawer and one in one piece, filled, in a file that was closed and opened again for writing.
struct Stored {
    Stored(std::string const& name, std::byte value, std::string const& between = "true") : path(name)
    {
        file = File::Create(path, File::Kind::Persistent);
        for (Sizes const& chunks : {Sizes{200, 300}, {}}) {
            auto const drawer = CreateDrawer(file, {kSizes, chunks});
            drawer->Write(Ranges{{0, 399}, {0, 299}}, DrawerBytes(400 * 300 * 8, value).data());
            drawer->LinkTo(file->Hdf5(), chunks.empty() ? "contiguous" : "chunked");
        }
        file->Close();
        if (std::system((between + " '" + path + "'").c_str()) != 0)
            throw std::runtime_error(between);
        file = File::Open(path, false);
        drawers = {OpenDrawer(file, "chunked"), OpenDrawer(file, "contiguous")};
    }

    std::string path;
    std::shared_ptr<File> file;
    std::vector<std::shared_ptr<DenseDrawer>> drawers;
};

TEST(MappedPages, OfAFileCutAfterTheyWereUsedAreAnError)
{
    TemporaryFolder const folder;
    for (bool const whileNew : {false, true}) {
        Stored stored(folder / (whileNew ? "new.sim" : "used.sim"), std::byte{7});
        DrawerBytes const rows = RowsOf(std::byte{7});
        for (auto const& drawer : stored.drawers) {
            drawer->Write(kRows, rows.data());
            EXPECT_TRUE(whileNew || Rows(*drawer) == rows);
        }
        ASSERT_EQ(truncate(stored.path.c_str(), 16384), 0);
        for (auto const& drawer : stored.drawers) {
            ExpectFailure("cut short", [&] { Rows(*drawer); });
            ExpectFailure("cut short", [&] { drawer->Write(kRows, rows.data()); });
        }
    }
}

TEST(MappedPages, AreWrittenOnlyWhileTheDiskTakesWrites)
{
    TemporaryFolder const folder;
    Stored stored(folder / "failing.sim", std::byte{7});
    DenseDrawer& drawer = *stored.drawers[0];
    DrawerBytes const rows = Rows(drawer);
    drawer.Write(kRows, rows.data());
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // what was seen of the disk is believed for a third of that

    SetCallFault({SystemCall::Change, 0, EIO, 1000});
    ExpectFailure(std::strerror(EIO), [&] { drawer.Write(kRows, rows.data()); });
    SetCallFault({});
    drawer.Write(kRows, rows.data());
    EXPECT_TRUE(Rows(drawer) == rows);
}

// In a child of its own, with a file system in memory that no other process sees.
constexpr int kCannotMount = 77;

bool MountMemory(std::string const& folder, char const* options)
{
    return (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && mount("tmpfs", folder.c_str(), "tmpfs", 0, options) == 0;
}

void UseFullMemory(std::string const& folder)
{
    Stored sparse(folder + "/sparse.sim", std::byte{0}, "fallocate --dig-holes");
    std::vector<std::shared_ptr<DenseDrawer>> drawers = sparse.drawers;
    drawers.push_back(CreateDrawer(File::Create(folder + "/scratch.sim", File::Kind::Scratch), {kSizes, {}}));
    std::string const filler = folder + "/filler";
    int const file = open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    std::vector<char> const page(4096, 'x');
    while (write(file, page.data(), page.size()) > 0)
        ;
    close(file);

    DrawerBytes const ones = RowsOf(std::byte{1});
    for (auto const& drawer : drawers) {
        EXPECT_TRUE(Rows(*drawer) == RowsOf(std::byte{0}));
        ExpectFailure(std::strerror(ENOSPC), [&] { drawer->Write(kRows, ones.data()); });
    }
    EXPECT_EQ(unlink(filler.c_str()), 0);
    for (auto const& drawer : drawers) {
        drawer->Write(kRows, ones.data());
        EXPECT_TRUE(Rows(*drawer) == ones);
    }
}

TEST(MappedPages, OfAFullFileSystemInMemoryAreReadWithoutTakingRoom)
{
    TemporaryFolder const folder;
    ChildProcess child([&] {
        if (!MountMemory(folder / "", "size=8m"))
            return kCannotMount;
        UseFullMemory(folder / "");
        return HasFailure() ? 1 : 0;
    });
    int const end = child.Wait();
    if (end == kCannotMount)
        GTEST_SKIP() << "this process may mount nothing";
    EXPECT_EQ(end, 0) << "see above";
}

// Lets the system answer this thread as before Linux 5.14, or worse.
bool UnlearnPopulate()
{
    sock_filter program[] = {{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
                             {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_madvise},
                             {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EINVAL},
                             {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW}};
    sock_fprog const filter{std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(MappedPages, AreNotTouchedWhereTheSystemCannotBeAsked)
{
    TemporaryFolder const folder;
    Stored stored(folder / "old.sim", std::byte{7});
    bool filtered = false;
    std::thread([&] {
        filtered = UnlearnPopulate();
        for (int round = 0; filtered && round < 3; ++round)
            for (auto const& drawer : stored.drawers) {
                DrawerBytes const values = RowsOf(static_cast<std::byte>(round));
                drawer->Write(kRows, values.data());
                EXPECT_TRUE(Rows(*drawer) == values);
                EXPECT_EQ(ResidentBytes(stored.path), 0u);
                DrawerBytes chunk(200 * 300 * 8);
                drawer->Read(Ranges{{0, 199}, {0, 299}}, chunk.data());
                EXPECT_TRUE(chunk[7 * 8] == static_cast<std::byte>(round) && chunk[0] == std::byte{7});
            }
    }).join();
    if (!filtered)
        GTEST_SKIP() << "this process may filter no system calls";
}

} // namespace
