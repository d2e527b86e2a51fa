#include "DatabaseSupport.h"
#include "KVOSimException.h"
#include "KVOSimTransfer.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

KVOSimDrawer DrawerOf(KVOSimDistributionID const& id)
{
    KVOSimArray<KVOSimDrawer> drawers;
    KVOSimDistribution(id).QueryDrawers(drawers);
    if (drawers.Size() != 1)
        throw std::runtime_error("not one drawer");
    return drawers[0];
}

std::vector<int> ColorsOf(KVOSimDistributionID const& id)
{
    std::vector<int> colors;
    for (KVOSimCollectionID const& collection : KVOSimDistribution(id).Collections())
        colors.push_back(collection.Color());
    return colors;
}

} // namespace

TEST(KVOSrvUtilitiesDistributions, TwoDimensions)
{
    TestDatabase const database;
    KVOSimCSetID const rows = database.Members(500), columns = database.Members(300);
    KVOSimPosition position(database.Context());
    KVOSimDistributionID const mixed = KVOSrvUtilities::Create2DDistribution(rows, columns, 100, -1);
    KVOSimDistributionID const plain = KVOSrvUtilities::Create2DDistribution(position, 12, rows, columns, -1, -1);

    KVOSimDrawer const drawer = DrawerOf(mixed);
    EXPECT_THAT(ToVector(drawer.dimensionSizes), ElementsAre(300, 500));
    EXPECT_THAT(ToVector(drawer.chunkSizes), ElementsAre(300, 100));
    EXPECT_EQ(drawer.typeKey, KVOSimDouble);
    EXPECT_THAT(ToVector(DrawerOf(plain).chunkSizes), IsEmpty());
    // Chunks larger than the matrix are allowed; too large ones end with it.
    EXPECT_THAT(ToVector(DrawerOf(KVOSrvUtilities::Create2DDistribution(rows, columns, 1000, 1000)).chunkSizes), ElementsAre(1000, 1000));
    EXPECT_THAT(ToVector(DrawerOf(KVOSrvUtilities::Create2DDistribution(rows, columns, 100000, 100000)).chunkSizes), ElementsAre(300, 500));
    EXPECT_THAT(ToVector(DrawerOf(KVOSrvUtilities::Create2DDistribution(database.Members(0), columns, -1, 7)).chunkSizes),
                ElementsAre(7, 1));
    EXPECT_EQ(KVOSimDistribution(mixed).Type(), -1);
    EXPECT_EQ(KVOSimDistribution(plain).Type(), 12);
    EXPECT_THAT(ColorsOf(mixed), ElementsAre(0, 0));
    ExpectSame(KVOSrvDenseMatrix(mixed), [](int, int) { return 0.0; });
}

TEST(KVOSrvUtilitiesDistributions, OneCollectionForSeveralDimensionsComesInColors)
{
    TestDatabase const database;
    KVOSimCSetID const members = database.Members(6);
    KVOSimPosition position(database.Context());
    KVOSimArray<KVOSimCSetID> cube;
    for (int const color : {1, 0, 0})
        cube.Append(members.InColor(color));
    int const chunks[] = {2, 3, -1};

    EXPECT_THAT(ColorsOf(KVOSrvUtilities::Create2DDistribution(members, members, 2, 2)), ElementsAre(1, 0));
    EXPECT_THAT(ColorsOf(KVOSrvUtilities::Create2DDistribution(members.InColor(1), members.InColor(1), 2, 2)), ElementsAre(2, 1));
    EXPECT_THAT(ColorsOf(KVOSrvUtilities::CreateSparseDistribution(members, members)), ElementsAre(0, 1));
    EXPECT_THAT(ColorsOf(KVOSrvUtilities::CreateSparseDistribution(position, 3, members, members)), ElementsAre(0, 1));
    KVOSimDistributionID const id = KVOSrvUtilities::CreateDistribution(position, 4, cube, KVOSimArray<int>(chunks, 3), false);
    EXPECT_THAT(ColorsOf(id), ElementsAre(2, 1, 0));
    EXPECT_THAT(ToVector(DrawerOf(id).chunkSizes), ElementsAre(2, 3, 6));
    EXPECT_EQ(KVOSimDistribution(id).Type(), 4);
    KVOSrvDenseMatrix square(KVOSrvUtilities::Create2DDistribution(members, members, 4, 4));
    Dense const values = Randomize(square);
    ExpectSame(square, values);
    EXPECT_EQ(square.RowCSetID(), members);
}

