#include "SimClient.h"

#include <cstring>
#include <limits>
#include <random>

using namespace SimClient;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

/// A database with a matrix of 5 columns and 4 rows, filled with 1, 2, ...
class Transfer : public DatabaseTest
{
protected:
    Transfer()
    {
        context = Create(database);
        columns = KVOSimContext(context).CreateCollection(5);
        rows = KVOSimContext(context).CreateCollection(4);
        matrix = MakeMatrix(context, {Biggest(columns), MakeSet(rows, {40, 10, 30, 20})}, {2, 3});
        WriteAll(matrix, Ramp(20));
    }

    KVOSimTransfer Ready() const
    {
        KVOSimTransfer transfer{KVOSimDistribution(matrix)};
        transfer.SetRead();
        transfer.SetWrite();
        transfer.SetBufferPadding(0);
        return transfer;
    }
    KVOSimTransfer Window(int c0, int c1, int r0, int r1) const
    {
        KVOSimTransfer transfer = Ready();
        transfer.SetDimOrdinalRange(0, columns, c0, c1);
        transfer.SetDimOrdinalRange(1, rows, r0, r1);
        return transfer;
    }

    KVOSimDatabase database;
    KVOSimContextID context;
    KVOSimCollectionID columns, rows;
    KVOSimDistributionID matrix;
    std::vector<double> values = std::vector<double>(20, -7.0);
    std::size_t const bytes = 20 * sizeof(double);
};

} // namespace

TEST_F(Transfer, MovesWindowsPackedAndLeavesTheRestOfTheBuffer)
{
    KVOSimTransfer transfer = Window(1, 2, 2, 3);
    transfer.CheckView();
    transfer.SetBuffer(0, values.data(), bytes);
    transfer.ExecRead();
    EXPECT_EQ(std::vector<double>(values.begin(), values.begin() + 5), (std::vector<double>{7, 8, 11, 12, -7}));

    std::vector<double> const written{-1, -2, -3, -4};
    transfer.SetBuffer(0, written.data(), 4 * sizeof(double));
    transfer.ExecWrite();
    EXPECT_EQ(ReadAll(matrix), (std::vector<double>{1, 2, 3, 4, 5, 6, -1, -2, 9, 10, -3, -4, 13, 14, 15, 16, 17, 18, 19, 20}));
}

