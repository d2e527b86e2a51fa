#include "SimClient.h"

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
        context = Create();
        columns = KVOSimContext(context).CreateCollection(5);
        rows = KVOSimContext(context).CreateCollection(4);
        matrix = MakeMatrix(context, {Biggest(columns), MakeSet(rows, {40, 10, 30, 20})}, {2, 3});
        WriteAll(matrix, Ramp(20));
    }

    KVOSimTransfer Whole() const { return Window(matrix, {{0, 4}, {0, 3}}); }

    KVOSimContextID context;
    KVOSimCollectionID columns, rows;
    KVOSimDistributionID matrix;
    std::vector<double> values = std::vector<double>(20, -7.0);
    std::size_t const bytes = 20 * sizeof(double);
};

} // namespace

TEST_F(Transfer, MovesWindowsPackedAndLeavesTheRestOfTheBuffer)
{
    KVOSimTransfer transfer = Window(matrix, {{1, 2}, {2, 3}});
    transfer.AnnounceRead();
    Read(transfer, values);
    EXPECT_EQ(std::vector<double>(values.begin(), values.begin() + 5), (std::vector<double>{7, 8, 11, 12, -7}));

    Write(transfer, std::vector<double>{-1, -2, -3, -4});
    EXPECT_EQ(ReadAll(matrix), (std::vector<double>{1, 2, 3, 4, 5, 6, -1, -2, 9, 10, -3, -4, 13, 14, 15, 16, 17, 18, 19, 20}));
}

TEST_F(Transfer, RefusesWhatCannotBeDoneAndChangesNothing)
{
    double* const data = values.data();
    KVOSimCollectionID const other = KVOSimContext(context).CreateCollection(5);
    auto const expectRefused = [&](char const* text, auto const& prepare) {
        ExpectFailure(text, [&] {
            KVOSimTransfer transfer = Whole();
            prepare(transfer);
            transfer.CheckView();
            transfer.ExecWrite();
        });
    };

    ExpectFailure("the distribution is null", [] { KVOSimTransfer{KVOSimDistribution()}; });
    expectRefused("0 to 5 of dimension 0 lie outside", [&](auto& t) { t.SetDimOrdinalRange(0, columns, 0, 5); });
    expectRefused("-1 to 2", [&](auto& t) { t.SetDimOrdinalRange(0, columns, -1, 2); });
    expectRefused("3 to 2", [&](auto& t) { t.SetDimOrdinalRange(0, columns, 3, 2); });
    expectRefused("no dimension 2", [&](auto& t) { t.SetDimOrdinalRange(2, columns, 0, 0); });
    expectRefused("another collection", [&](auto& t) { t.SetDimOrdinalRange(0, rows, 0, 0); });
    expectRefused("null", [&](auto& t) { t.SetDimOrdinalRange(0, KVOSimCollectionID(), 0, 0); });
    expectRefused("null", [&](auto& t) { t.SetDim(0, KVOSimCSetID()); });
    expectRefused("another collection", [&](auto& t) { t.SetDim(0, Biggest(other)); });
    expectRefused("no set 99", [&](auto& t) { t.SetDim(0, KVOSimCSetID(columns, 99)); });
    expectRefused("members that the drawer has not", [&](auto& t) { t.SetDim(1, MakeSet(rows, {10, 50})); });
    expectRefused("slot 0 has no buffer", [&](auto&) {});
    expectRefused("159 bytes, the view needs 160", [&](auto& t) { t.SetBuffer(0, data, bytes - 1); });
    expectRefused("is null", [&](auto& t) { t.SetBuffer(0, static_cast<double*>(nullptr), 8); });
    expectRefused("no buffer slot 4", [&](auto& t) { t.SetBuffer(4, data, bytes); });
    expectRefused("padding", [&](auto& t) { t.SetBufferPadding(8); });
    expectRefused("kind 1, the transfer's serialization of kind 3", [&](auto& t) {
        KVOSimSerializationType sparse;
        sparse.SetSparse();
        t.SetSerialization(sparse);
    });
    expectRefused("negative", [&](auto& t) { t.SetSparseNNonzero(-1); });
    expectRefused("of type 2", [&](auto& t) { t.SetInitializationValue(0, KVOSimInt32); });
    expectRefused("not told to make", [&](auto& t) { t.InitializePersistentDrawer(); });
    expectRefused("no new members", [&](auto& t) { t.InitializeExtension(); });

    KVOSimTransfer readOnly{KVOSimDistribution(matrix)}, constant = Whole();
    readOnly.SetRead();
    readOnly.SetDimOrdinalRange(0, columns, 0, 4);
    ExpectFailure("dimension 1 of the view is not set", [&] { readOnly.CheckView(); });
    ExpectFailure("not set up for writing", [&] { readOnly.ExecWrite(); });
    constant.SetBuffer(0, static_cast<void const*>(data), bytes);
    ExpectFailure("for writing only", [&] { constant.ExecRead(); });
    EXPECT_EQ(ReadAll(matrix), Ramp(20));
    EXPECT_EQ(values, std::vector<double>(20, -7.0));
}

