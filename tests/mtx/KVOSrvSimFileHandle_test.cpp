#include "KVOSrvSimFileHandle.h"

#include "KVOSimException.h"
#include "TemporaryFolder.h"

#include <gmock/gmock.h>

using std::filesystem::exists;
using testing::HasSubstr;

TEST(KVOSrvSimFileHandle, FileGoesWithTheLastCopy)
{
    TemporaryFolder const folder;
    std::string const path = folder / "work.sim", otherPath = folder / "other.sim";
    auto handle = std::make_unique<KVOSrvSimFileHandle>();
    KVOSrvSimFileHandle const before(*handle);
    handle->Associate(path.c_str());
    auto copy = std::make_unique<KVOSrvSimFileHandle>(*handle);
    KVOSrvSimFileHandle assigned;
    assigned.Associate(otherPath.c_str());

    EXPECT_TRUE(exists(path) && exists(otherPath));
    EXPECT_EQ(copy->ContextID(), handle->ContextID());
    EXPECT_FALSE(copy->ContextID().IsNull());
    assigned = *copy;
    EXPECT_FALSE(exists(otherPath));
    handle.reset();
    copy.reset();
    KVOSrvSimFileHandle const& itself = assigned; // and the last one
    assigned = itself;
    EXPECT_TRUE(exists(path));
    EXPECT_FALSE(assigned.ContextID().IsNull());
    assigned = before; // shared the count before the association, but not the database
    EXPECT_FALSE(exists(path));
}

TEST(KVOSrvSimFileHandle, FailureLeavesNoFileAndAUsableHandle)
{
    TemporaryFolder const folder;
    std::string const path = folder / "work.sim", missing = folder / "missing/work.sim";
    KVOSrvSimFileHandle handle;
    WriteFile(path, "somebody else's");

    EXPECT_THROW(handle.Associate(path.c_str()), KVOSimException);
    EXPECT_EQ(ReadFile(path), "somebody else's");
    EXPECT_THROW(handle.Associate(missing.c_str()), KVOSimException);
    std::filesystem::remove(path);
    handle.Associate(path.c_str());
    EXPECT_FALSE(handle.ContextID().IsNull());
}

TEST(KVOSrvSimFileHandleDeathTest, MisuseStopsTheProcess)
{
    TemporaryFolder const folder;
    std::string const path = folder / "work.sim";
    KVOSrvSimFileHandle handle;

    EXPECT_EXIT(handle.ContextID(), testing::KilledBySignal(SIGABRT),
                HasSubstr("Assertion failed: pointer.HasValue() && \"File Handle is not associated with a SIM database.\"\n"
                          "File mtx/impl/KVOSrvSimFileHandle, line 22\n"));
    handle.Associate(path.c_str());
    EXPECT_EXIT(handle.Associate(path.c_str()), testing::KilledBySignal(SIGABRT),
                HasSubstr("Assertion failed: pointer.IsNull() && \"File Handle already associated with a SIM database.\"\n"
                          "File mtx/impl/KVOSrvSimFileHandle, line 16\n"));
}