TEST_F(Transfer, RefusesWhatCannotBeDoneAndChangesNothing)
{
    double* const data = values.data();
    KVOSimCollectionID const other = KVOSimContext(context).CreateCollection(5);
    auto const refused = [&](auto const& prepare) {
        return FailureOf([&] {
            KVOSimTransfer transfer = Window(0, 4, 0, 3);
            prepare(transfer);
            transfer.CheckView();
            transfer.ExecWrite();
        });
    };

    EXPECT_THAT(FailureOf([] { KVOSimTransfer{KVOSimDistribution()}; }), HasSubstr("the distribution is null"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDimOrdinalRange(0, columns, 0, 5); }), HasSubstr("0 to 5 of dimension 0 lie outside"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDimOrdinalRange(0, columns, -1, 2); }), HasSubstr("-1 to 2"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDimOrdinalRange(0, columns, 3, 2); }), HasSubstr("3 to 2"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDimOrdinalRange(2, columns, 0, 0); }), HasSubstr("no dimension 2"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDimOrdinalRange(0, rows, 0, 0); }), HasSubstr("another collection"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDimOrdinalRange(0, KVOSimCollectionID(), 0, 0); }), HasSubstr("null"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDim(0, KVOSimCSetID()); }), HasSubstr("null"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDim(0, Biggest(other)); }), HasSubstr("another collection"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDim(0, KVOSimCSetID(columns, 99)); }), HasSubstr("no set 99"));
    EXPECT_THAT(refused([&](auto& t) { t.SetDim(1, MakeSet(rows, {10, 50})); }), HasSubstr("members that the drawer has not"));
    EXPECT_THAT(refused([&](auto&) {}), HasSubstr("slot 0 has no buffer"));
    EXPECT_THAT(refused([&](auto& t) { t.SetBuffer(0, data, bytes - 1); }), HasSubstr("159 bytes, the view needs 160"));
    EXPECT_THAT(refused([&](auto& t) { t.SetBuffer(0, static_cast<double*>(nullptr), 8); }), HasSubstr("is null"));
    EXPECT_THAT(refused([&](auto& t) { t.SetBuffer(4, data, bytes); }), HasSubstr("no buffer slot 4"));
    EXPECT_THAT(refused([&](auto& t) { t.SetBufferPadding(8); }), HasSubstr("padding"));
    EXPECT_THAT(refused([&](auto& t) {
                    KVOSimSerializationType sparse;
                    sparse.SetSparse();
                    t.SetSerialization(sparse);
                }),
                HasSubstr("kind 1, the transfer's serialization of kind 3"));
    EXPECT_THAT(refused([&](auto& t) { t.SetSparseNNonzero(-1); }), HasSubstr("negative"));
    EXPECT_THAT(refused([&](auto& t) { t.SetInitializationValue(0, KVOSimInt32); }), HasSubstr("of type 2"));
    EXPECT_THAT(refused([&](auto& t) { t.InitializePersistentDrawer(); }), HasSubstr("not told to make"));
    EXPECT_THAT(refused([&](auto& t) { t.InitializeExtension(); }), HasSubstr("no new members"));

    KVOSimTransfer incomplete = Ready();
    incomplete.SetDimOrdinalRange(0, columns, 0, 4);
    EXPECT_THAT(FailureOf([&] { incomplete.CheckView(); }), HasSubstr("dimension 1 of the view is not set"));
    KVOSimTransfer readOnly{KVOSimDistribution(matrix)}, constant = Window(0, 4, 0, 3);
    readOnly.SetRead();
    EXPECT_THAT(FailureOf([&] { readOnly.ExecWrite(); }), HasSubstr("not set up for writing"));
    constant.SetBuffer(0, static_cast<void const*>(data), bytes);
    EXPECT_THAT(FailureOf([&] { constant.ExecRead(); }), HasSubstr("for writing only"));
    EXPECT_EQ(ReadAll(matrix), Ramp(20));
    EXPECT_EQ(values, std::vector<double>(20, -7.0));
}

TEST_F(Transfer, RefusesDrawersThatCannotBe)
{
    KVOSimDistribution const distribution(matrix);
    KVOSimTransfer chunked(distribution);
    EXPECT_THAT(FailureOf([&] { NewDrawer(distribution, {Biggest(columns), Biggest(rows)}, {0, 3}); }), HasSubstr("chunk size 0"));
    EXPECT_THAT(FailureOf([&] { NewDrawer(distribution, {Biggest(columns), Biggest(rows)}, {3, -2}); }), HasSubstr("chunk size -2"));
    EXPECT_THAT(FailureOf([&] {
                    NewDrawer(distribution, {Biggest(columns), Biggest(rows)}, {3});
                }),
                HasSubstr("one chunk size per dimension"));
    EXPECT_THAT(FailureOf([&] { NewDrawer(distribution, {Biggest(columns), Biggest(rows)}, {65536, 8192}); }), HasSubstr("4 GiB"));
    EXPECT_THAT(FailureOf([&] { NewDrawer(distribution, {Biggest(columns)}, {}).CheckView(); }),
                HasSubstr("dimension 1 of the new drawer"));
    KVOSimTransfer range = NewDrawer(distribution, {Biggest(columns), Biggest(rows)}, {});
    range.SetDimOrdinalRange(1, rows, 0, 1);
    EXPECT_THAT(FailureOf([&] { range.InitializePersistentDrawer(); }), HasSubstr("dimension 1 of the new drawer has no set"));

    std::vector<KVOSimCSetID> huge;
    for (int d = 0; d < 3; ++d)
        huge.push_back(Biggest(KVOSimContext(context).CreateCollection(std::numeric_limits<int>::max())));
    EXPECT_THAT(FailureOf([&] { MakeMatrix(context, huge, {1, 1, 1}); }), HasSubstr("2^63"));
    EXPECT_EQ(KVOSimContext(context).QueryDistributions().Size(), 2) << "the distribution was made, its drawer not";
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    EXPECT_EQ(drawers.Size(), 1);
}

