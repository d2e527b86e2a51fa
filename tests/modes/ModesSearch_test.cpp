// Modes that the search is made to miss: none goes without a word.

#include "ModesSearch.h"

#include "SparsePairs.h"

#include "KVOSrvModesFailure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

namespace
{

Vector Counting(int count)
{
    Vector values(static_cast<std::size_t>(count));
    std::iota(values.begin(), values.end(), 1.0);
    return values;
}

// Random columns are scaled by the root of the diagonal of the mass: a large one there leaves them little of an unknown, 0 nothing; and
// where nothing is tied to it, as in a diagonal pair, no product with the matrices ever brings it in.
ModesSearch::Found Search(Vector const& lambda, std::size_t deflated, double apparentMass, KVOSrvModesSettings const& settings)
{
    auto const stiffness = Sparse(DiagonalMatrix(lambda)), mass = Sparse(DiagonalMatrix(Vector(lambda.size(), 1.0)));
    ModelPair pair(*stiffness, *mass);
    pair.massDiagonal[deflated] = apparentMass;
    return ModesSearch(*stiffness, *mass, std::move(pair), settings, [](KVOSrvModesProgress const&) {}).Run();
}

} // namespace

TEST(ModesSearch, ModesThatWereMissedAreFound)
{
    KVOSrvModesSettings settings;
    settings.certify = false;
    EXPECT_NEAR(Search(Counting(200), 3, 1e80, settings).lambda[3], 5.0, 1e-9) << "it is not missed";
    settings.certify = true;
    EXPECT_NEAR(Search(Counting(200), 3, 1e80, settings).lambda[3], 4.0, 1e-9);
}

TEST(ModesSearch, ModesThatCannotBeFoundAreReported)
{
    KVOSrvModesSettings lowest, notCounted, range;
    notCounted.certify = false;
    range.from = 1.5;
    range.to = 12.5;
    EXPECT_NEAR(Search(Counting(200), 3, 0.0, notCounted).lambda[3], 5.0, 1e-9) << "it is not missed";
    for (KVOSrvModesSettings const& settings : {lowest, range})
        try {
            Search(Counting(200), 3, 0.0, settings);
            ADD_FAILURE() << "4 is missing without a word";
        } catch (KVOSrvModesFailure const& failure) {
            EXPECT_EQ(failure.WhatFailed(), KVOSrvModesFailure::Missed) << failure.UserReport().c_str();
            EXPECT_THAT(failure.UserReport().c_str(), testing::ContainsRegex("of 1[0-9] eigenvalues .* only 1[0-9] were found"));
        }
    EXPECT_EQ(Search(Counting(200), 150, 0.0, lowest).lambda.size(), 10u) << "where none is missing, none is said to be";
}
