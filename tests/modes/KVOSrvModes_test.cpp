#include "KVOSrvModes.h"

#include "SparsePairs.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvMtxExceptions.h"

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <string>

namespace
{

Vector Evenly(double first, double last, int count)
{
    Vector values;
    for (int i = 0; i < count; ++i)
        values.push_back(first + (last - first) * i / std::max(1, count - 1));
    return values;
}

Vector operator+(Vector values, Vector const& more)
{
    values.insert(values.end(), more.begin(), more.end());
    return values;
}

Vector Found(KVOSrvModes const& modes)
{
    return Vector(modes.Eigenvalues(), modes.Eigenvalues() + modes.Count());
}

// Equal to ten digits, or to the rounding of the pair.
void ExpectEigenvalues(Vector const& found, Vector const& expected, double largest)
{
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(found[i], expected[i], std::max(1e-10 * std::fabs(expected[i]), 1e-13 * largest)) << i;
}

// X^T M X = 1, and every residual is what is promised.
void ExpectModes(KVOSrvModes const& modes, Dense const& mass)
{
    int const n = mass.rows, count = modes.Count();
    KVOSrvMatrix x(n, count, nullptr, false, false);
    modes.Modes().GetColumns(0, count - 1, x);
    for (int a = 0; a < count; ++a)
        for (int b = 0; b <= a; ++b) {
            double sum = 0.0;
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    sum += x.Values()[i + a * n] * mass.At(i, j) * x.Values()[j + b * n];
            EXPECT_NEAR(sum, a == b ? 1.0 : 0.0, 1e-9);
        }
}

KVOSrvModesFailure::Kind FailureOf(Dense const& stiffness, Dense const& mass, KVOSrvModesSettings const& settings, std::string& text)
{
    try {
        KVOSrvModes const modes(*Sparse(stiffness), *Sparse(mass), settings);
    } catch (KVOSrvModesFailure const& failure) {
        text = failure.UserReport().c_str();
        return failure.WhatFailed();
    }
    ADD_FAILURE() << "no failure";
    return KVOSrvModesFailure::Internal;
}

} // namespace

TEST(KVOSrvModes, OfRandomPairsWithKnownEigenvalues)
{
    char const* const rounds = std::getenv("KVO_MODES_ROUNDS");
    unsigned const last = rounds != nullptr ? static_cast<unsigned>(std::atoi(rounds)) : 120;
    for (unsigned seed = 1; seed <= last; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 generator(seed);
        auto const upTo = [&](int most) { return static_cast<int>(generator() % static_cast<unsigned>(most + 1)); };
        std::uniform_real_distribution<double> uniform(0.0, 1.0);
        Vector lambda(static_cast<std::size_t>(seed % 3 == 0 ? upTo(6) : 0), 0.0); // rigid body modes
        for (int group = 0, groups = 1 + upTo(20); group < groups; ++group) {
            double const value = std::pow(10.0, 4.0 * uniform(generator));
            for (int copy = 0, copies = seed % 4 == 0 ? upTo(9) : 0; copy <= copies; ++copy)
                lambda.push_back(value * (1.0 + (seed % 8 == 0 ? 1e-7 * copy : 0.0)));
        }
        KnownPair const pair(lambda, seed % 5 == 0 ? upTo(10) : 0, seed);
        std::ranges::sort(lambda);
        KVOSrvModesSettings settings;
        settings.count = 1 + upTo(static_cast<int>(lambda.size()) - 1);

        try {
            KVOSrvModes const modes(*Sparse(pair.stiffness), *Sparse(pair.mass), settings);
            ExpectEigenvalues(Found(modes), Vector(lambda.begin(), lambda.begin() + settings.count), lambda.back());
            ExpectModes(modes, pair.mass);
            EXPECT_LT(*std::max_element(modes.Residuals(), modes.Residuals() + modes.Count()), 1e-8);
        } catch (KVOBasException const& exception) {
            ADD_FAILURE() << exception.UserReport().c_str();
        }
    }
}