// Every shape of a chunk against the matrix, the chunk larger than a dimension included.
TEST_F(Transfer, WorksForEveryChunking)
{
    for (std::vector<int> const& chunks : std::vector<std::vector<int>>{{}, {1, 1}, {5, 4}, {100, 3}, {2, 100}, {7, 7}}) {
        SCOPED_TRACE(testing::PrintToString(chunks));
        KVOSimDistributionID const id = MakeMatrix(context, {Biggest(columns), Biggest(rows)}, chunks, 2.5);
        EXPECT_EQ(ReadAll(id), std::vector<double>(20, 2.5));
        KVOSimTransfer transfer{KVOSimDistribution(id)};
        transfer.SetWrite();
        transfer.SetDimOrdinalRange(0, columns, 4, 4);
        transfer.SetDimOrdinalRange(1, rows, 1, 3);
        double const written[] = {8, 9, 10};
        transfer.SetBuffer(0, written, sizeof written);
        transfer.ExecWrite();

        std::vector<double> expected(20, 2.5);
        expected[17] = 8, expected[18] = 9, expected[19] = 10;
        EXPECT_EQ(ReadAll(id), expected);
        EXPECT_THAT(List(Describe(id).chunkSizes), testing::ElementsAreArray(chunks));
    }
}

TEST_F(Transfer, TellsWhichChunksExist)
{
    KVOSimDistributionID const id = MakeMatrix(context, {Biggest(columns), Biggest(rows)}, {2, 3});
    KVOSimDistribution const distribution(id);
    KVOSimTransfer transfer{distribution};
    transfer.SetWrite();
    transfer.SetDimOrdinalRange(0, columns, 2, 2);
    transfer.SetDimOrdinalRange(1, rows, 3, 3);
    double const value = 1.0;
    transfer.SetBuffer(0, &value, sizeof value);
    transfer.ExecWrite();

    auto const allocated = [&](KVOSimDimRange const& c, KVOSimDimRange const& r) {
        KVOSimArray<KVOSimDimRange> range;
        range.Append(c), range.Append(r);
        return distribution.ChunkAllocated(0, range);
    };
    for (int c = 0; c < 3; ++c)
        for (int r = 0; r < 2; ++r)
            EXPECT_EQ(allocated({columns, c, c}, {rows, r, r}), c == 1 && r == 1) << c << ' ' << r;
    EXPECT_FALSE(allocated({columns, 0, 2}, {rows, 1, 1}));
    EXPECT_THAT(FailureOf([&] { allocated({columns, 3, 3}, {rows, 0, 0}); }), HasSubstr("3 to 3 lie outside"));
    EXPECT_THAT(FailureOf([&] { allocated({rows, 0, 0}, {rows, 0, 0}); }), HasSubstr("collection of range 0"));
    EXPECT_THAT(FailureOf([&] { allocated({columns, 0, 0, 2}, {rows, 0, 0}); }), HasSubstr("kind 3"));
    EXPECT_THAT(FailureOf([&] { distribution.ChunkAllocated(1, {}); }), HasSubstr("no drawer 1"));
    EXPECT_THAT(FailureOf([&] { distribution.ChunkAllocated(0, {}); }), HasSubstr("one range per dimension"));
}

