#include "RankTool.h"

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <gmock/gmock.h>
#include <numeric>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

using Words = std::vector<std::string>;

std::vector<double> Lambda(nlohmann::json const& result)
{
    return result.at("eigenvalues");
}

void ExpectClose(std::vector<double> const& found, std::vector<double> const& expected, double tolerance, double least = 0.0)
{
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_NEAR(found[i], expected[i], tolerance * std::max(std::fabs(expected[i]), least)) << i;
}

// X^T M X = I and X^T K X = the eigenvalues, of what lies in the database.
void ExpectStoredModes(Tool const& tool, std::string const& database, std::vector<double> const& lambda)
{
    EXPECT_THAT(tool.Do({"db", "check", database}), HasSubstr("sound"));
    for (std::string const number : {"0", "1", "2", "3"})
        tool.Do({"db", "export", database, number, number + ".mtx"});
    MarketFile const stiffness(tool / "0.mtx"), mass(tool / "1.mtx"), modes(tool / "2.mtx");
    ExpectClose(MarketFile(tool / "3.mtx").Column(0), lambda, 0.0);
    ASSERT_EQ(modes.columns, static_cast<int>(lambda.size()));
    for (int j = 0; j < modes.columns; ++j) {
        std::vector<double> const x = modes.Column(j), massX = mass.Times(x), stiffnessX = stiffness.Times(x);
        for (int i = 0; i <= j; ++i) {
            std::vector<double> const other = modes.Column(i);
            EXPECT_NEAR(std::inner_product(other.begin(), other.end(), massX.begin(), 0.0), i == j, 1e-9);
        }
        double const value = lambda[static_cast<std::size_t>(j)];
        EXPECT_NEAR(std::inner_product(x.begin(), x.end(), stiffnessX.begin(), 0.0), value, 1e-9 * value);
    }
}

} // namespace

// On three ranks the rows of the ore car end in a block that is shorter than the others; the smaller models leave ranks without rows.
TEST(ModesOnRanks, OfEveryPairAgreeWithTheReferencesAndEachOther)
{
    for (std::array<char const*, 3> const& pair : {std::array{"bcsstk01.mtx", "bcsstm01.mtx", "reference/bcsst01.txt"},
                                                   {"bcsstk02.mtx", "bcsstm02r.mtx", "reference/bcsst02.txt"},
                                                   {"bcsstk11.mtx", "bcsstm12.mtx", "reference/orecar.txt"}}) {
        RankTool tool;
        std::vector<double> first;
        for (int const ranks : {1, 2, 3}) {
            SCOPED_TRACE(pair[0] + (" on " + std::to_string(ranks)));
            auto const result =
                tool.JsonOnRanks(ranks, {"modes", Data(pair[0]), Data(pair[1]), "--reference", Data(pair[2]), "-o", "modes.sim"});
            EXPECT_LT(result.at("largest_difference"), 1e-9);
            EXPECT_EQ(result.at("ranks"), ranks);
            EXPECT_TRUE(result.at("certified"));
            std::vector<double> const residuals = result.at("residuals");
            EXPECT_LE(*std::ranges::max_element(residuals), 1e-10);
            if (ranks == 1)
                first = Lambda(result);
            ExpectClose(Lambda(result), first, 1e-10);
            ExpectStoredModes(tool, "modes.sim", Lambda(result));
        }
    }
}