TEST_F(Transfer, RefusesDrawersThatCannotBe)
{
    KVOSimDistribution const distribution(matrix);
    std::vector<KVOSimCSetID> const sets{Biggest(columns), Biggest(rows)};
    ExpectFailure("chunk size 0", [&] { NewDrawer(distribution, sets, {0, 3}); });
    ExpectFailure("chunk size -2", [&] { NewDrawer(distribution, sets, {3, -2}); });
    ExpectFailure("one chunk size per dimension", [&] { NewDrawer(distribution, sets, {3}); });
    ExpectFailure("4 GiB", [&] { NewDrawer(distribution, sets, {65536, 8192}); });
    ExpectFailure("dimension 1 of the new drawer", [&] { NewDrawer(distribution, {Biggest(columns)}, {}).CheckView(); });
    KVOSimTransfer range = NewDrawer(distribution, sets, {}), sums = range;
    sums.SetValueChecksums();
    ExpectFailure("choose chunk sizes", [&] { sums.InitializePersistentDrawer(); });
    range.SetDimOrdinalRange(1, rows, 0, 1);
    ExpectFailure("dimension 1 of the new drawer has no set", [&] { range.InitializePersistentDrawer(); });

    std::vector<KVOSimCSetID> huge;
    for (int d = 0; d < 3; ++d)
        huge.push_back(Biggest(KVOSimContext(context).CreateCollection(std::numeric_limits<int>::max())));
    ExpectFailure("2^63", [&] { MakeMatrix(context, huge, {1, 1, 1}); });
    EXPECT_EQ(KVOSimContext(context).QueryDistributions().Size(), 2) << "the distribution was made, its drawer not";
    EXPECT_EQ(DrawersOf(matrix).Size(), 1);
}

TEST_F(Transfer, TellsWhichChunksExist)
{
    KVOSimDistributionID const id = MakeMatrix(context, {Biggest(columns), Biggest(rows)}, {2, 3});
    KVOSimDistribution const distribution(id);
    Write(Window(id, {{2, 2}, {3, 3}}), std::vector{1.0});
    ReadAll(id); // allocates nothing

    auto const allocated = [&](KVOSimDimRange const& c, KVOSimDimRange const& r) {
        return distribution.ChunkAllocated(0, KVOSimArray<KVOSimDimRange>(std::vector{c, r}));
    };
    for (int c = 0; c < 3; ++c)
        for (int r = 0; r < 2; ++r)
            EXPECT_EQ(allocated({columns, c, c}, {rows, r, r}), c == 1 && r == 1) << c << ' ' << r;
    EXPECT_FALSE(allocated({columns, 0, 2}, {rows, 1, 1}));
    ExpectFailure("3 to 3 lie outside", [&] { allocated({columns, 3, 3}, {rows, 0, 0}); });
    ExpectFailure("collection of range 0", [&] { allocated({rows, 0, 0}, {rows, 0, 0}); });
    ExpectFailure("kind 3", [&] { allocated({columns, 0, 0, 2}, {rows, 0, 0}); });
    ExpectFailure("no drawer 1", [&] { distribution.ChunkAllocated(1, {}); });
    ExpectFailure("one range per dimension", [&] { distribution.ChunkAllocated(0, {}); });
    KVOSimArray<KVOSimDimRange> const all(std::vector<KVOSimDimRange>{{columns, 0, 0}});
    EXPECT_TRUE(KVOSimDistribution(MakeMatrix(context, {Biggest(columns)})).ChunkAllocated(0, all)) << "contiguous";
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
        KVOSimTransfer transfer = Whole();
        transfer.SetDim(0, MakeSet(columns, c));
        transfer.SetDim(1, MakeSet(rows, r));
        auto const place = [&](std::size_t i, std::size_t j) {
            return static_cast<std::size_t>(c[i]) * 4 +
                   static_cast<std::size_t>(std::find(rowNumbers.begin(), rowNumbers.end(), r[j]) - rowNumbers.begin());
        };

        Read(transfer, moved);
        for (std::size_t i = 0; i < c.size(); ++i)
            for (std::size_t j = 0; j < r.size(); ++j) {
                EXPECT_EQ(moved[i * r.size() + j], before[place(i, j)]);
                expected[place(i, j)] = moved[i * r.size() + j] *= -2.0;
            }
        Write(transfer, moved);
        EXPECT_EQ(ReadAll(matrix), expected);
    }
    KVOSimTransfer twice = WholeView(MakeMatrix(context, {MakeSet(rows, {1, 1})}));
    twice.SetDim(0, MakeSet(rows, {1}));
    ExpectFailure("or has twice", [&] { twice.CheckView(); });
}