// Members in an order of their own, against a plain copy element by element.
TEST_F(Transfer, TakesSubsetsAndPermutationsOfTheMembers)
{
    std::mt19937 random(5);
    std::vector<int> const rowNumbers{40, 10, 30, 20};
    for (int repetition = 0; repetition < 40; ++repetition) {
        SCOPED_TRACE(repetition);
        std::vector<int> c{0, 1, 2, 3, 4}, r = rowNumbers;
        std::shuffle(c.begin(), c.end(), random), std::shuffle(r.begin(), r.end(), random);
        c.resize(1 + random() % 5), r.resize(1 + random() % 4);
        std::vector<double> before = ReadAll(matrix), expected = before, moved(c.size() * r.size());
        KVOSimTransfer transfer = Ready();
        transfer.SetDim(0, MakeSet(columns, c));
        transfer.SetDim(1, MakeSet(rows, r));
        auto const place = [&](std::size_t i, std::size_t j) {
            return static_cast<std::size_t>(c[i]) * 4 +
                   static_cast<std::size_t>(std::find(rowNumbers.begin(), rowNumbers.end(), r[j]) - rowNumbers.begin());
        };

        transfer.SetBuffer(0, moved.data(), moved.size() * sizeof(double));
        transfer.ExecRead();
        for (std::size_t i = 0; i < c.size(); ++i)
            for (std::size_t j = 0; j < r.size(); ++j) {
                EXPECT_EQ(moved[i * r.size() + j], before[place(i, j)]);
                expected[place(i, j)] = moved[i * r.size() + j] *= -2.0;
            }
        transfer.ExecWrite();
        EXPECT_EQ(ReadAll(matrix), expected);
    }
    EXPECT_THAT(FailureOf([&] {
                    KVOSimDistributionID const twice = MakeMatrix(context, {MakeSet(rows, {1, 1})});
                    KVOSimTransfer transfer{KVOSimDistribution(twice)};
                    transfer.SetDim(0, MakeSet(rows, {1}));
                    transfer.CheckView();
                }),
                HasSubstr("or has twice"));
}

TEST_F(Transfer, WritesNewDrawersOfEveryTypeAtOnce)
{
    std::vector<int> const numbers{5, -6, 7, 8, 9};
    for (int key = KVOSimInt8; key <= KVOSimReference32; ++key) {
        SCOPED_TRACE(key);
        std::size_t const size = static_cast<std::size_t>(KVOSimTypeKeySize(key));
        std::vector<std::byte> written(5 * size), read(5 * size);
        for (std::size_t i = 0; i < written.size(); ++i)
            written[i] = static_cast<std::byte>(17 * i + 1);
        KVOSimArray<KVOSimCollectionID> grid;
        grid.Append(columns);
        KVOSimDistributionID const id = KVOSimContext(context).CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(key), -1);
        KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {Biggest(columns)}, {});
        transfer.SetBuffer(0, static_cast<void const*>(written.data()), written.size() - 1);
        EXPECT_THAT(FailureOf([&] { transfer.ExecWrite(); }), HasSubstr("the view needs"));
        transfer.SetBuffer(0, static_cast<void const*>(written.data()), written.size());
        transfer.ExecWrite();
        transfer.ExecWrite(); // the same drawer again, not a second one
        Reopen(database);

        context = database.ContextID();
        columns = KVOSimCollectionID(context, columns.Index());
        KVOSimDistributionID const found(context, id.Index());
        KVOSimTransfer reader = WholeView(found);
        reader.SetBuffer(0, read.data(), read.size());
        reader.ExecRead();
        EXPECT_EQ(read, written);
        EXPECT_EQ(Describe(found).typeKey, key);
        EXPECT_EQ(Describe(found).extendableDim, 0);
    }
}

TEST_F(Transfer, InitialisesWithValuesOfTheTypeOnly)
{
    KVOSimArray<KVOSimCollectionID> grid;
    grid.Append(columns);
    auto const transferOf = [&](int key) {
        return KVOSimTransfer(KVOSimDistribution(KVOSimContext(context).CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(key), -1)));
    };
    struct Case {
        int key;
        double good, bad;
    };
    for (Case const& c : {Case{KVOSimInt8, -128, 128},
                          {KVOSimUInt8, 255, -1},
                          {KVOSimInt32, 2147483647.0, 2147483648.0},
                          {KVOSimEnum32, -5, 0.5},
                          {KVOSimUInt32, 4294967295.0, std::nan("")},
                          {KVOSimReference32, 0, 1e300},
                          {KVOSimFloat, 1e-300, 1e300}}) {
        SCOPED_TRACE(c.key);
        transferOf(c.key).SetInitializationValue(c.good, c.key);
        EXPECT_THAT(FailureOf([&] { transferOf(c.key).SetInitializationValue(c.bad, c.key); }),
                    HasSubstr("none of the distribution's type"));
    }
    KVOSimDistributionID const id = KVOSimContext(context).CreateDistribution(KVOSimGrid(grid), KVOSimRangeType(KVOSimInt32), -1);
    KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {Biggest(columns)}, {2});
    transfer.SetInitializationValue(-3.0, KVOSimInt32);
    transfer.InitializePersistentDrawer();
    std::vector<int> read(5);
    KVOSimTransfer reader = WholeView(id);
    reader.SetBuffer(0, read.data(), read.size() * sizeof(int));
    reader.ExecRead();
    EXPECT_EQ(read, std::vector<int>(5, -3));
}

