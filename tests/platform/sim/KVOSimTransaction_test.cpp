#include "SimClient.h"

#include <optional>

using namespace SimClient;
using testing::ElementsAre;

namespace
{

/// A database with one stored 2 x 3 matrix over a collection each.
class Transaction : public DatabaseTest
{
protected:
    Transaction()
    {
        contextID = Create();
        context.emplace(contextID);
        columns = context->CreateCollection(2);
        rows = context->CreateCollection(3);
        matrix = MakeMatrix(contextID, {MakeSet(columns, {0, 1}), MakeSet(rows, {10, 11, 12})}, {2, 2}, -1.0);
        WriteAll(matrix, Ramp(6));
        ReopenAll();
    }

    /// Closes, opens, and finds everything again.
    void ReopenAll()
    {
        Reopen();
        contextID = database.ContextID();
        context.emplace(contextID);
        columns = Again(columns);
        rows = Again(rows);
        matrix = Again(matrix);
    }

    std::vector<int> RowNumbers() const { return NumbersOf(Describe(matrix).csets[1]); }
    int Count() const { return context->QueryDistributions().Size(); }

    KVOSimContextID contextID;
    std::optional<KVOSimContext> context;
    KVOSimCollectionID columns, rows;
    KVOSimDistributionID matrix;
};

} // namespace

// What is made behind a commit, or beside every transaction, is kept; but no index is given twice.
TEST_F(Transaction, EndsWhenItIsCommittedAndOnlyThenKeepsItsObjects)
{
    KVOSimDistributionID const outside = MakeMatrix(contextID, {Biggest(rows)});
    KVOSimDistributionID first, second, dropped;
    KVOSimCSetID droppedSet;
    KVOSimDistribution held;
    {
        KVOSimTransaction transaction(*context);
        first = MakeMatrix(contextID, {Biggest(rows)});
        transaction.Commit();
        second = MakeMatrix(contextID, {Biggest(columns)});
        WriteAll(second, Ramp(2));
        transaction.Commit();
        Extend(matrix, 1, MakeSet(rows, {20}));
    }
    {
        KVOSimTransaction transaction(*context);
        droppedSet = MakeSet(context->CreateCollection(4), {3, 1});
        dropped = MakeMatrix(contextID, {droppedSet, Biggest(rows)});
        WriteAll(dropped, Ramp(6));
        held = KVOSimDistribution(dropped);
    }
    ExpectFailure("no collection", [&] { KVOSimCollection{droppedSet.CollectionID()}; });
    ExpectFailure("no collection", [&] { KVOSimCSet{droppedSet}; });
    ExpectFailure("no distribution", [&] { KVOSimDistribution{dropped}; });
    ExpectFailure("did not commit", [&] { held.NumDimensions(); });
    EXPECT_EQ(Count(), 4);
    KVOSimTransaction open(*context);
    KVOSimDistributionID const inside = MakeMatrix(contextID, {Biggest(rows)});
    EXPECT_GT(inside.Index(), dropped.Index());
    ReopenAll();

    EXPECT_EQ(Count(), 4);
    EXPECT_THAT(RowNumbers(), ElementsAre(10, 11, 12, 20));
    for (KVOSimDistributionID const& id : {outside, first, second})
        EXPECT_EQ(KVOSimDistribution(Again(id)).NumDimensions(), 1);
    EXPECT_EQ(ReadAll(Again(second)), Ramp(2));
    ExpectFailure("no distribution", [&] { KVOSimDistribution{Again(inside)}; });
    ExpectFailure("no collection", [&] { KVOSimCollection{Again(droppedSet.CollectionID())}; });
}