TEST(KVOSrvUtilitiesDistributions, TellDenseFromSparse)
{
    TestDatabase const database;
    KVOSimCSetID const members = database.Members(4);
    KVOSimPosition position(database.Context());
    KVOSimArray<KVOSimCSetID> sets;
    for (int dim = 0; dim < 3; ++dim)
        sets.Append(members);
    KVOSimDistribution const column(KVOSrvUtilities::Create1DDistribution(members, 2)),
        matrix(KVOSrvUtilities::Create2DDistribution(members, members, 2, 2)),
        cube(KVOSrvUtilities::CreateDistribution(position, -1, sets, {}, true)),
        empty(KVOSrvUtilities::CreateSparseDistribution(members, members));
    for (KVOSimDistribution const& dense : {column, matrix}) {
        EXPECT_TRUE(KVOSrvUtilities::IsDenseMatrix(dense));
        EXPECT_FALSE(KVOSrvUtilities::IsSparseMatrix(dense));
    }
    EXPECT_FALSE(KVOSrvUtilities::IsDenseMatrix(cube));
    for (KVOSimDistribution const& none : {empty, KVOSimDistribution()}) {
        EXPECT_FALSE(KVOSrvUtilities::IsDenseMatrix(none));
        EXPECT_FALSE(KVOSrvUtilities::IsSparseMatrix(none));
    }
}

TEST(KVOSrvUtilitiesDistributions, IntegersAreWrittenAtOnce)
{
    TestDatabase const database;
    KVOSimCSetID const members = database.Members(3);
    int const values[] = {5, -6, 7};
    KVOSimDistributionID const id = KVOSrvUtilities::Write1DIntDistribution(members, values, 3);
    int read[3] = {};
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    transfer.SetRead();
    transfer.SetDim(0, members);
    transfer.SetBuffer(0, read, sizeof read);
    transfer.ExecRead();

    EXPECT_THAT(read, ElementsAre(5, -6, 7));
    EXPECT_EQ(DrawerOf(id).typeKey, KVOSimInt32);
}

TEST(KVOSrvUtilitiesDistributions, BadInputLeavesNoDistributionBehind)
{
    TestDatabase const database;
    KVOSimCSetID const rows = database.Members(3), columns = database.Members(4), null;
    KVOSimPosition position(database.Context());
    KVOSimArray<KVOSimCSetID> sets;
    sets.Append(rows);
    int const chunks[] = {1, 2}, values[] = {1, 2};

    for (int const chunk : {0, -2}) {
        EXPECT_THROW(KVOSrvUtilities::Create1DDistribution(rows, chunk), KVOSimException);
        EXPECT_THROW(KVOSrvUtilities::Create2DDistribution(rows, columns, 2, chunk), KVOSimException);
    }
    EXPECT_THROW(KVOSrvUtilities::Create1DDistribution(null, 2), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::Create2DDistribution(null, columns, 2, 2), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::Create2DDistribution(rows, null, 2, 2), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::CreateSparseDistribution(rows, null), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::CreateSparseDistribution(null, null), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::CreateDistribution(position, -1, sets, KVOSimArray<int>(chunks, 2), false), KVOSrvMtxIllegalInput);
    EXPECT_THROW(KVOSrvUtilities::Write1DIntDistribution(rows, values, 2), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::Write1DIntDistribution(rows, nullptr, 3), KVOSimException);
    EXPECT_THROW(KVOSrvUtilities::Create2DDistribution(database.Members(30000), database.Members(30000), -1, 30000), KVOSimException);
    EXPECT_TRUE(database.Context().QueryDistributions().IsEmpty());
}