TEST_F(Transfer, ExtendsAlongEveryDimension)
{
    for (std::vector<int> const& chunks : std::vector<std::vector<int>>{{}, {2, 2, 2}}) {
        SCOPED_TRACE(chunks.size());
        std::vector<KVOSimCollectionID> collections;
        std::vector<KVOSimCSetID> sets;
        for (int d = 0; d < 3; ++d) {
            collections.push_back(KVOSimContext(context).CreateCollection(2));
            sets.push_back(Biggest(collections.back()));
        }
        KVOSimDistributionID const id = MakeMatrix(context, sets, chunks, 9.0);
        WriteAll(id, Ramp(8));
        EXPECT_EQ(Describe(id).extendableDim, -1) << "three dimensions have no number for all of them";

        KVOSimTransfer transfer{KVOSimDistribution(id)};
        transfer.SetWrite();
        for (int d = 0; d < 3; ++d)
            transfer.SetDimExtension(d, MakeSet(collections[static_cast<std::size_t>(d)], {7 + d}));
        transfer.CheckView();
        transfer.InitializeExtension();

        std::vector<double> expected(27, 9.0);
        for (std::size_t i = 0; i < 8; ++i)
            expected[i / 4 * 9 + i / 2 % 2 * 3 + i % 2] = static_cast<double>(i + 1);
        EXPECT_EQ(ReadAll(id), expected);
        EXPECT_THAT(Members(Describe(id).csets[2]), ElementsAre(0, 1, 9));

        transfer.SetDimExtension(1, MakeSet(collections[1], {20, 8}));
        EXPECT_THAT(FailureOf([&] { transfer.CheckView(); }), HasSubstr("twice in dimension 1"));
        EXPECT_THAT(FailureOf([&] { transfer.InitializeExtension(); }), HasSubstr("twice in dimension 1"));
        transfer.SetDimExtension(1, MakeSet(collections[1], {}));
        EXPECT_THAT(FailureOf([&] { transfer.CheckView(); }), HasSubstr("empty"));
        EXPECT_EQ(ReadAll(id), expected);
    }
}

TEST_F(Transfer, MovesNothingOverAnEmptySet)
{
    KVOSimCSetID const empty = MakeSet(rows, {});
    KVOSimDistributionID const id = MakeMatrix(context, {Biggest(columns), empty});
    KVOSimTransfer transfer = WholeView(id);
    transfer.SetBuffer(0, static_cast<double*>(nullptr), 0);
    transfer.ExecWrite();
    transfer.ExecRead();
    EXPECT_EQ(KVOSimDistribution(id).DataSizeItems(0, 0), 0);
    KVOSimTransfer part = Ready();
    part.SetDimOrdinalRange(0, columns, 0, 4);
    part.SetDim(1, empty);
    part.SetBuffer(0, values.data(), 0);
    part.ExecRead();
    EXPECT_EQ(values, std::vector<double>(20, -7.0));
}

TEST_F(Transfer, CopiesAreIndependent)
{
    KVOSimTransfer const base = Ready();
    KVOSimTransfer first(base), second(base);
    first.SetDimOrdinalRange(0, columns, 0, 0);
    first.SetDimOrdinalRange(1, rows, 0, 0);
    EXPECT_THAT(FailureOf([&] { second.CheckView(); }), HasSubstr("not set"));
    first.SetBuffer(0, values.data(), 8);
    first.ExecRead();
    EXPECT_EQ(values[0], 1.0);
    first.AnnounceRead();
    second.AnnounceRead();
}
