#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimException.h"
#include "KVOSimTransaction.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvUtilities.h"
#include "TemporaryFolder.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <new>

namespace
{

std::int64_t s_successesLeft = -1; // of `new`, whoever calls it; negative: it never fails

} // namespace

void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept
{
    return s_successesLeft >= 0 && s_successesLeft-- == 0 ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
}
void* operator new(std::size_t bytes)
{
    if (void* const memory = operator new(bytes, std::nothrow))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace
{

// Once with each allocation of `run` failing, and once with none.
template<class Run, class Check>
void FailEachNew(Run const& run, Check const& check)
{
    bool done = false;
    for (int allocation = 0; !done; ++allocation) {
        SCOPED_TRACE(allocation);
        s_successesLeft = allocation;
        try {
            run();
        } catch (std::bad_alloc const&) {
        } catch (KVOSimException const&) {
        }
        done = s_successesLeft >= 0;
        s_successesLeft = -1;
        check();
    }
}

TEST(OutOfMemory, LeavesNoFileThatIsNoDatabase)
{
    for (bool const scratch : {false, true}) {
        TemporaryFolder const folder(FolderWithoutDisk());
        std::string const path = folder / "test.sim";
        bool made = false;
        FailEachNew(
            [&] {
                KVOSimDatabase database;
                if (scratch)
                    database.SetScratch();
                database.CreateFile(path.c_str(), 0);
                made = true;
            },
            [&] { EXPECT_EQ(std::filesystem::exists(path), made); });
        EXPECT_TRUE(made);
    }
}

// HDF5, when it ends with the process, would stumble over a file that it could not close.
TEST(OutOfMemory, KeepsWhatWasCommitted)
{
    TemporaryFolder const folder(FolderWithoutDisk());
    std::string const path = folder / "test.sim";
    KVOSimDatabase database;
    int index = -1, committed = 0;
    auto const make = [&] {
        std::filesystem::remove(path);
        database.CreateFile(path.c_str(), 0);
        KVOSimCSetID const members = KVOSimCollection(KVOSimContext(database.CreateContext()).CreateCollection(9)).BiggestCSetID();
        index = KVOSrvUtilities::Create2DDistribution(members, members, 4, 3).Index();
        database.Close();
        committed = 9;
    };
    make();
    FailEachNew(
        [&] {
            KVOSimDatabase changed;
            changed.OpenFile(path.c_str(), false);
            KVOSimContext context(changed.ContextID());
            KVOSimTransaction transaction(context);
            KVOSrvDenseMatrix matrix(KVOSimDistributionID(changed.ContextID(), index));
            int const number = 20;
            matrix.ExtendDim(1, 1, &number);
            transaction.Commit();
            committed = matrix.NumberOfRows();
            changed.Close();
        },
        [&] {
            database.OpenFile(path.c_str(), true);
            int const rows = KVOSrvDenseMatrix(KVOSimDistributionID(database.ContextID(), index)).NumberOfRows();
            database.Close();
            EXPECT_GE(rows, committed);
            EXPECT_LE(rows, 10); // the commit may have failed after it was done
            make();
        });
}

} // namespace