TEST(KVOSrvModes, OneFactorizationFindsAndCountsWhereTheSpectrumCanBeEstimated)
{
    for (int const rigid : {0, 6}) {
        Vector const lambda = Vector(static_cast<std::size_t>(rigid), 0.0) + Evenly(1.0, 500.0, 500);
        KVOSrvModesSettings settings;
        settings.count = 10;
        KVOSrvModes const modes(*Sparse(DiagonalMatrix(lambda)), *Sparse(DiagonalMatrix(Vector(lambda.size(), 1.0))), settings);
        EXPECT_EQ(modes.Account().factor.factorizations, 1);
        EXPECT_TRUE(modes.Account().certified);
        ExpectEigenvalues(Found(modes), Vector(lambda.begin(), lambda.begin() + 10), 500.0);
    }
}

TEST(KVOSrvModes, OfDiagonalPairsAreTheirQuotients)
{
    Vector powers;
    for (int i = -6; i <= 6; ++i)
        powers.push_back(std::pow(10.0, i));
    struct Case {
        Vector lambda; // ascending
        int count;
        std::optional<double> shift = {};
        double mass = 1.0; // of every unknown
    };
    Vector const counting = Evenly(1.0, 30.0, 30);
    Case const cases[] = {
        {powers, 13},
        {powers, 4},
        {Evenly(1.0, 1.0 + 1e-3, 100), 10}, // clusters
        {Evenly(1.0, 1.0 + 1e-8, 100), 10},
        {Evenly(1000.0, 2000.0, 1000), 10},
        {Evenly(1.0, 5.0, 5) + Evenly(10.0, 10.0 + 1e-6, 30) + Evenly(1e4, 2e4, 65), 10}, // the count ends in a cluster
        {Vector(15, 1.0) + Evenly(2.0, 80.0, 79), 10},                                    // more alike than a block has columns
        {Vector(15, 1.0) + Evenly(2.0, 80.0, 79), 20},
        {Vector(5, 0.0), 3},
        {counting, 5, 1e3},
        {counting, 10, {}, 1e150},
        {counting, 10, {}, 1e-150},
    };
    for (Case const& each : cases) {
        SCOPED_TRACE(std::to_string(each.lambda.front()) + " to " + std::to_string(each.lambda.back()));
        Vector expected;
        for (int i = 0; i < each.count; ++i)
            expected.push_back(each.lambda[static_cast<std::size_t>(i)] / each.mass);
        KVOSrvModesSettings settings;
        settings.count = each.count;
        settings.shift = each.shift;
        KVOSrvModes const modes(*Sparse(DiagonalMatrix(each.lambda)), *Sparse(DiagonalMatrix(Vector(each.lambda.size(), each.mass))),
                                settings);
        ASSERT_EQ(modes.Count(), each.count);
        for (int i = 0; i < each.count; ++i) {
            double const value = expected[static_cast<std::size_t>(i)];
            EXPECT_NEAR(modes.Eigenvalues()[i], value, std::max(1e-10 * value, 1e-15)) << i;
        }
    }
}

TEST(KVOSrvModes, OfAnIntervalAreAllThatLieInIt)
{
    Vector lambda = Vector(3, 0.0) + Evenly(1.0, 40.0, 40) + Vector(7, 50.0) + Evenly(60.0, 200.0, 120);
    KnownPair const pair(lambda, 0, 7);
    std::ranges::sort(lambda);
    for (auto const& [from, to] : {std::pair(-1.0, 5.5), std::pair(5.5, 50.5), std::pair(41.0, 49.0), std::pair(0.5, 150.25)}) {
        SCOPED_TRACE(to);
        Vector expected;
        std::ranges::copy_if(lambda, std::back_inserter(expected),
                             [from = from, to = to](double value) { return value >= from && value <= to; });
        KVOSrvModesSettings settings;
        settings.from = from;
        settings.to = to;
        KVOSrvModes const modes(*Sparse(pair.stiffness), *Sparse(pair.mass), settings);
        ExpectEigenvalues(Found(modes), expected, lambda.back());
        EXPECT_TRUE(modes.Account().certified);
        if (modes.Count() > 0)
            ExpectModes(modes, pair.mass);
    }
}

