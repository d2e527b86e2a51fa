#include "DatabaseSupport.h"

using SimClient::Describe;
using testing::ElementsAre, testing::ElementsAreArray, testing::IsEmpty;

static std::vector<int> ChunksOf(KVOSimDistributionID const& id)
{
    return ToVector(Describe(id).chunkSizes);
}

static std::vector<int> ColorsOf(KVOSimDistributionID const& id)
{
    std::vector<int> colors;
    for (KVOSimCollectionID const& collection : KVOSimDistribution(id).Collections())
        colors.push_back(collection.Color());
    return colors;
}

TEST(KVOSrvUtilitiesDistributions, TwoDimensions)
{
    TestDatabase const database;
    KVOSimCSetID const rows = database.Members(500), columns = database.Members(300);
    KVOSimPosition position(database.Context());
    KVOSimDistributionID const mixed = KVOSrvUtilities::Create2DDistribution(rows, columns, 100, -1);
    KVOSimDistributionID const plain = KVOSrvUtilities::Create2DDistribution(position, 12, rows, columns, -1, -1);

    EXPECT_THAT(ToVector(Describe(mixed).dimensionSizes), ElementsAre(300, 500));
    EXPECT_THAT(ChunksOf(mixed), ElementsAre(300, 100));
    EXPECT_THAT(ChunksOf(plain), IsEmpty());
    // Chunks larger than the matrix are allowed; too large ones end with it.
    EXPECT_THAT(ChunksOf(KVOSrvUtilities::Create2DDistribution(rows, columns, 1000, 1000)), ElementsAre(1000, 1000));
    EXPECT_THAT(ChunksOf(KVOSrvUtilities::Create2DDistribution(rows, columns, 100000, 100000)), ElementsAre(300, 500));
    EXPECT_THAT(ChunksOf(KVOSrvUtilities::Create2DDistribution(database.Members(0), columns, -1, 7)), ElementsAre(7, 1));
    EXPECT_TRUE(KVOSimDistribution(mixed).Type() == -1 && KVOSimDistribution(plain).Type() == 12);
    EXPECT_THAT(ColorsOf(mixed), ElementsAre(0, 0));
    ExpectSame(KVOSrvDenseMatrix(mixed), Dense(500, 300));
}

TEST(KVOSrvUtilitiesDistributions, OneCollectionForSeveralDimensionsComesInColors)
{
    TestDatabase const database;
    KVOSimCSetID const members = database.Members(6);
    KVOSimPosition position(database.Context());
    KVOSimArray<KVOSimCSetID> const cube(std::vector{members.InColor(1), members, members});
    int const chunks[] = {2, 3, -1};

    EXPECT_THAT(ColorsOf(KVOSrvUtilities::Create2DDistribution(members, members, 2, 2)), ElementsAre(1, 0));
    EXPECT_THAT(ColorsOf(KVOSrvUtilities::Create2DDistribution(members.InColor(1), members.InColor(1), 2, 2)), ElementsAre(2, 1));
    EXPECT_THAT(ColorsOf(KVOSrvUtilities::CreateSparseDistribution(members, members)), ElementsAre(0, 1));
    EXPECT_THAT(ColorsOf(KVOSrvUtilities::CreateSparseDistribution(position, 3, members, members)), ElementsAre(0, 1));
    KVOSimDistributionID const id = KVOSrvUtilities::CreateDistribution(position, 4, cube, KVOSimArray<int>(chunks, 3), false);
    EXPECT_THAT(ColorsOf(id), ElementsAre(2, 1, 0));
    EXPECT_THAT(ChunksOf(id), ElementsAre(2, 3, 6));
    EXPECT_EQ(KVOSimDistribution(id).Type(), 4);
    KVOSrvDenseMatrix const square(KVOSrvUtilities::Create2DDistribution(members, members, 4, 4));
    EXPECT_EQ(square.RowCSetID(), members);
}

TEST(KVOSrvUtilitiesDistributions, TellWhatIsADenseMatrix)
{
    using Make = KVOSrvUtilities;
    TestDatabase const database;
    KVOSimCSetID const members = database.Members(3);
    KVOSimPosition position(database.Context());
    KVOSimArray<KVOSimCSetID> const sets(std::vector(3, members));
    int const values[] = {5, -6, 7};
    KVOSimDistributionID const column = Make::Create1DDistribution(members, 2), matrix = Make::Create2DDistribution(members, members, 2, 2),
                               cube = Make::CreateDistribution(position, -1, sets, {}, true),
                               withoutDrawer = Make::CreateSparseDistribution(members, members),
                               integers = Make::Write1DIntDistribution(members, values, 3);
    for (KVOSimDistributionID const& id : {column, matrix, cube, withoutDrawer, KVOSimDistributionID()}) {
        KVOSimDistribution const distribution = id.IsNull() ? KVOSimDistribution() : KVOSimDistribution(id);
        EXPECT_EQ(Make::IsDenseMatrix(distribution), id == column || id == matrix);
        EXPECT_FALSE(Make::IsSparseMatrix(distribution));
    }
    for (KVOSimDistributionID const& id : {cube, withoutDrawer, integers})
        EXPECT_THROW(KVOSrvDenseMatrix bound(id), KVOSrvMtxIllegalInput);
    EXPECT_THROW(KVOSrvDenseMatrix(KVOSimDistributionID(database.Context().ID(), 999)), KVOSimException);

    int read[3] = {}; // the integers were written at once
    KVOSimTransfer transfer{KVOSimDistribution(integers)};
    transfer.SetRead();
    transfer.SetDim(0, members);
    transfer.SetBuffer(0, read, sizeof read);
    transfer.ExecRead();
    EXPECT_THAT(read, ElementsAreArray(values));
    EXPECT_EQ(Describe(integers).typeKey, KVOSimInt32);
}

TEST(KVOSrvUtilitiesDistributions, BadInputLeavesNoDistributionBehind)
{
    TestDatabase const database;
    KVOSimCSetID const rows = database.Members(3), columns = database.Members(4), null;
    KVOSimPosition position(database.Context());
    KVOSimArray<KVOSimCSetID> const sets(std::vector{rows});
    int const chunks[] = {1, 2}, values[] = {1, 2};

    KVOSimCSetID const many = database.Members(30000);
    using Make = KVOSrvUtilities;
    ExpectEachThrows<KVOSimException>(
        {[&] { Make::Create1DDistribution(rows, 0); }, [&] { Make::Create2DDistribution(rows, columns, 2, -2); },
         [&] { Make::Create1DDistribution(null, 2); }, [&] { Make::Create2DDistribution(null, columns, 2, 2); },
         [&] { Make::Create2DDistribution(rows, null, 2, 2); }, [&] { Make::CreateSparseDistribution(rows, null); },
         [&] { Make::CreateSparseDistribution(null, null); }, [&] { Make::Write1DIntDistribution(rows, values, 2); },
         [&] { Make::Write1DIntDistribution(rows, nullptr, 3); },
         [&] { Make::Create2DDistribution(many, database.Members(30000), -1, 30000); }});
    ExpectEachThrows<KVOSrvMtxIllegalInput>({[&] { Make::CreateDistribution(position, -1, sets, KVOSimArray<int>(chunks, 2), false); }});
    EXPECT_TRUE(database.Context().QueryDistributions().IsEmpty());
}
