#include "RankTool.h"

#include "KVOSimCollection.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransaction.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvUtilities.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

using Words = std::vector<std::string>;

// Whole numbers, column by column: their products are exact, in whatever order they are summed.
std::vector<double> Numbers(int rows, int columns, int seed)
{
    std::vector<double> values;
    for (int k = 0; k < rows * columns; ++k)
        values.push_back((k * 37 + seed) % 101 - 50);
    return values;
}

std::vector<double> Product(std::vector<double> const& a, std::vector<double> const& b, int m, int k, int n)
{
    std::vector<double> c(static_cast<std::size_t>(m) * static_cast<std::size_t>(n));
    for (int j = 0; j < n; ++j)
        for (int l = 0; l < k; ++l)
            for (int i = 0; i < m; ++i)
                c[static_cast<std::size_t>(i + j * m)] += a[static_cast<std::size_t>(i + l * m)] * b[static_cast<std::size_t>(l + j * k)];
    return c;
}

/// A database with stored matrices.
class Stored
{
public:
    explicit Stored(std::string const& path)
    {
        m_database.CreateFile(DRXUnicodeString(path.c_str()), 0);
        m_context.emplace(m_database.CreateContext());
    }
    ~Stored() { m_database.Close(); }

    /// @param tileRows,tileColumns  of the chunks; -1: none
    void Add(int rows, int columns, int tileRows, int tileColumns, std::vector<double> values)
    {
        KVOSimTransaction transaction(*m_context);
        KVOSimCSetID const rowSet = Set(rows), columnSet = Set(columns);
        KVOSrvDenseMatrix matrix(KVOSrvUtilities::Create2DDistribution(rowSet, columnSet, tileRows, tileColumns));
        matrix.SetRows(0, rows - 1, KVOSrvMatrix(rows, columns, values.data(), false, false));
        transaction.Commit();
    }

private:
    KVOSimCSetID Set(int count) { return KVOSimCollection(m_context->CreateCollection(count)).BiggestCSetID(); }

    KVOSimDatabase m_database;
    std::optional<KVOSimContext> m_context;
};

std::vector<double> Load(std::string const& path, int number)
{
    KVOSimDatabase database;
    database.OpenFile(DRXUnicodeString(path.c_str()), true);
    KVOSrvDenseMatrix const matrix(KVOSimContext(database.ContextID()).QueryDistributions()[number]);
    std::vector<double> values(static_cast<std::size_t>(matrix.NumberOfRows()) * static_cast<std::size_t>(matrix.NumberOfColumns()));
    matrix.GetAllValues(values.data());
    return values;
}

bool IsSound(std::string const& path)
{
    KVOSimDatabase database;
    database.OpenFile(DRXUnicodeString(path.c_str()), true);
    return database.Check().damages.IsEmpty();
}

int CountOf(std::string const& path)
{
    KVOSimDatabase database;
    database.OpenFile(DRXUnicodeString(path.c_str()), true);
    return KVOSimContext(database.ContextID()).QueryDistributions().Size();
}

} // namespace

// Blocks at the edges, blocks of A and B that do not match, a matrix without blocks and one that is less than a block, which leaves ranks
// without any.
TEST(GemmOnRanks, IsTheProductWhateverTheBlocks)
{
    RankTool tool;
    auto const a = Numbers(130, 75, 1), b = Numbers(75, 90, 2), narrow = Numbers(75, 1, 3);
    {
        Stored stored(tool / "x.sim");
        stored.Add(130, 75, 32, 20, a);
        stored.Add(75, 90, 11, 17, b);
        stored.Add(75, 90, -1, -1, b);
        stored.Add(75, 1, 1000, 8, narrow);
    }
    int next = 4;
    for (auto const& [ranks, right] : std::vector<std::pair<int, int>>{{1, 1}, {2, 1}, {3, 1}, {3, 2}, {2, 3}}) {
        SCOPED_TRACE(std::to_string(ranks) + " ranks, times " + std::to_string(right));
        auto const result = tool.JsonOnRanks(ranks, {"gemm", "x.sim", "0", std::to_string(right), std::to_string(next)});
        EXPECT_EQ(result.at("ranks"), ranks);
        EXPECT_EQ(Load(tool / "x.sim", next), right == 3 ? Product(a, narrow, 130, 75, 1) : Product(a, b, 130, 75, 90));
        ++next;
    }
    EXPECT_THAT(tool.Do({"db", "check", "x.sim"}), HasSubstr("sound"));
    EXPECT_THAT(tool.Do({"db", "ls", "x.sim"}), HasSubstr("32 x 17"));
}

