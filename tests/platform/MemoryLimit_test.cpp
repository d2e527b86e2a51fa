#include "MemoryLimit.h"

#include "ChildProcess.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace
{

TEST(MemoryLimit, FollowsTheHostsAddressLimit)
{
    ChildProcess child([] {
        rlimit limit{};
        getrlimit(RLIMIT_AS, &limit);
        std::size_t const before = MemoryLimit();
        limit.rlim_cur = before / 2;
        setrlimit(RLIMIT_AS, &limit);
        return MemoryLimit() == before / 2 ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
}

// A group's limit binds what is in the groups inside of it, and the numbers of both versions count.
TEST(MemoryLimit, IsTheLeastOfAllGroupsAround)
{
    TemporaryFolder const folder;
    std::string const top = folder / "";
    auto const write = [&](std::string const& path, std::string const& text) {
        std::filesystem::create_directories(std::filesystem::path(top + path).parent_path());
        WriteFile(top + path, text + "\n");
    };
    auto const limit = [&] { return ControlGroupMemory(top + "groups", top + "mounts"); };
    EXPECT_EQ(limit(), SIZE_MAX); // no such files

    write("groups", "5:cpu,cpuacct:/elsewhere\n4:memory:/docker/job/a\n0::/x/y");
    write("mounts", "30 1 0:5 /docker/job " + top + "v1 rw shared:9 - cgroup cgroup rw,memory\n31 1 0:6 / " + top +
                        "cpu rw - cgroup cgroup rw,cpu\n32 1 0:7 / " + top + "v2 rw - cgroup2 cgroup2 rw");
    write("v1/memory.limit_in_bytes", "9223372036854771712");
    write("v1/a/memory.limit_in_bytes", "7000");
    write("v2/x/y/memory.max", "max");
    write("cpu/elsewhere/memory.limit_in_bytes", "1");
    EXPECT_EQ(limit(), 7000u);
    write("v2/x/memory.max", "6000");
    EXPECT_EQ(limit(), 6000u);
    write("v1/memory.limit_in_bytes", "5000");
    EXPECT_EQ(limit(), 5000u);
}

} // namespace
