#include "Tool.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numbers>
#include <numeric>

using testing::HasSubstr;

namespace
{

struct Pair {
    char const* stiffness;
    char const* mass;
    char const* reference;
};

constexpr Pair kPairs[] = {{"bcsstk01.mtx", "bcsstm01.mtx", "reference/bcsst01.txt"},
                           {"bcsstk02.mtx", "bcsstm02r.mtx", "reference/bcsst02.txt"},
                           {"bcsstk11.mtx", "bcsstm12.mtx", "reference/orecar.txt"}};

std::vector<double> ReferenceEigenvalues(std::string const& path)
{
    std::istringstream file(ReadFile(path));
    std::vector<double> lambda;
    for (std::string line; std::getline(file, line);)
        if (!line.starts_with('#'))
            lambda.push_back(std::stod(line));
    return lambda;
}

double Dot(std::vector<double> const& x, std::vector<double> const& y)
{
    return std::inner_product(x.begin(), x.end(), y.begin(), 0.0);
}

// Checks eigenvalues and modes in a database against the matrices they were computed from: X^T M X = I and, as the modes diagonalise
// the stiffness then, X^T K X = the eigenvalues. Errors of the modes come in squared there, so each equation is looked at alone, too.
void ExpectModes(Tool const& tool, std::string const& database, MarketFile const& stiffness, MarketFile const& mass, double tolerance)
{
    tool.Do({"db", "export", database, "2", "modes.mtx"});
    tool.Do({"db", "export", database, "3", "lambda.mtx"});
    MarketFile const modes(tool / "modes.mtx");
    std::vector<double> const lambda = MarketFile(tool / "lambda.mtx").Column(0);
    ASSERT_EQ(modes.columns, static_cast<int>(lambda.size()));
    ASSERT_EQ(modes.rows, stiffness.rows);

    for (int i = 0; i < modes.columns; ++i) {
        SCOPED_TRACE("mode " + std::to_string(i + 1));
        std::vector<double> const x = modes.Column(i), massX = mass.Times(x), stiffnessX = stiffness.Times(x);
        for (int j = 0; j <= i; ++j)
            EXPECT_NEAR(Dot(modes.Column(j), massX), i == j ? 1.0 : 0.0, tolerance);
        double const value = lambda[static_cast<std::size_t>(i)];
        EXPECT_NEAR(Dot(x, stiffnessX), value, tolerance * value);
        double residual = 0.0, scale = 0.0;
        for (std::size_t k = 0; k < x.size(); ++k) {
            residual += std::pow(stiffnessX[k] - value * massX[k], 2);
            scale += std::pow(stiffnessX[k], 2);
        }
        EXPECT_LE(std::sqrt(residual / scale), 1e-4);
    }
}

} // namespace

TEST(Modes, LowestTenOfEveryPairAgreeWithTheReferences)
{
    for (Pair const& pair : kPairs) {
        SCOPED_TRACE(pair.stiffness);
        Tool const tool;
        auto const result = tool.Json({"modes", Data(pair.stiffness), Data(pair.mass), "--reference", Data(pair.reference)});

        std::vector<double> const expected = ReferenceEigenvalues(Data(pair.reference));
        std::vector<double> const lambda = result.at("eigenvalues"), frequencies = result.at("frequencies");
        ASSERT_EQ(lambda.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_NEAR(lambda[i], expected[i], 1e-9 * expected[i]);
            EXPECT_DOUBLE_EQ(frequencies[i], std::sqrt(lambda[i]) / (2.0 * std::numbers::pi));
            EXPECT_LT(result.at("residuals")[i], 1e-5);
        }
    }
}