TEST(GemmOnRanks, RefusesWhatCannotBeMultipliedOrIsNotOneFile)
{
    RankTool tool;
    for (std::string const folder : {"a", "b", "c"})
        std::filesystem::create_directory(tool / folder);
    for (std::string const folder : {"a/", "b/"}) {
        Stored stored(tool / (folder + "x.sim"));
        stored.Add(5, 4, 2, 2, Numbers(5, 4, 1));
        stored.Add(5, 4, 2, 2, Numbers(5, 4, 2));
        stored.Add(4, 5, 2, 2, Numbers(4, 5, 2));
    }
    std::filesystem::copy_file(tool / "a/x.sim", tool / "c/x.sim");
    auto const before = ReadFile(tool / "a/x.sim");
    struct Case {
        int code;
        Words arguments;
        std::string text;
    };
    for (auto const& [code, arguments, text] : {Case{1, {"gemm", "a/x.sim", "0", "1", "3"}, "the inner sizes must be equal"},
                                                {2, {"gemm", "a/x.sim", "0", "2", "1"}, "is there already"},
                                                {3, {"gemm", "a/x.sim", "0", "7", "3"}, "holds no matrix 7"}}) {
        Outcome const outcome = tool.OnRanks(2, arguments);
        EXPECT_EQ(outcome.code, code);
        EXPECT_THAT(OwnLines(outcome.err), ElementsAre(HasSubstr(text)));
    }
    // Another file, and a copy, which nobody has open for writing where the second rank sees it.
    for (auto const& [folder, code] : {std::pair{"b", 3}, {"c", 4}}) {
        Outcome const outcome =
            tool.Apart({{"-n", "1", "-wdir", tool / "a"}, {"-n", "1", "-wdir", tool / folder}}, {"gemm", "x.sim", "0", "2", "3"});
        EXPECT_EQ(outcome.code, code);
        EXPECT_THAT(OwnLines(outcome.err), ElementsAre(HasSubstr("rank 1: ")));
        EXPECT_EQ(CountOf(tool / "a/x.sim"), 3);
    }
    EXPECT_EQ(CountOf(tool / "c/x.sim"), 3);
}

// At each of its changes of the file: what was committed is there, and the product as a whole or not at all.
TEST(GemmOnRanks, AnyRankMayBeKilledAtAnyWrite)
{
    RankTool tool;
    auto const a = Numbers(20, 30, 1), b = Numbers(30, 4, 2), c = Product(a, b, 20, 30, 4);
    {
        Stored stored(tool / "first.sim");
        stored.Add(20, 30, 10, 30, a);
        stored.Add(30, 4, 30, 2, b);
    }
    int kills[2] = {0, 0};
    for (std::size_t const rank : {0u, 1u})
        for (int call = 0;; ++call) {
            SCOPED_TRACE("rank " + std::to_string(rank) + ", call " + std::to_string(call));
            std::filesystem::copy_file(tool / "first.sim", tool / "x.sim", std::filesystem::copy_options::overwrite_existing);
            std::filesystem::remove(tool / "x.sim.journal");
            std::vector<Words> groups(2, {"-n", "1"});
            groups[rank].insert(groups[rank].end(), {"-x", "LD_PRELOAD=" KVO_FAIL_SYSTEM_CALL, "-x", "KVO_FAIL_NAME=x.sim", "-x",
                                                     "KVO_FAIL_CALL=4 " + std::to_string(call) + " " + (tool / "killed") + " kill"});
            Outcome const outcome = tool.Apart(groups, {"gemm", "x.sim", "0", "1", "2"});
            bool const wasKilled = std::filesystem::remove(tool / "killed");
            EXPECT_EQ(outcome.code == 0, !wasKilled) << outcome.err;
            EXPECT_TRUE(IsSound(tool / "x.sim"));
            EXPECT_EQ(Load(tool / "x.sim", 0), a);
            EXPECT_EQ(Load(tool / "x.sim", 1), b);
            if (CountOf(tool / "x.sim") > 2) {
                EXPECT_EQ(Load(tool / "x.sim", 2), c);
            }
            if (!wasKilled || HasFailure())
                break;
            ++kills[rank];
        }
    EXPECT_GT(kills[0], 8);
    EXPECT_GT(kills[1], 2);
}