TEST_F(Transaction, NestsAndOverlaps)
{
    KVOSimDistributionID byInner, byOuter, byOverlapping;
    {
        KVOSimTransaction outer(*context);
        KVOSimCollectionID const collection = context->CreateCollection(2); // the inner one's matrix needs it: kept with it
        {
            KVOSimTransaction inner(*context);
            byInner = MakeMatrix(contextID, {Biggest(collection)});
            inner.Commit();
        }
        byOuter = MakeMatrix(contextID, {Biggest(collection)});
    }
    EXPECT_EQ(Count(), 2);
    ExpectFailure("no distribution", [&] { KVOSimDistribution{byOuter}; });
    {
        std::optional<KVOSimTransaction> one, two;
        one.emplace(*context);
        KVOSimCSetID const set = MakeSet(columns, {77});
        two.emplace(*context);
        byOverlapping = MakeMatrix(contextID, {set});
        one.reset(); // the set stays, for it is used
        EXPECT_THAT(NumbersOf(Describe(byOverlapping).csets[0]), ElementsAre(77));
        two->Commit();
    }
    ReopenAll();

    EXPECT_EQ(Count(), 3);
    EXPECT_EQ(KVOSimDistribution(Again(byInner)).DataSizeItems(0, 0), 2);
    EXPECT_THAT(NumbersOf(Describe(Again(byOverlapping)).csets[0]), ElementsAre(77));
}

TEST_F(Transaction, TakesAnExtensionBack)
{
    for (bool const commit : {false, true}) {
        SCOPED_TRACE(commit);
        {
            KVOSimTransaction transaction(*context);
            Extend(matrix, 1, MakeSet(rows, {20, 21}));
            EXPECT_EQ(ReadAll(matrix), (std::vector<double>{1, 2, 3, -1, -1, 4, 5, 6, -1, -1}));
            EXPECT_THAT(RowNumbers(), ElementsAre(10, 11, 12, 20, 21));
            WriteAll(matrix, Ramp(10));
            if (commit)
                transaction.Commit();
        }
        for (int opened = 0; opened < 2; ++opened, ReopenAll()) {
            EXPECT_EQ(ReadAll(matrix), commit ? Ramp(10) : (std::vector<double>{1, 2, 3, 6, 7, 8}));
            EXPECT_EQ(RowNumbers(), commit ? (std::vector<int>{10, 11, 12, 20, 21}) : (std::vector<int>{10, 11, 12}));
        }
        WriteAll(matrix, Ramp(commit ? 10 : 6));
    }
}

TEST_F(Transaction, TakesExtensionsOfSeveralTransactionsBackInAnyOrder)
{
    std::optional<KVOSimTransaction> one, two;
    one.emplace(*context);
    Extend(matrix, 1, MakeSet(rows, {20}));
    two.emplace(*context);
    Extend(matrix, 1, MakeSet(rows, {30}));
    Extend(matrix, 0, MakeSet(columns, {5}));

    one.reset(); // the second one's members stand behind this one's: they stay for it
    EXPECT_THAT(RowNumbers(), ElementsAre(10, 11, 12, 20, 30));
    two.reset();
    EXPECT_THAT(RowNumbers(), ElementsAre(10, 11, 12));
    EXPECT_EQ(ReadAll(matrix), Ramp(6));

    one.emplace(*context);
    Extend(matrix, 1, MakeSet(rows, {20}));
    two.emplace(*context);
    Extend(matrix, 1, MakeSet(rows, {30}));
    one->Commit();
    two.reset();
    one.reset();
    for (int opened = 0; opened < 2; ++opened, ReopenAll())
        EXPECT_THAT(RowNumbers(), ElementsAre(10, 11, 12, 20));
}

TEST_F(Transaction, NumbersTheDimensionAnew)
{
    Extend(matrix, 1, MakeSet(rows, {20}));
    KVOSimTransfer transfer{KVOSimDistribution(matrix)};
    transfer.SetWrite();
    KVOSimCSetID const numbering = MakeSet(rows, {10, 11, 12, 20});
    transfer.SetDimMembers(1, numbering);

    EXPECT_EQ(Describe(matrix).csets[1], numbering);
    ExpectFailure("the set has 3 members, the dimension 4", [&] { transfer.SetDimMembers(1, Biggest(rows)); });
    ReopenAll();
    EXPECT_EQ(Describe(matrix).csets[1].Index(), numbering.Index());
}