TEST(KVOSrvModes, RefusalsSayWhatIsWrongWithThePair)
{
    Vector const positive(4, 1.0), negative(4, -1.0), counting = Evenly(1.0, 4.0, 4);
    struct Case {
        Vector stiffness, mass;
        std::optional<double> shift;
        char const* text;
        KVOSrvModesFailure::Kind kind;
    };
    Case const cases[] = {
        {counting, negative, {}, "the mass matrix has negative eigenvalues (see row 1, column 1)", KVOSrvModesFailure::Pair},
        {counting, {1.0, 1.0, -1.0, 1.0}, {}, "the mass matrix has negative eigenvalues (see row 3, column 3)", KVOSrvModesFailure::Pair},
        {negative, positive, {}, "the stiffness matrix has negative eigenvalues (see row 1)", KVOSrvModesFailure::Pair},
        {{1.0, 2.0, 0.0, 4.0}, {1.0, 2.0, 0.0, 4.0}, {}, "unknown 3 has neither stiffness nor mass", KVOSrvModesFailure::Pair},
        {counting, {1.0, 0.0, 0.0, 0.0}, {}, "1 unknowns with mass: there are no 2 finite modes", KVOSrvModesFailure::Pair},
        {counting, positive, 1e9, "the shift hides the eigenvalues", KVOSrvModesFailure::Shift},
        {counting, positive, -1.5, "choose a greater shift", KVOSrvModesFailure::Shift},
    };
    for (Case const& each : cases) {
        KVOSrvModesSettings settings;
        settings.count = 2;
        settings.shift = each.shift;
        std::string text;
        EXPECT_EQ(FailureOf(DiagonalMatrix(each.stiffness), DiagonalMatrix(each.mass), settings, text), each.kind) << each.text;
        EXPECT_THAT(text, testing::HasSubstr(each.text));
    }
    KVOSrvModesSettings settings;
    settings.count = 2;
    std::string text;
    EXPECT_EQ(FailureOf(DiagonalMatrix(Evenly(1.0, 3.0, 3)), Dense(3, 3, 1.0), settings, text), KVOSrvModesFailure::Pair);
    EXPECT_THAT(text, testing::HasSubstr("rank 1: there are no 2 finite modes"));
    auto const square = Sparse(DiagonalMatrix(counting)), other = Sparse(DiagonalMatrix(Vector(3, 1.0)));
    EXPECT_THROW(KVOSrvModes(*square, *other, settings), KVOSrvMtxIllegalInput);
}

// What the caller's function throws ends the search, wherever it stands.
TEST(KVOSrvModes, EndsWhenTheReportThrows)
{
    struct Stop {
    };
    KnownPair const pair(Evenly(1.0, 60.0, 60), 0, 3);
    auto const stiffness = Sparse(pair.stiffness), mass = Sparse(pair.mass);
    int calls = 0;
    auto const count = [](void* context, KVOSrvModesProgress const&) { ++*static_cast<int*>(context); };
    KVOSrvModes const whole(*stiffness, *mass, {}, count, &calls);
    ASSERT_GT(calls, 5);
    for (int left = 0; left < calls; ++left) {
        int counter = left;
        auto const stop = [](void* context, KVOSrvModesProgress const&) {
            if ((*static_cast<int*>(context))-- == 0)
                throw Stop();
        };
        EXPECT_THROW(KVOSrvModes(*stiffness, *mass, {}, stop, &counter), Stop);
    }
}
