#include "Tool.h"

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numbers>
#include <numeric>
#include <thread>

using testing::HasSubstr;

namespace
{

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

std::vector<std::string> operator+(std::vector<std::string> values, std::vector<std::string> const& more)
{
    values.insert(values.end(), more.begin(), more.end());
    return values;
}

} // namespace

TEST(Modes, LowestTenOfEveryPairAgreeWithTheReferences)
{
    for (std::array<char const*, 3> const& pair : {std::array{"bcsstk01.mtx", "bcsstm01.mtx", "reference/bcsst01.txt"},
                                                   {"bcsstk02.mtx", "bcsstm02r.mtx", "reference/bcsst02.txt"},
                                                   {"bcsstk11.mtx", "bcsstm12.mtx", "reference/orecar.txt"}}) {
        SCOPED_TRACE(pair[0]);
        Tool const tool;
        auto const result = tool.Json({"modes", Data(pair[0]), Data(pair[1]), "--reference", Data(pair[2])});

        std::vector<double> const expected = ReferenceEigenvalues(Data(pair[2]));
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
    Outcome const tooMany = tool({"modes", "all.sim:0", "all.sim:1", "--count", "25", "-o", "more.sim"});
    EXPECT_EQ(tooMany.code, 1);
    EXPECT_THAT(tooMany.err, HasSubstr("24 unknowns with mass"));
    EXPECT_FALSE(tool.Files().contains("more.sim"));
}

// Eigenvalues over seven orders of magnitude, the lowest modes and all of them.
TEST(Modes, OfStretchedAndFlatElements)
{
    for (std::vector<std::string> const& size : {std::vector<std::string>{"100", "1", "1"}, {"1", "1", "0.01"}})
        for (char const* count : {"10", "54"}) {
            SCOPED_TRACE(testing::PrintToString(size) + count);
            Tool const tool;
            tool.Do(std::vector<std::string>{"make-brick", "2", "2", "2", "k.mtx", "m.mtx", "--size"} + size);
            tool.Do({"modes", "k.mtx", "m.mtx", "-n", count, "-o", "modes.sim"});
            ExpectModes(tool, "modes.sim", MarketFile(tool / "k.mtx"), MarketFile(tool / "m.mtx"), 1e-8);
        }
}

// Bernoulli's beam bends with (1.8751 / L)^2 sqrt(E I / (rho A)). Four bricks over its height, which bend by shear as well, are 1.5 percent
// too stiff.
TEST(Modes, FirstBendingFrequencyOfAClampedBeam)
{
    Tool const tool;
    tool.Do({"make-brick", "40", "4", "4", "k.mtx", "m.mtx", "--size", "10", "1", "1", "--young", "2.1e11", "--density", "7850"});
    auto const result = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "2"});

    double const beam = std::pow(1.87510407 / 10.0, 2) * std::sqrt(2.1e11 / 12.0 / 7850.0) / (2.0 * std::numbers::pi);
    EXPECT_GT(result.at("frequencies")[0], beam);
    EXPECT_NEAR(result.at("frequencies")[0], beam, 0.02 * beam);
    EXPECT_NEAR(result.at("frequencies")[1], result.at("frequencies")[0], 1e-9 * beam); // to either side
}

TEST(Modes, OfARangeAreCountedAndGoWithAnAccount)
{
    Tool const tool;
    tool.Do({"make-brick", "12", "8", "8", "k.mtx", "m.mtx"});
    auto const lowest = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "12", "-o", "lowest.sim"});
    ExpectModes(tool, "lowest.sim", MarketFile(tool / "k.mtx"), MarketFile(tool / "m.mtx"), 1e-9);
    EXPECT_TRUE(lowest.at("certified"));
    EXPECT_GT(lowest.at("entries"), lowest.at("unknowns"));
    std::vector<double> const frequencies = lowest.at("frequencies");
    auto const between = [&](int i) { return std::to_string(0.5 * (frequencies[i] + frequencies[i + 1])); };

    auto const range = tool.Json({"modes", "k.mtx", "m.mtx", "--range", between(2), between(9), "-o", "range.sim"});
    std::vector<double> const found = range.at("frequencies");
    ASSERT_EQ(found.size(), 7u);
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_NEAR(found[i], frequencies[i + 3], 1e-9 * found[i]);
    ExpectModes(tool, "range.sim", MarketFile(tool / "k.mtx"), MarketFile(tool / "m.mtx"), 1e-9);

    auto const circular = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "1", "--rad", "--no-count", "-o", "one.sim"});
    EXPECT_NEAR(circular.at("frequencies")[0].get<double>(), 2.0 * std::numbers::pi * frequencies[0], 1e-9 * frequencies[0]);
    EXPECT_FALSE(circular.at("certified"));
    EXPECT_THAT(tool({"modes", "k.mtx", "m.mtx", "-n", "1", "--view", "-o", "view.sim"}).out, HasSubstr("none is missing"));
    EXPECT_EQ(tool({"modes", "k.mtx", "m.mtx", "--range", "2", "1"}).code, 2);
}

