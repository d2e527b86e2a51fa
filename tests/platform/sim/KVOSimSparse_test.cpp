#include "SimClient.h"

using namespace SimClient;

namespace
{

Rows const kMatrix{{1.5, 2.5, 3.5}, {1, 0, 2}, {0, 1, 1, 3}, {}};
Rows const kSymmetric{{1.5, 2.5}, {1, 2}, {0, 1, 1, 2}, {10, 20, 30}};

class Sparse : public DatabaseTest
{
protected:
    KVOSimDistributionID Store(Rows const& matrix) const { return matrix.Store(context, sets[0], sets[1]); }

    static Rows Load(KVOSimDistributionID const& id)
    {
        auto const count = [&](int slot) { return static_cast<std::size_t>(KVOSimDistribution(id).DataSizeItems(0, slot)); };
        Rows matrix{std::vector<double>(count(0)), std::vector<int>(count(1)), std::vector<int>(count(2)),
                    std::vector<double>(Describe(id).kind == KVOSimSparseSymDrawer ? count(3) : 0)};
        KVOSimTransfer transfer = WholeView(id);
        Rows::SetBuffers(transfer, matrix);
        transfer.ExecRead();
        return matrix;
    }

    KVOSimContextID const context = Create();
    KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(3);
    std::vector<KVOSimCSetID> const sets{Biggest(rows), Biggest(KVOSimCollection(rows).CreateColorVariant(1))};
};

} // namespace

TEST_F(Sparse, ComesBackAsItWasStoredOrOverwritten)
{
    std::vector<Rows> matrices{kMatrix, kSymmetric, {{}, {}, {0, 0, 0, 0}, {}}};
    std::vector<KVOSimDistributionID> ids;
    for (Rows const& matrix : matrices) {
        ids.push_back(Store(matrix));
        EXPECT_EQ(Load(ids.back()), matrix);
    }
    {
        KVOSimContext contextObject(context);
        KVOSimTransaction transaction(contextObject);
        Store(kSymmetric); // and never commits
    }
    matrices[0].values = {7, 8, 9};
    KVOSimTransfer transfer = WholeView(ids[0]);
    Rows::SetBuffers(transfer, matrices[0]);
    transfer.ExecWrite();
    Reopen(true);

    EXPECT_EQ(KVOSimContext(database.ContextID()).QueryDistributions().Size(), 3);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        KVOSimDistributionID const id = Again(ids[i]);
        EXPECT_EQ(Load(id), matrices[i]);
        EXPECT_EQ(Describe(id).kind, matrices[i].diagonal.empty() ? KVOSimSparseDrawer : KVOSimSparseSymDrawer);
        EXPECT_EQ(Describe(id).extendableDim, -1);
        EXPECT_EQ(Describe(id).csets[1].CollectionID().Color(), 1);
    }
}

TEST_F(Sparse, RowsAreReadByThemselves)
{
    for (Rows const& matrix : {kMatrix, kSymmetric})
        for (auto const& [first, last] : std::vector<std::pair<int, int>>{{0, 0}, {1, 1}, {1, 2}, {2, 2}, {0, 2}}) {
            SCOPED_TRACE(testing::PrintToString(matrix.values) + std::to_string(first) + std::to_string(last));
            KVOSimDistributionID const id = Store(matrix);
            KVOSimTransfer transfer = Window(id, {{first, last}});
            std::vector<int> starts(static_cast<std::size_t>(last - first) + 2);
            transfer.SetBuffer(2, starts.data(), starts.size() * sizeof(int));
            transfer.ExecRead();
            EXPECT_EQ(starts, std::vector<int>(matrix.rowStart.begin() + first, matrix.rowStart.begin() + last + 2));

            auto const entries = static_cast<std::size_t>(starts.back() - starts.front());
            Rows part{std::vector<double>(entries), std::vector<int>(entries), starts,
                      std::vector<double>(matrix.diagonal.empty() ? 0 : starts.size() - 1)};
            Rows::SetBuffers(transfer, part);
            transfer.ExecRead();
            EXPECT_TRUE(std::equal(part.values.begin(), part.values.end(), matrix.values.begin() + starts[0]));
            EXPECT_TRUE(std::equal(part.columnIndices.begin(), part.columnIndices.end(), matrix.columnIndices.begin() + starts[0]));
            EXPECT_TRUE(
                std::equal(part.diagonal.begin(), part.diagonal.end(), matrix.diagonal.begin() + (matrix.diagonal.empty() ? 0 : first)));
            if (last - first < 2) {
                transfer.SetVerify();
                ExpectFailure("transferred whole", [&] { transfer.ExecRead(); });
            }
        }
    KVOSimTransfer columns = Window(Store(kMatrix), {{0, 2}, {0, 1}}), written = Window(Store(kMatrix), {{0, 1}});
    ExpectFailure("transferred whole", [&] { columns.ExecRead(); });
    ExpectFailure("transferred whole", [&] { written.ExecWrite(); });
    ExpectFailure("transferred whole", [&] { Window(Store(kMatrix), {{0, 3}}).ExecRead(); });
}

TEST_F(Sparse, RefusesWrongSizesAndIndices)
{
    KVOSimDistributionID const id = MakeDistribution(context, {sets[0].CollectionID(), sets[1].CollectionID()});
    auto const expectRefused = [&](char const* text, auto const& spoil) {
        Rows matrix = kSymmetric;
        spoil(matrix);
        ExpectFailure(text, [&] { matrix.NewDrawer(id, sets).ExecWrite(); });
    };
    expectRefused("12 bytes, the view needs 16", [](Rows& m) { m.rowStart = {0, 1, 2}; });
    expectRefused("4 bytes, the view needs 8", [](Rows& m) { m.columnIndices = {1}; });
    expectRefused("8 bytes, the view needs 24", [](Rows& m) { m.diagonal = {1}; });
    expectRefused("column indices", [](Rows& m) { m.columnIndices[1] = 3; });
    expectRefused("column indices", [](Rows& m) { m.columnIndices[0] = -1; });
    for (std::vector<int> const& rowStart : std::vector<std::vector<int>>{{1, 1, 1, 2}, {0, 2, 1, 2}, {0, 1, 1, 1}})
        expectRefused("row starts", [&](Rows& m) { m.rowStart = rowStart; });

    KVOSimTransfer chunked = NewDrawer(KVOSimDistribution(id), sets, {1, 1}), early = kMatrix.NewDrawer(id, sets);
    chunked.SetSerialization(kMatrix.Type());
    ExpectFailure("no chunks", [&] { chunked.CheckView(); });
    ExpectFailure("when its values are written", [&] { early.InitializePersistentDrawer(); });
    EXPECT_TRUE(DrawersOf(id).IsEmpty());

    KVOSimDistributionID const stored = Store(kSymmetric);
    KVOSimTransfer part = WholeView(stored);
    part.SetDimOrdinalRange(0, rows, 0, 1);
    ExpectFailure("transferred whole", [&] { part.CheckView(); });
    part.SetSerialization(kMatrix.Type());
    ExpectFailure("kind 4, the transfer's serialization of kind 3", [&] { part.CheckView(); });
    ExpectFailure("no slot 4", [&] { KVOSimDistribution(stored).DataSizeItems(0, 4); });
}