// A shift is chosen and moved as by kvomtx; a range is found from any end; all modes of a singular mass.
TEST(ModesOnRanks, AreThoseOfOneProcess)
{
    RankTool tool;
    tool.Do({"make-brick", "6", "3", "2", "k.mtx", "m.mtx", "--free"});
    auto const expected = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "12", "-o", "one.sim"});
    std::vector<double> const frequencies = expected.at("frequencies"), lambda = Lambda(expected);
    auto const lowest = tool.JsonOnRanks(2, {"modes", "one.sim", "-n", "12", "-o", "ranks.sim"}); // from a database
    ExpectClose(Lambda(lowest), lambda, 1e-9, lambda[6]);
    EXPECT_GT(lowest.at("shift"), 0.0);
    EXPECT_EQ(lowest.at("mass"), "one.sim:1");

    std::string const to = std::to_string(0.5 * (frequencies[8] + frequencies[9]));
    auto const range = tool.JsonOnRanks(3, {"modes", "k.mtx", "m.mtx", "--range", "0", to, "-o", "ranks.sim"});
    ExpectClose(Lambda(range), {lambda.begin(), lambda.begin() + 9}, 1e-9, lambda[6]);
    auto const none =
        tool.JsonOnRanks(2, {"modes", "k.mtx", "m.mtx", "--range", to, std::to_string(std::stod(to) + 1e-6), "-o", "ranks.sim"});
    EXPECT_TRUE(Lambda(none).empty());

    auto const all = tool.JsonOnRanks(2, {"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "-n", "24", "-o", "ranks.sim"});
    ExpectClose(Lambda(all), Lambda(tool.Json({"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "-n", "24"})), 1e-9);
}

TEST(ModesOnRanks, HandOptionsOfTheSolverOn)
{
    RankTool tool;
    auto const onDisk = tool.JsonOnRanks(
        2, {"modes", Data("bcsstk11.mtx"), Data("bcsstm12.mtx"), "-st_mat_mumps_icntl_22", "1", "-o", "modes.sim", "-eps_ncv", "31"});
    EXPECT_TRUE(onDisk.at("factor").at("on_disk"));
    EXPECT_EQ(onDisk.at("basis"), 31);
}

// One line for all ranks, the codes of kvomtx, and what stood there stays.
TEST(ModesOnRanks, EndTogetherWithOneLine)
{
    RankTool tool;
    tool.Do({"make-brick", "4", "2", "2", "k.mtx", "m.mtx"});
    tool.Do({"convert", "k.mtx", "k.sim"});
    for (char const* folder : {"a", "b"})
        std::filesystem::create_directory(tool / folder);
    WriteFile(tool / "modes.sim", "good");
    auto const before = tool.Files();
    struct Case {
        int code;
        Words arguments;
        std::string text;
    };
    for (auto const& [code, arguments, text] : {Case{2, {"modes", "k.mtx"}, "the mass matrix is missing"},
                                                {3, {"modes", "k.sim"}, "holds no sparse matrix that is a stiffness"},
                                                {4, {"modes", "k.mtx", "m.mtx", "-o", "modes.sim"}, "is there already"},
                                                {1, {"modes", "k.mtx", "m.mtx", "-n", "1000"}, "there are no 1000 finite modes"},
                                                {1, {"modes", "k.mtx", "m.mtx", "-eps_type", "nonsense"}, "the solver failed"}}) {
        SCOPED_TRACE(text);
        Outcome const outcome = tool.OnRanks(2, arguments);
        EXPECT_EQ(outcome.code, code);
        EXPECT_THAT(OwnLines(outcome.err), ElementsAre(HasSubstr(text)));
        EXPECT_TRUE(tool.Files() == before);
    }
    // The second rank finds no file where the first one has put it.
    Outcome const apart = tool.Apart({{"-n", "1", "-wdir", tool / "a"}, {"-n", "1", "-wdir", tool / "b"}},
                                     {"modes", tool / "k.mtx", tool / "m.mtx", "-o", "modes.sim", "--force"});
    EXPECT_EQ(apart.code, 3);
    EXPECT_THAT(OwnLines(apart.err), ElementsAre(HasSubstr("rank 1: ")));
    EXPECT_THAT(apart.err, HasSubstr("in a folder that they share"));
}

TEST(ModesOnRanks, InterruptedLeaveNothing)
{
    RankTool tool;
    tool.Do({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
    auto const before = tool.Files();
    Words const group{"--mca", "odls_base_sigkill_timeout", "1", "-n", "2"}; // a second, as it is by default
    pid_t const child = tool.StartApart({group}, {"modes", "k.mtx", "m.mtx", "-n", "500", "-o", "modes.sim"});
    for (int k = 0; k < 6000 && tool.Files().size() == before.size(); ++k)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GT(tool.Files().size(), before.size());
    kill(child, SIGINT);
    EXPECT_NE(tool.Wait(child).code, 0);
    EXPECT_TRUE(tool.Files() == before);
}

// The disk is full for the second rank alone.
TEST(ModesOnRanks, FailureOfOneRankLeavesTheOldOutput)
{
    RankTool tool;
    tool.Do({"make-brick", "12", "4", "4", "k.mtx", "m.mtx"});
    WriteFile(tool / "modes.sim", "good");
    auto const before = tool.Files();
    Words const fault{
        "-n", "1", "-x", "LD_PRELOAD=" KVO_FAIL_SYSTEM_CALL, "-x", "KVO_FAIL_NAME=modes.sim", "-x", "KVO_FAIL_CALL=1 0 /dev/null"};
    Outcome const outcome = tool.Apart({{"-n", "1"}, fault}, {"modes", "k.mtx", "m.mtx", "-o", "modes.sim", "--force"});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(OwnLines(outcome.err), ElementsAre(HasSubstr("rank 1: ")));
    EXPECT_TRUE(tool.Files() == before);
}
