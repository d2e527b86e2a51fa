#include "SimClient.h"

#include <random>

using namespace SimClient;

namespace
{

/// A database with a chunked, a contiguous and a sparse matrix, and what its readers say of it after each commit.
class Checksums : public DatabaseTest
{
protected:
    Checksums()
    {
        Create();
        columns = KVOSimContext(Context()).CreateCollection(2);
        rows = KVOSimContext(Context()).CreateCollection(3);
        chunked = MakeDistribution(Context(), {columns, rows}).Index();
        KVOSimTransfer transfer =
            NewDrawer(KVOSimDistribution(Matrix(chunked)), {MakeSet(columns, {0, 1}), MakeSet(rows, {0, 1, 2})}, {2, 2});
        transfer.SetInitializationValue(0.5, KVOSimDouble);
        transfer.SetValueChecksums();
        transfer.InitializePersistentDrawer();
        contiguous = MakeMatrix(Context(), {MakeSet(rows, {0, 1, 2})}).Index();
        sparse = MakeDistribution(Context(), {rows, columns}).Index();
        KVOSimTransfer arrays = sparseRows.NewDrawer(Matrix(sparse), {Biggest(rows), Biggest(columns)});
        arrays.SetValueChecksums();
        arrays.ExecWrite();
        ReopenAll();
    }

    KVOSimContextID Context() const { return database.ContextID(); }
    KVOSimDistributionID Matrix(int index) const { return {Context(), index}; }
    void ReopenAll()
    {
        Reopen();
        columns = Again(columns);
        rows = Again(rows);
    }
    void Extend(int index, int dim, KVOSimCollectionID const& collection, int count)
    {
        std::vector<int> numbers;
        while (static_cast<int>(numbers.size()) < count)
            numbers.push_back(m_nextNumber++);
        SimClient::Extend(Matrix(index), dim, MakeSet(collection, numbers));
    }
    /// Some values, parts of chunks or several of them.
    void WriteSomewhere(std::mt19937& random)
    {
        std::vector<std::pair<int, int>> ranges;
        std::size_t count = 1;
        for (int const size : Describe(Matrix(chunked)).dimensionSizes) {
            int const first = static_cast<int>(random() % 1000) % size, last = std::min(size - 1, first + static_cast<int>(random() % 4));
            ranges.emplace_back(first, last);
            count *= static_cast<std::size_t>(last - first + 1);
        }
        Write(Window(Matrix(chunked), ranges), std::vector<double>(count, static_cast<double>(random())));
    }

    /// The damage that a reader finds in a file of these bytes.
    std::vector<std::string> DamageIn(std::string const& bytes) const
    {
        WriteFile(copy, bytes);
        KVOSimDatabase reader;
        reader.OpenFile(copy.c_str(), true);
        std::vector<std::string> all;
        for (KVOSimDamage const& damage : reader.Check().damages)
            all.push_back(damage.what.Utf8());
        return all;
    }
    void CommitAll() const
    {
        KVOSimContext context(Context());
        KVOSimTransaction transaction(context);
        transaction.Commit();
    }
    /// What a reader gets of the file as the last commit left it.
    std::vector<std::vector<double>> Committed() const
    {
        EXPECT_THAT(DamageIn(ReadFile(path)), testing::IsEmpty());
        KVOSimDatabase reader;
        reader.OpenFile(copy.c_str(), true);
        return {ReadVerified({reader.ContextID(), chunked}), ReadVerified({reader.ContextID(), contiguous})};
    }
    static std::vector<double> ReadVerified(KVOSimDistributionID const& id)
    {
        std::vector<double> values(static_cast<std::size_t>(KVOSimDistribution(id).DataSizeItems(0, 0)), -99.0);
        KVOSimTransfer transfer = WholeView(id);
        transfer.SetVerify();
        EXPECT_EQ(transfer.FetchInPlace(), nullptr);
        Read(transfer, values);
        return values;
    }
    /// A process that is killed now leaves what the next one is told of, and no checksum that whole values don't fit.
    void ExpectHonestAfterKill() const { EXPECT_THAT(DamageIn(ReadFile(path)), testing::Each(testing::HasSubstr("were being changed"))); }

    std::string const copy = folder / "copy.sim";
    KVOSimCollectionID columns, rows;
    int chunked = 0, contiguous = 0, sparse = 0;
    Rows const sparseRows{{1.25e99, 2.5e99}, {1, 0}, {0, 1, 1, 2}, {}};

private:
    int m_nextNumber = 100;
};

} // namespace

