#include "DRXUnicodeString.h"
#include "KVOBasModules.h"
#include "KVOBasUtlFilePath.h"
#include "aio_ostream.h"
#include "omi_Singleton.h"
#include "omi_Timer.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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
    int tally = 5;
    for (int const expected : {12, 12}) { // a nested start adds nothing
        for (auto const& library : kLibraries)
            library.initialize(tally);
        EXPECT_EQ(tally, expected);
    }
    for (int const expected : {12, 5, 5}) { // nor does an end too many take anything off
        for (auto const& library : kLibraries)
            library.finalize(tally);
        EXPECT_EQ(tally, expected);
    }
    for (int const expected : {5, 12}) {
        for (auto const& library : kLibraries)
            library.initialize(tally);
        EXPECT_EQ(tally, expected);
    }
    for (auto const& library : kLibraries)
        library.finalize(tally);
    EXPECT_EQ(tally, 5);
}

TEST(KVOBasUtlFilePath, JoinsFolderAndName)
{
    struct {
        char const *directory, *name, *expected;
    } const kCases[] = {{"/tmp", "a.sim", "/tmp/a.sim"}, {"/tmp/", "a.sim", "/tmp/a.sim"}, {"", "a.sim", "a.sim"}};
    for (auto const& c : kCases)
        EXPECT_STREQ(KVOBasUtlFilePath(c.directory, c.name).Path().c_str(), c.expected);
}

TEST(KVOBasUtlFilePath, FindsAndRemovesFilesAndLinks)
{
    std::string folder = std::filesystem::temp_directory_path() / "kvo_path_XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    KVOBasUtlFilePath const file(folder.c_str(), "file"), link(folder.c_str(), "link");
    EXPECT_FALSE(file.Exists());
    EXPECT_FALSE(file.Remove());

    std::ofstream(file.Path().c_str()) << "content";
    std::filesystem::create_symlink("file", link.Path().c_str());
    EXPECT_TRUE(file.Exists());
    EXPECT_TRUE(file.Remove());
    EXPECT_FALSE(file.Exists());
    EXPECT_TRUE(link.Exists()); // though it leads nowhere
    EXPECT_TRUE(link.Remove());
    EXPECT_FALSE(link.Exists());

    std::filesystem::path const before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    EXPECT_EQ(std::filesystem::path(KVOBasUtlgetcwd().c_str()), std::filesystem::canonical(folder));
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
}

TEST(aio_ostream, WritesToTheErrorStream)
{
    testing::internal::CaptureStderr();
    (aio_cerr << "a%s" << nullptr << "").put('\n').print_int(LLONG_MIN).flush();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a%s\n-9223372036854775808");
}

TEST(DRXUnicodeString, KeepsItsBytes)
{
    EXPECT_STREQ(DRXUnicodeString("Stra\xC3\x9F\x65 \xFF").Utf8(), "Stra\xC3\x9F\x65 \xFF");
    EXPECT_TRUE(DRXUnicodeString(nullptr).IsEmpty());
    EXPECT_STREQ(DRXUnicodeString().Utf8(), "");
    EXPECT_EQ(DRXUnicodeString("a"), DRXUnicodeString("a"));
}

TEST(omi_Timer, IsZeroUntilStartedAndCanBeStartedAgain)
{
    omi_Timer timer;
    EXPECT_EQ(timer.GetTotalCpuTime(), 0.0);
    EXPECT_EQ(timer.GetElapsedTime(), 0.0);

    timer.Start();
    while (!(timer.GetTotalCpuTime() > 0.02)) { // ends: processor time passes in this loop
    }
    double const before = timer.GetElapsedTime();
    EXPECT_GT(before, 0.0);
    double const cpuBefore = timer.GetTotalCpuTime();
    timer.Start();
    EXPECT_LT(timer.GetTotalCpuTime(), cpuBefore);
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
