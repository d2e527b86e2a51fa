#include "KVOBasModules.h"
#include "KVOBasUtlFilePath.h"
#include "TemporaryFolder.h"
#include "aio_ostream.h"
#include "omi_Singleton.h"
#include "omi_Timer.h"

#include <climits>
#include <gtest/gtest.h>

namespace
{

TEST(KVOBasModules, EachLibraryCountsItsOwnUsers)
{
    using Calls = std::vector<void (*)(int&)>;
    Calls const starts{KVOBasCoreUtils_initialize, KVOBasShared_initialize, KVOBasDrexa_initialize, KVOSimContainers_initialize,
                       KVOSimAPI_initialize,       KVOSrvBasic_initialize,  KVOFsmShared_initialize};
    Calls const ends{KVOBasCoreUtils_finalize, KVOBasShared_finalize, KVOBasDrexa_finalize, KVOSimContainers_finalize,
                     KVOSimAPI_finalize,       KVOSrvBasic_finalize,  KVOFsmShared_finalize};
    // Nested starts add nothing, and an end too many takes nothing off but makes the next start do nothing.
    int tally = 5;
    std::vector<int> tallies;
    for (Calls const& calls : {starts, starts, ends, ends, ends, starts, starts, ends}) {
        for (auto const call : calls)
            call(tally);
        tallies.push_back(tally);
    }
    EXPECT_EQ(tallies, (std::vector{12, 12, 12, 5, 5, 5, 12, 5}));
}

TEST(KVOBasUtlFilePath, JoinsFindsAndRemoves)
{
    for (auto const& [directory, expected] : {std::pair("/tmp", "/tmp/a.sim"), {"/tmp/", "/tmp/a.sim"}, {"", "a.sim"}})
        EXPECT_STREQ(KVOBasUtlFilePath(directory, "a.sim").Path().c_str(), expected);

    TemporaryFolder const folder;
    KVOBasUtlFilePath const file((folder / "").c_str(), "file"), link((folder / "").c_str(), "link");
    EXPECT_FALSE(file.Exists());
    EXPECT_FALSE(file.Remove());
    WriteFile(folder / "file", "content");
    std::filesystem::create_symlink("file", link.Path().c_str());
    EXPECT_TRUE(file.Exists());
    EXPECT_TRUE(file.Remove());
    EXPECT_FALSE(file.Exists());
    EXPECT_TRUE(link.Exists()); // though it leads nowhere
    EXPECT_TRUE(link.Remove());
    EXPECT_FALSE(link.Exists());

    std::filesystem::path const before = std::filesystem::current_path();
    std::filesystem::current_path(folder / "");
    EXPECT_TRUE(std::filesystem::equivalent(KVOBasUtlgetcwd().c_str(), folder / ""));
    std::filesystem::current_path(before);
}

TEST(aio_ostream, WritesToTheErrorStream)
{
    testing::internal::CaptureStderr();
    (aio_cerr << "a%s" << nullptr << "").put('\n').print_int(LLONG_MIN).flush();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a%s\n-9223372036854775808");
}

TEST(omi_Timer, IsZeroUntilStarted)
{
    omi_Timer timer;
    EXPECT_EQ(timer.GetTotalCpuTime(), 0.0);
    EXPECT_EQ(timer.GetElapsedTime(), 0.0);
    timer.Start();
    while (!(timer.GetTotalCpuTime() > 0.0 && timer.GetElapsedTime() > 0.0)) { // ends: time passes in this loop
    }
}

struct Service : omi_Singleton<Service> {
};

TEST(omi_Singleton, IsMadeOnceAndAgainAfterItsEnd)
{
    using Base = omi_SingletonBase<Service>;
    EXPECT_EQ(Base::Instance(), nullptr);
    Service* const first = &omi_Singleton<Service>::Instance();
    EXPECT_EQ(Base::Instance(), first);
    EXPECT_EQ(&omi_Singleton<Service>::Instance(), first);

    {
        Service second; // the one made last is the instance
        EXPECT_EQ(Base::Instance(), &second);
        delete first; // takes only itself off
        EXPECT_EQ(Base::Instance(), &second);
    }
    EXPECT_EQ(Base::Instance(), nullptr);
}

} // namespace