TEST(Modes, AllFiniteModesOfASingularMass)
{
    Tool const tool;
    tool.Do({"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "--count", "24", "-o", "all.sim", "--picture", "all.png"});

    ExpectModes(tool, "all.sim", MarketFile(Data("bcsstk01.mtx")), MarketFile(Data("bcsstm01.mtx")), 1e-9);
    EXPECT_TRUE(tool.Files().at("all.png").starts_with("\x89PNG"));
    Outcome const tooMany = tool({"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "--count", "25", "-o", "more.sim"});
    EXPECT_EQ(tooMany.code, 1);
    EXPECT_THAT(tooMany.err, HasSubstr("24 unknowns with mass"));
    EXPECT_FALSE(tool.Files().contains("more.sim"));
}

TEST(Modes, DatabaseKeepsThePairAndCanBeComputedFromAgain)
{
    Tool const tool;
    tool.Do({"modes", Data("bcsstk11.mtx"), Data("bcsstm12.mtx"), "-n", "3", "-o", "first.sim"});
    auto const first = tool.Json({"modes", "first.sim:0", "first.sim:1", "-n", "3", "-o", "second.sim"});
    tool.Do({"db", "export", "second.sim", "0", "k.mtx"});

    EXPECT_EQ(MarketFile(tool / "k.mtx").entries, MarketFile(Data("bcsstk11.mtx")).entries);
    EXPECT_NEAR(first.at("eigenvalues")[0], 3469.3054478847303, 3469.0 * 1e-9);
}

// The largest models in core and the smallest of CHOLMOD solve the same equations: each is checked for itself.
TEST(Modes, OfBricksOnBothSidesOfTheInCoreLimit)
{
    for (char const* length : {"12", "13"}) { // 2916 and 3159 unknowns
        SCOPED_TRACE(length);
        Tool const tool;
        tool.Do({"make-brick", length, "8", "8", "k.mtx", "m.mtx"});
        auto const result = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "5", "-o", "modes.sim"});

        EXPECT_EQ(result.at("solver").get<std::string>().starts_with("CHOLMOD"), std::string(length) == "13");
        ExpectModes(tool, "modes.sim", MarketFile(tool / "k.mtx"), MarketFile(tool / "m.mtx"), 1e-9);
    }
}

TEST(Modes, OfAFreeBodyBeginWithSixRigidOnesWhateverTheShift)
{
    Tool const tool;
    tool.Do({"make-brick", "6", "3", "2", "k.mtx", "m.mtx", "--free"});
    auto const chosen = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "12"});
    auto const given = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "12", "--shift", "0.3"});

    double const elastic = chosen.at("eigenvalues")[6];
    EXPECT_GT(elastic, 0.01);
    EXPECT_GT(chosen.at("shift"), 0.0);
    for (std::size_t i = 0; i < 12; ++i) {
        double const lambda = chosen.at("eigenvalues")[i];
        EXPECT_NEAR(lambda, given.at("eigenvalues")[i], 1e-9 * std::max(lambda, elastic));
        if (i < 6)
            EXPECT_LT(std::fabs(lambda), 1e-10 * elastic);
        else
            EXPECT_GE(lambda, elastic);
    }
    EXPECT_THAT(tool({"modes", "k.mtx", "m.mtx", "--shift", "0"}).err, HasSubstr("greater --shift"));
}

// The diagonals suggest a shift a million times the lowest elastic eigenvalue, under which all modes look alike.
TEST(Modes, ShiftComesDownToTheModesOfASlenderFreeBody)
{
    Tool const tool;
    tool.Do({"make-brick", "400", "1", "1", "k.mtx", "m.mtx", "--free"});
    auto const result = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "10"});

    std::vector<double> const lambda = result.at("eigenvalues");
    EXPECT_LT(result.at("shift"), 10.0 * lambda[6]);
    EXPECT_LT(std::fabs(lambda[5]), 1e-6 * lambda[6]);
    // A free beam has (4.7300 / L)^2 and (7.8532 / L)^2 in its first two bending frequencies, each in two directions.
    EXPECT_NEAR(std::sqrt(lambda[8] / lambda[6]), std::pow(7.85320 / 4.73004, 2), 1e-3);
    EXPECT_NEAR(lambda[7], lambda[6], 1e-6 * lambda[6]);
}

TEST(Modes, DifferentFromTheReferenceIsAFailureThatKeepsTheResult)
{
    Tool const tool;
    std::string reference = "# lambda frequency\n";
    for (double const lambda : ReferenceEigenvalues(Data("reference/bcsst02.txt")))
        reference += "0 " + std::to_string(std::sqrt(lambda) / (2.0 * std::numbers::pi)) + "\n"; // to six places only
    WriteFile(tool / "coarse.txt", reference);

    Outcome const outcome = tool({"modes", Data("bcsstk02.mtx"), Data("bcsstm02r.mtx"), "--reference", "coarse.txt"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("coarse.txt: the frequencies differ"));
    EXPECT_TRUE(tool.Files().contains("bcsstk02-modes.sim"));
}