TEST_F(Transfer, WritesNewDrawersOfEveryTypeAtOnce)
{
    for (int key = KVOSimInt8; key <= KVOSimReference32; ++key) {
        SCOPED_TRACE(key);
        std::size_t const size = static_cast<std::size_t>(KVOSimTypeKeySize(key));
        std::vector<std::byte> written(5 * size), read(5 * size);
        for (std::size_t i = 0; i < written.size(); ++i)
            written[i] = static_cast<std::byte>(17 * i + 1);
        KVOSimDistributionID const id = MakeDistribution(context, {columns}, key);
        KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {Biggest(columns)}, {});
        transfer.SetBuffer(0, static_cast<void const*>(written.data()), written.size() - 1);
        ExpectFailure("the view needs", [&] { transfer.ExecWrite(); });
        transfer.SetBuffer(0, static_cast<void const*>(written.data()), written.size());
        transfer.ExecWrite();
        transfer.ExecWrite(); // the same drawer again, not a second one
        Reopen();

        context = database.ContextID();
        columns = Again(columns);
        KVOSimDistributionID const found = Again(id);
        Read(WholeView(found), read);
        EXPECT_EQ(read, written);
        EXPECT_EQ(Describe(found).typeKey, key);
        EXPECT_EQ(Describe(found).extendableDim, 0);
    }
}

TEST_F(Transfer, InitialisesWithValuesOfTheTypeOnly)
{
    auto const set = [&](int key, double value) {
        KVOSimTransfer(KVOSimDistribution(MakeDistribution(context, {columns}, key))).SetInitializationValue(value, key);
    };
    std::tuple<int, double, double> const goodAndBad[] = {{KVOSimInt8, -128, 128},
                                                          {KVOSimUInt8, 255, -1},
                                                          {KVOSimInt32, 2147483647.0, 2147483648.0},
                                                          {KVOSimEnum32, -5, 0.5},
                                                          {KVOSimUInt32, 4294967295.0, std::nan("")},
                                                          {KVOSimReference32, 0, 1e300},
                                                          {KVOSimFloat, 1e-300, 1e300}};
    for (auto const& [key, good, bad] : goodAndBad) {
        set(key, good);
        EXPECT_THROW(set(key, bad), KVOSimException) << key;
    }
    KVOSimDistributionID const id = MakeDistribution(context, {columns}, KVOSimInt32);
    KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), {Biggest(columns)}, {2});
    transfer.SetInitializationValue(-3.0, KVOSimInt32);
    transfer.InitializePersistentDrawer();
    std::vector<int> read(5);
    Read(WholeView(id), read);
    EXPECT_EQ(read, std::vector<int>(5, -3));
}

TEST_F(Transfer, ExtendsAlongEveryDimension)
{
    for (std::vector<int> const& chunks : std::vector<std::vector<int>>{{}, {2, 2, 2}}) {
        SCOPED_TRACE(chunks.size());
        std::vector<KVOSimCSetID> sets;
        for (int d = 0; d < 3; ++d)
            sets.push_back(Biggest(KVOSimContext(context).CreateCollection(2)));
        KVOSimDistributionID const id = MakeMatrix(context, sets, chunks, 9.0);
        WriteAll(id, Ramp(8));
        EXPECT_EQ(Describe(id).extendableDim, -1) << "three dimensions have no number for all of them";
        EXPECT_EQ(Describe(matrix).extendableDim, 2) << "both of two";

        KVOSimTransfer transfer{KVOSimDistribution(id)};
        transfer.SetWrite();
        for (int d = 0; d < 3; ++d)
            transfer.SetDimExtension(d, MakeSet(sets[static_cast<std::size_t>(d)].CollectionID(), {7 + d}));
        transfer.CheckView();
        transfer.InitializeExtension();

        std::vector<double> expected(27, 9.0);
        for (std::size_t i = 0; i < 8; ++i)
            expected[i / 4 * 9 + i / 2 % 2 * 3 + i % 2] = static_cast<double>(i + 1);
        EXPECT_EQ(ReadAll(id), expected);
        EXPECT_THAT(NumbersOf(Describe(id).csets[2]), ElementsAre(0, 1, 9));

        transfer.SetDimExtension(1, MakeSet(sets[1].CollectionID(), {20, 8}));
        ExpectFailure("twice in dimension 1", [&] { transfer.CheckView(); });
        ExpectFailure("twice in dimension 1", [&] { transfer.InitializeExtension(); });
        transfer.SetDimExtension(1, MakeSet(sets[1].CollectionID(), {}));
        ExpectFailure("empty", [&] { transfer.CheckView(); });
        EXPECT_EQ(ReadAll(id), expected);
    }
}

TEST_F(Transfer, MovesNothingOverAnEmptySet)
{
    KVOSimCSetID const empty = MakeSet(rows, {});
    KVOSimDistributionID const id = MakeMatrix(context, {Biggest(columns), empty});
    WriteAll(id, {});
    EXPECT_EQ(ReadAll(id), std::vector<double>());
    KVOSimTransfer part = Whole();
    part.SetDim(1, empty);
    part.SetBuffer(0, values.data(), 0);
    part.ExecRead();
    EXPECT_EQ(values, std::vector<double>(20, -7.0));
}
