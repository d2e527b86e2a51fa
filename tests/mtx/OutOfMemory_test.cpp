#include "FailNew.h"
#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimTransaction.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

namespace
{

// What fails there is the platform's allocator, with an exception of the library's own.
TEST(OutOfMemory, AssemblyAsksNoOtherAllocator)
{
    KVOSrvSparseMatrix matrix(9, 9);
    for (unsigned k = 0; k < 100; ++k)
        matrix.AddData(k % 9, k % 7, 1.0);
    EXPECT_EQ(FailEach(
                  News(), [&] { matrix.EndAssembly(); }, [](bool) {}),
              0);
    EXPECT_EQ(matrix.NumberOfNonzeros(), 63);
}

TEST(OutOfMemory, LeavesNoFileThatIsNoDatabase)
{
    for (bool const scratch : {false, true}) {
        TemporaryFolder const folder(FolderWithoutDisk());
        std::string const path = folder / "test.sim";
        auto const create = [&] {
            KVOSimDatabase database;
            if (scratch)
                database.SetScratch();
            database.CreateFile(path.c_str(), 0);
        };
        FailEach(News(), create, [&](bool threw) { EXPECT_EQ(std::filesystem::remove(path), !threw); });
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
    FailEach(
        News(),
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
        [&](bool) {
            database.OpenFile(path.c_str(), true);
            int const rows = KVOSrvDenseMatrix(KVOSimDistributionID(database.ContextID(), index)).NumberOfRows();
            database.Close();
            EXPECT_GE(rows, committed);
            EXPECT_LE(rows, 10); // the commit may have failed after it was done
            make();
        });
}

} // namespace
