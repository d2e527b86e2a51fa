#include "SimClient.h"

#include <array>

using namespace SimClient;
using testing::HasSubstr;

namespace
{

/// Compressed rows, counted from 0.
struct Rows {
    std::vector<double> values;
    std::vector<int> columnIndices, rowStart;
    std::vector<double> diagonal;

    friend bool operator==(Rows const&, Rows const&) = default;
};

Rows const kMatrix{{1.5, 2.5, 3.5}, {1, 0, 2}, {0, 1, 1, 3}, {}};
Rows const kSymmetric{{1.5, 2.5}, {1, 2}, {0, 1, 1, 2}, {10, 20, 30}};

class Sparse : public DatabaseTest
{
protected:
    Sparse()
    {
        context = Create(database);
        rows = KVOSimContext(context).CreateCollection(3);
        sets = {Biggest(rows), Biggest(KVOSimCollection(rows).CreateColorVariant(1))};
    }

    KVOSimDistributionID MakeDistribution() const
    {
        KVOSimArray<KVOSimCollectionID> grid;
        grid.Append(rows), grid.Append(KVOSimCollection(rows).CreateColorVariant(1));
        return KVOSimContext(context).CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(KVOSimDouble), -1);
    }

    static KVOSimSerializationType Type(Rows const& matrix)
    {
        KVOSimSerializationType type;
        matrix.diagonal.empty() ? type.SetSparse() : type.SetSparseSym();
        return type;
    }
    template<class Matrix>
    static void SetBuffers(KVOSimTransfer& transfer, Matrix& matrix)
    {
        transfer.SetBuffer(2, matrix.rowStart.data(), matrix.rowStart.size() * 4);
        transfer.SetBuffer(1, matrix.columnIndices.data(), matrix.columnIndices.size() * 4);
        transfer.SetBuffer(0, matrix.values.data(), matrix.values.size() * 8);
        if (!matrix.diagonal.empty())
            transfer.SetBuffer(3, matrix.diagonal.data(), matrix.diagonal.size() * 8);
    }
    KVOSimTransfer NewSparse(KVOSimDistributionID const& id, Rows const& matrix) const
    {
        KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), sets, {});
        transfer.SetSparseNNonzero(static_cast<std::int64_t>(matrix.values.size()));
        transfer.SetSerialization(Type(matrix));
        SetBuffers(transfer, matrix);
        return transfer;
    }
    KVOSimDistributionID Store(Rows const& matrix) const
    {
        KVOSimDistributionID const id = MakeDistribution();
        KVOSimTransfer transfer = NewSparse(id, matrix);
        transfer.CheckView();
        transfer.ExecWrite();
        return id;
    }

    static Rows Load(KVOSimDistributionID const& id)
    {
        KVOSimDistribution const distribution(id);
        KVOSimDrawer const drawer = Describe(id);
        bool const symmetric = drawer.serialization.Code() == KVOSimSparseSymDrawer;
        auto const count = [&](int slot) { return static_cast<std::size_t>(distribution.DataSizeItems(0, slot)); };
        Rows matrix{std::vector<double>(count(0)), std::vector<int>(count(1)), std::vector<int>(count(2)),
                    std::vector<double>(symmetric ? count(3) : 0)};
        KVOSimTransfer transfer(distribution);
        transfer.SetRead();
        transfer.SetBufferPadding(0);
        transfer.SetSerialization(drawer.serialization);
        transfer.SetDim(0, drawer.csets[0]);
        transfer.SetDim(1, drawer.csets[1]);
        transfer.CheckView();
        SetBuffers(transfer, matrix);
        transfer.ExecRead();
        return matrix;
    }

    KVOSimDatabase database;
    KVOSimContextID context;
    KVOSimCollectionID rows;
    std::vector<KVOSimCSetID> sets;
};

} // namespace

TEST_F(Sparse, ComesBackAsItWas)
{
    Rows const empty{{}, {}, {0, 0, 0, 0}, {}};
    std::vector<Rows> const matrices{kMatrix, kSymmetric, empty};
    std::vector<KVOSimDistributionID> ids;
    for (Rows const& matrix : matrices) {
        ids.push_back(Store(matrix));
        EXPECT_EQ(Load(ids.back()), matrix);
    }
    Reopen(database, true);

    for (std::size_t i = 0; i < ids.size(); ++i) {
        KVOSimDistributionID const id(database.ContextID(), ids[i].Index());
        EXPECT_EQ(Load(id), matrices[i]);
        EXPECT_EQ(Describe(id).kind, matrices[i].diagonal.empty() ? KVOSimSparseDrawer : KVOSimSparseSymDrawer);
        EXPECT_EQ(Describe(id).extendableDim, -1);
        EXPECT_EQ(Describe(id).csets[1].CollectionID().Color(), 1);
    }
}