TEST(Modes, StayWithinTheMemoryGrantedOrSayHowMuchWouldDo)
{
    Tool const tool;
    tool.Do({"make-brick", "12", "8", "8", "k.mtx", "m.mtx"});
    std::vector<std::string> modes{"modes", "k.mtx", "m.mtx", "-o", "modes.sim", "--memory", "1K"};
    Outcome const refused = tool(modes);
    EXPECT_EQ(refused.code, 1);
    std::size_t const least = refused.err.find("at least ");
    ASSERT_NE(least, std::string::npos) << refused.err;
    modes.back() = std::to_string(std::stoi(refused.err.substr(least + 9))) + "M";

    auto const before = tool.Files();
    Outcome const full = tool(modes, 3000000); // larger than the matrices, smaller than the factor
    EXPECT_EQ(full.code, 4);
    EXPECT_THAT(full.err, HasSubstr("the factor cannot be written"));
    EXPECT_TRUE(tool.Files() == before) << "files are left";

    auto const onDisk = tool.Json(modes), inMemory = tool.Json({"modes", "k.mtx", "m.mtx", "-o", "modes.sim", "--memory", "1G"});
    EXPECT_TRUE(onDisk.at("factor").at("on_disk"));
    EXPECT_FALSE(inMemory.at("factor").at("on_disk"));
    for (std::size_t i = 0; i < 10; ++i)
        EXPECT_NEAR(onDisk.at("eigenvalues")[i], inMemory.at("eigenvalues")[i], 1e-9);
}

TEST(Modes, OfAFreeBodyBeginWithSixRigidOnesWhateverTheShift)
{
    Tool const tool;
    tool.Do({"make-brick", "6", "3", "2", "k.mtx", "m.mtx", "--free"});
    auto const chosen = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "12"});
    auto const given = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "12", "--shift", "0.3"});

    double const elastic = chosen.at("eigenvalues")[6];
    EXPECT_GT(elastic, 0.01);
    EXPECT_NE(chosen.at("shift"), 0.0);
    for (std::size_t i = 0; i < 12; ++i) {
        double const lambda = chosen.at("eigenvalues")[i];
        EXPECT_NEAR(lambda, given.at("eigenvalues")[i], 1e-9 * std::max(lambda, elastic));
        if (i < 6)
            EXPECT_LT(std::fabs(lambda), 1e-10 * elastic);
        else
            EXPECT_GE(lambda, elastic);
    }
    EXPECT_THAT(tool({"modes", "k.mtx", "m.mtx", "--shift", "0", "--force"}).err, HasSubstr("greater shift or leave it out (--shift)"));
}

// The diagonals suggest a shift a million times the lowest elastic eigenvalue, under which all modes look alike.
TEST(Modes, ShiftComesDownToTheModesOfASlenderFreeBody)
{
    Tool const tool;
    tool.Do({"make-brick", "400", "1", "1", "k.mtx", "m.mtx", "--free"});
    auto const result = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "10"});

    std::vector<double> const lambda = result.at("eigenvalues");
    EXPECT_LT(result.at("shift"), 1e3 * lambda[6]);
    EXPECT_LT(std::fabs(lambda[5]), 1e-6 * lambda[6]);
    EXPECT_NEAR(lambda[7], lambda[6], 1e-6 * lambda[6]); // bends alike in two directions
}

// At whatever moment it is killed. The file goes with the result.
TEST(Modes, GoOnAfterAKill)
{
    Tool const tool;
    tool.Do({"make-brick", "12", "10", "10", "k.mtx", "m.mtx"});
    std::vector<std::string> const modes{"modes", "k.mtx", "m.mtx", "-n", "30", "--json", "--force"};
    auto const whole = nlohmann::json::parse(tool.Do(modes));
    for (int milliseconds : {0, 300}) {
        bool kept = false;
        for (int tries = 0; tries < 20 && !kept; ++tries, milliseconds /= 2) { // a fast machine may be done before the kill
            pid_t const child = tool.Start(modes + std::vector<std::string>{"--keep", "kept.sim"});
            for (int k = 0; k < 20000 && !std::filesystem::exists(tool / "kept.sim"); ++k)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
            kill(child, SIGKILL);
            tool.Wait(child);
            kept = tool.Files().contains("kept.sim");
        }
        SCOPED_TRACE(milliseconds);
        ASSERT_TRUE(kept);
        EXPECT_EQ(tool(modes + std::vector<std::string>{"--keep", "kept.sim"}).code, 3) << "it would be lost";

        auto const resumed = nlohmann::json::parse(tool.Do(modes + std::vector<std::string>{"--resume", "kept.sim"}));
        for (char const* key : {"eigenvalues", "residuals", "steps", "restarts"})
            EXPECT_EQ(resumed.at(key), whole.at(key)) << key;
        for (char const* name : {"kept.sim", "kept.sim.journal"})
            EXPECT_FALSE(tool.Files().contains(name));
    }
    EXPECT_EQ(tool(modes + std::vector<std::string>{"--resume", "kept.sim"}).code, 3) << "there is none";
    EXPECT_EQ(tool(modes + std::vector<std::string>{"--keep", "nowhere/kept.sim"}).code, 4);
    EXPECT_EQ(tool(modes + std::vector<std::string>{"--keep", "a.sim", "--resume", "b.sim"}).code, 2);
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
