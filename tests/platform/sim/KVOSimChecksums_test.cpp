#include "SimClient.h"

#include <cstdlib>
#include <optional>
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
        Create(database);
        columns = KVOSimContext(Context()).CreateCollection(2);
        rows = KVOSimContext(Context()).CreateCollection(3);
        chunked = MakeMatrix(Context(), {MakeSet(columns, {0, 1}), MakeSet(rows, {0, 1, 2})}, {2, 2}, 0.5).Index();
        contiguous = MakeMatrix(Context(), {MakeSet(rows, {0, 1, 2})}).Index();
        Rows{{1, 2}, {1, 0}, {0, 1, 1, 2}, {}}.Store(Context(), Biggest(rows), Biggest(columns));
        Again();
    }

    KVOSimContextID Context() const { return database.ContextID(); }
    KVOSimDistributionID Matrix(int index) const { return {Context(), index}; }
    void Again()
    {
        Reopen(database);
        columns = KVOSimCollectionID(Context(), columns.Index());
        rows = KVOSimCollectionID(Context(), rows.Index());
    }
    void Extend(int index, int dim, KVOSimCollectionID const& collection, int count)
    {
        std::vector<int> numbers;
        while (static_cast<int>(numbers.size()) < count)
            numbers.push_back(m_nextNumber++);
        KVOSimTransfer transfer{KVOSimDistribution(Matrix(index))};
        transfer.SetWrite();
        transfer.SetDimExtension(dim, MakeSet(collection, numbers));
        transfer.InitializeExtension();
    }
    void WriteSomewhere(std::mt19937& random)
    {
        KVOSimDrawer const drawer = Describe(Matrix(chunked));
        KVOSimTransfer transfer{KVOSimDistribution(Matrix(chunked))};
        transfer.SetWrite();
        for (int d = 0; d < 2; ++d) {
            int const at = static_cast<int>(random() % static_cast<unsigned>(drawer.dimensionSizes[d]));
            transfer.SetDimOrdinalRange(d, d == 0 ? columns : rows, at, at);
        }
        double const value = static_cast<double>(random());
        transfer.SetBuffer(0, &value, sizeof value);
        transfer.ExecWrite();
    }

    /// What a reader gets of the file as the last commit left it.
    std::vector<std::vector<double>> Committed() const
    {
        std::string const copy = folder / "copy.sim";
        WriteFile(copy, ReadFile(path));
        KVOSimDatabase reader;
        reader.OpenFile(copy.c_str(), true);
        for (KVOSimDamage const& damage : reader.Check().damages)
            ADD_FAILURE() << damage.what.Utf8();
        return {ReadAll({reader.ContextID(), chunked}), ReadAll({reader.ContextID(), contiguous})};
    }

    KVOSimDatabase database;
    KVOSimCollectionID columns, rows;
    int chunked = 0, contiguous = 0;

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
            Again();
        }
        KVOSimContext context(Context());
        KVOSimDistribution const open(round % 3 == 0 ? Matrix(chunked) : KVOSimDistributionID(Matrix(contiguous)));
        for (int i = 0; i < 12; ++i)
            WriteSomewhere(random);
        {
            KVOSimTransaction dropped(context);
            Extend(chunked, 0, columns, 3);
            WriteSomewhere(random);
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
        transaction.Commit();
        EXPECT_EQ(Committed(), (std::vector{ReadAll(Matrix(chunked)), ReadAll(Matrix(contiguous))}));
        if (round % 4 == 3)
            Again();
    }
    EXPECT_GT(KVOSimDistribution(Matrix(chunked)).DataSizeItems(0, 0), 2000);
}

// Written anew by another program, a file has other places; from then on there are checksums of the catalogue only.
TEST_F(Checksums, OfPlacesEndWhenAnotherProgramWritesTheFileAnew)
{
    std::mt19937 random(2);
    for (int round = 0; round < 2; ++round) {
        database.Close();
        std::string const anew = folder / "anew.sim";
        ASSERT_EQ(std::system(("h5repack -S NONE '" + path + "' '" + anew + "' && mv '" + anew + "' '" + path + "'").c_str()), 0);
        database.OpenFile(path.c_str(), false);
        columns = KVOSimCollectionID(Context(), columns.Index());
        rows = KVOSimCollectionID(Context(), rows.Index());
        Extend(chunked, 0, columns, 5);
        WriteSomewhere(random);
        MakeMatrix(Context(), {Biggest(rows)});
        Again();
        EXPECT_EQ(Committed(), (std::vector{ReadAll(Matrix(chunked)), ReadAll(Matrix(contiguous))}));
    }
}