TEST_F(Sparse, RollsBackAndOverwrites)
{
    KVOSimDistributionID const id = Store(kMatrix);
    KVOSimContext contextObject(context);
    {
        KVOSimTransaction transaction(contextObject);
        Store(kSymmetric);
    }
    EXPECT_EQ(KVOSimContext(context).QueryDistributions().Size(), 1);

    Rows other = kMatrix;
    other.values = {7, 8, 9};
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    transfer.SetWrite();
    transfer.SetSerialization(Type(other));
    transfer.SetDim(0, sets[0]);
    transfer.SetDim(1, sets[1]);
    SetBuffers(transfer, other);
    transfer.ExecWrite();
    Reopen(database);
    EXPECT_EQ(Load(KVOSimDistributionID(database.ContextID(), id.Index())), other);
}

TEST_F(Sparse, RefusesWrongSizesAndIndices)
{
    KVOSimDistributionID const id = MakeDistribution();
    auto const refused = [&](auto const& spoil) {
        Rows matrix = kSymmetric;
        spoil(matrix);
        return FailureOf([&] { NewSparse(id, matrix).ExecWrite(); });
    };
    EXPECT_THAT(refused([](Rows& m) { m.rowStart = {0, 1, 2}; }), HasSubstr("12 bytes, the view needs 16"));
    EXPECT_THAT(refused([](Rows& m) { m.columnIndices = {1}; }), HasSubstr("4 bytes, the view needs 8"));
    EXPECT_THAT(refused([](Rows& m) { m.diagonal = {1}; }), HasSubstr("8 bytes, the view needs 24"));
    EXPECT_THAT(refused([](Rows& m) { m.columnIndices[1] = 3; }), HasSubstr("column indices"));
    EXPECT_THAT(refused([](Rows& m) { m.columnIndices[0] = -1; }), HasSubstr("column indices"));
    EXPECT_THAT(refused([](Rows& m) { m.rowStart = {1, 1, 1, 2}; }), HasSubstr("row starts"));
    EXPECT_THAT(refused([](Rows& m) { m.rowStart = {0, 2, 1, 2}; }), HasSubstr("row starts"));
    EXPECT_THAT(refused([](Rows& m) { m.rowStart = {0, 1, 1, 1}; }), HasSubstr("row starts"));

    KVOSimTransfer chunked = NewDrawer(KVOSimDistribution(id), sets, {1, 1}), early = NewSparse(id, kMatrix);
    chunked.SetSerialization(Type(kMatrix));
    EXPECT_THAT(FailureOf([&] { chunked.CheckView(); }), HasSubstr("no chunks"));
    EXPECT_THAT(FailureOf([&] { early.InitializePersistentDrawer(); }), HasSubstr("when its values are written"));
    KVOSimArray<KVOSimDrawer> drawers;
    KVOSimDistribution(id).QueryDrawers(drawers);
    EXPECT_TRUE(drawers.IsEmpty());

    KVOSimDistributionID const stored = Store(kSymmetric);
    KVOSimTransfer part{KVOSimDistribution(stored)}, wrongKind{KVOSimDistribution(stored)};
    for (KVOSimTransfer* const transfer : {&part, &wrongKind}) {
        transfer->SetRead();
        transfer->SetDim(0, sets[0]);
        transfer->SetDim(1, sets[1]);
    }
    part.SetSerialization(Type(kSymmetric));
    part.SetDimOrdinalRange(0, rows, 0, 1);
    wrongKind.SetSerialization(Type(kMatrix));
    EXPECT_THAT(FailureOf([&] { part.CheckView(); }), HasSubstr("transferred whole"));
    EXPECT_THAT(FailureOf([&] { wrongKind.CheckView(); }), HasSubstr("kind 4, the transfer's serialization of kind 3"));
    EXPECT_THAT(FailureOf([&] { KVOSimDistribution(stored).DataSizeItems(0, 4); }), HasSubstr("no slot 4"));
}
