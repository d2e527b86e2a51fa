#include "KVOBasModules.h"
#include "KVOBasUtlFilePath.h"
#include "TemporaryFolder.h"
#include "aio_ostream.h"
#include "omi_Singleton.h"
#include "omi_Timer.h"

#include <climits>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace
{

TEST(KVOBasModules, EachLibraryCountsItsOwnUsers)
{
    struct {
        void (*initialize)(int&);
        void (*finalize)(int&);
    } const kLibraries[] = {
        {KVOBasCoreUtils_initialize, KVOBasCoreUtils_finalize},
        {KVOBasShared_initialize, KVOBasShared_finalize},
        {KVOBasDrexa_initialize, KVOBasDrexa_finalize},
        {KVOSimContainers_initialize, KVOSimContainers_finalize},
        {KVOSimAPI_initialize, KVOSimAPI_finalize},
        {KVOSrvBasic_initialize, KVOSrvBasic_finalize},
        {KVOFsmShared_initialize, KVOFsmShared_finalize},
    };
    // Nested starts add nothing, and an end too many takes nothing off but makes the next start do nothing.
    struct {
        bool start;
        int tally; // afterwards
    } const kSteps[] = {{true, 12}, {true, 12}, {false, 12}, {false, 5}, {false, 5}, {true, 5}, {true, 12}, {false, 5}};
    int tally = 5;
    for (auto const& step : kSteps) {
        for (auto const& library : kLibraries)
            step.start ? library.initialize(tally) : library.finalize(tally);
        EXPECT_EQ(tally, step.tally) << "step " << &step - kSteps;
    }
}

TEST(KVOBasUtlFilePath, JoinsFindsAndRemoves)
{
    struct {
        char const *directory, *name, *expected;
    } const kCases[] = {{"/tmp", "a.sim", "/tmp/a.sim"}, {"/tmp/", "a.sim", "/tmp/a.sim"}, {"", "a.sim", "a.sim"}};
    for (auto const& c : kCases)
        EXPECT_STREQ(KVOBasUtlFilePath(c.directory, c.name).Path().c_str(), c.expected);

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