// Chunks that get a place in this session or the next, extensions that are kept, dropped or wait while others commit, HDF5's own transfers,
// and enough chunks for several levels of their index.
TEST_F(Checksums, FitWhateverChangesThePlacesOfValues)
{
    std::mt19937 random(1);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        bool const byHdf5 = round % 10 == 7;
        if (round % 10 == 7 || round % 10 == 8) {
            byHdf5 ? setenv("KVO_SIM_DATA_PATH", "hdf5", 1) : unsetenv("KVO_SIM_DATA_PATH");
            ReopenAll();
        }
        KVOSimContext context(Context());
        KVOSimDistribution const open(Matrix(round % 3 == 0 ? chunked : contiguous));
        for (int i = 0; i < 12; ++i)
            WriteSomewhere(random);
        ExpectHonestAfterKill();
        {
            KVOSimTransaction dropped(context);
            Extend(chunked, round % 4 / 2, round % 4 < 2 ? columns : rows, 3);
            for (int i = 0; i < 12; ++i)
                WriteSomewhere(random);
            ExpectHonestAfterKill();
            if (round % 2 == 0) {
                KVOSimTransaction other(context);
                MakeMatrix(Context(), {Biggest(rows)});
                other.Commit();
                Committed();
            }
        }
        KVOSimTransaction transaction(context);
        Extend(round % 5 == 0 ? contiguous : chunked, round % 5 == 0 ? 0 : round % 2, round % 5 == 0 || round % 2 == 1 ? rows : columns, 2);
        WriteSomewhere(random);
        ReadVerified(Matrix(chunked)); // what was not committed is no damage
        transaction.Commit();
        EXPECT_EQ(Committed(), (std::vector{ReadAll(Matrix(chunked)), ReadAll(Matrix(contiguous))}));
        if (round % 4 == 3)
            ReopenAll();
    }
    EXPECT_GT(KVOSimDistribution(Matrix(chunked)).DataSizeItems(0, 0), 2000);
}

// A disk that fails for good is as a kill at that call: each of a commit's in turn.
TEST_F(Checksums, OfValuesAreHonestWhereverACommitEnds)
{
    std::mt19937 random(3);
    int failures = 0;
    for (bool fails = true; fails; ++failures) {
        SCOPED_TRACE(failures);
        for (int i = 0; i < 3; ++i)
            WriteSomewhere(random);
        Extend(chunked, failures % 2, failures % 2 == 0 ? columns : rows, 1);
        WriteSomewhere(random);
        SetCallFault({SystemCall::Change, failures, EIO, 1000000});
        fails = FailureOf([&] { CommitAll(); }) != "no failure";
        SetCallFault({});
        if (std::filesystem::exists(path + ".journal"))
            std::filesystem::copy_file(path + ".journal", copy + ".journal");
        ExpectHonestAfterKill();
        std::filesystem::remove(copy + ".journal");
        CommitAll();
        EXPECT_EQ(Committed().front(), ReadAll(Matrix(chunked)));
    }
    EXPECT_GT(failures, 5);
}

// Written anew by another program, a file has other places; from then on there are checksums of the catalogue only.
TEST_F(Checksums, OfPlacesEndWhenAnotherProgramWritesTheFileAnew)
{
    std::mt19937 random(2);
    for (int round = 0; round < 2; ++round) {
        database.Close();
        std::string const anew = folder / "anew.sim";
        ASSERT_EQ(std::system(("h5repack -S NONE '" + path + "' '" + anew + "' && mv '" + anew + "' '" + path + "'").c_str()), 0);
        ReopenAll();
        Extend(chunked, 0, columns, 5);
        WriteSomewhere(random);
        MakeMatrix(Context(), {Biggest(rows)});
        ReopenAll();
        EXPECT_EQ(Committed(), (std::vector{ReadAll(Matrix(chunked)), ReadAll(Matrix(contiguous))}));
    }
}

// One byte after another of dense values and of the arrays of a sparse matrix.
TEST_F(Checksums, OfValuesTellAnyByte)
{
    WriteAll(Matrix(chunked), {0.5, 0.5, 3.25e99, 4.5e99, 0.5, 5.75e99});
    database.Close();
    std::string const sound = ReadFile(path);
    for (double const value : {3.25e99, 5.75e99, sparseRows.values[0], sparseRows.values[1]}) {
        std::size_t const at = sound.find(std::string(reinterpret_cast<char const*>(&value), sizeof value));
        ASSERT_NE(at, std::string::npos);
        for (std::size_t i = 0; i < sizeof value; ++i) {
            SCOPED_TRACE(testing::Message() << "byte " << i << " of " << value);
            std::string bytes = sound;
            bytes[at + i] = static_cast<char>(bytes[at + i] ^ (1 << i));
            EXPECT_THAT(DamageIn(bytes), testing::ElementsAre(testing::HasSubstr("fit")));
            if (value < 3e99)
                continue; // one of the sparse matrix
            KVOSimDatabase reader;
            reader.OpenFile(copy.c_str(), true);
            EXPECT_NO_THROW(ReadAll({reader.ContextID(), chunked}));
            ExpectFailure("distribution_0_drawer_0 in chunk (0, ", [&] { ReadVerified({reader.ContextID(), chunked}); });
        }
    }
}

// Values lie where they can be changed on some systems only; that they will be is stored in any case.
TEST_F(Checksums, OfValuesFollowChangesInPlace)
{
    WriteAll(Matrix(chunked), Ramp(6));
    CommitAll();
    KVOSimDistribution const open(Matrix(chunked));
    KVOSimTransfer transfer = WholeView(Matrix(chunked));
    transfer.SetDimOrdinalRange(1, rows, 0, 1);
    EXPECT_THAT(DamageIn(ReadFile(path)), testing::IsEmpty());
    if (void* const there = transfer.InPlaceForWriting())
        static_cast<double*>(there)[1] = -1;
    EXPECT_THAT(DamageIn(ReadFile(path)), testing::ElementsAre(testing::HasSubstr("chunk (0, 0) were being changed")));
    CommitAll();
    Committed();
}
