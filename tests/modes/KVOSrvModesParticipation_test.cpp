#include "KVOSrvModesParticipation.h"

#include "BrickModel.h"
#include "SparsePairs.h"

#include "KVOSrvModes.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvScratchDenseMatrix.h"

#include <numeric>

namespace
{

KVOSrvMatrix Copy(Dense const& dense)
{
    KVOSrvMatrix matrix(dense.rows, dense.columns, nullptr, false, false);
    for (int j = 0; j < dense.columns; ++j)
        for (int i = 0; i < dense.rows; ++i)
            matrix.Values()[i + j * dense.rows] = dense.At(i, j);
    return matrix;
}

Dense Copy(KVOSrvMatrix const& matrix)
{
    return Filled(matrix.NumberOfRows(), matrix.NumberOfColumns(),
                  [&](int i, int j) { return matrix.Values()[i + j * matrix.NumberOfRows()]; });
}

Dense Assembled(BrickRows const& rows)
{
    Dense matrix(rows.rows, rows.rows);
    for (int i = 0; i < rows.rows; ++i)
        for (int k = rows.start[static_cast<std::size_t>(i)]; k < rows.start[static_cast<std::size_t>(i) + 1]; ++k)
            matrix.At(i, rows.columns[static_cast<std::size_t>(k)]) = rows.values[static_cast<std::size_t>(k)];
    return matrix;
}

} // namespace

// Against triple loops, and all modes together hold the total mass, that of a rank-deficient M as well.
TEST(KVOSrvModesParticipation, AllModesHoldTheTotalMass)
{
    for (int const massless : {0, 4}) {
        Vector lambda(23);
        std::iota(lambda.begin(), lambda.end(), 1.0);
        KnownPair const pair(lambda, massless, 5);
        KVOSrvModesSettings settings;
        settings.count = 23;
        auto const mass = Sparse(pair.mass);
        KVOSrvModes const modes(*Sparse(pair.stiffness), *mass, settings);
        Dense const directions = Seeded(pair.mass.rows, 3, 11);
        KVOSrvModesParticipation const participation(modes.Modes(), *mass, Copy(directions));

        KVOSrvMatrix vectors(pair.mass.rows, 23, nullptr, false, false);
        modes.Modes().GetAllValues(vectors.Values());
        Dense const factors = Transposed(Copy(vectors)) * (pair.mass * directions);
        Dense const totals = Transposed(directions) * (pair.mass * directions);
        ExpectSame(Copy(participation.Factors()), factors, 1e-12);
        for (int d = 0; d < 3; ++d) {
            EXPECT_NEAR(participation.TotalMass(d), totals.At(d, d), 1e-12 * totals.At(d, d));
            EXPECT_NEAR(participation.HeldMass(d), totals.At(d, d), 1e-8 * totals.At(d, d));
            EXPECT_NEAR(participation.Share(d), 1.0, 1e-8);
            EXPECT_EQ(participation.EffectiveMass(7, d),
                      participation.Factors().Values()[7 + d * 23] * participation.Factors().Values()[7 + d * 23]);
        }
        KVOSrvModesParticipation const none(KVOSrvDenseMatrix(), *mass, Copy(directions));
        EXPECT_EQ(none.NumberOfModes(), 0);
        EXPECT_EQ(none.Share(0), 0.0);
        EXPECT_EQ(none.TotalMass(2), participation.TotalMass(2));
    }
}

// Elastic bricks take every one of them without a force, and are a block of 3 x 2 x 5 with density 7: its mass and moments of inertia.
TEST(KVOSrvModesParticipation, RigidMotionsStrainNothing)
{
    BrickProperties properties;
    properties.density = 7.0;
    properties.edges = {1.0, 2.0, 2.5};
    BrickModel const brick(3, 1, 2, {}, properties);
    int const order = brick.NumberOfRows();
    Vector places;
    std::vector<int> dofs;
    for (int i = 0; i < order; ++i) {
        int const node = i / 3;
        for (double const place : {node % 4 * 1.0, node / 4 % 2 * 2.0, node / 8 * 2.5})
            places.push_back(place);
        dofs.push_back(i % 3 + 1);
    }
    double const middle[] = {1.5, 1.0, 2.5};
    auto const motions = KVOSrvModesParticipation::RigidMotions(order, places.data(), dofs.data(), middle);
    Dense const r = Copy(*motions);
    ExpectSame(Assembled(brick.Assembled()) * r, Dense(order, 6), 1e-13);

    auto const mass = Sparse(Assembled(brick.Assembled(BrickModel::ElementMass(properties))));
    KVOSrvModesParticipation const block(KVOSrvDenseMatrix(), *mass, *motions);
    double const whole = 7.0 * 30.0;
    double const inertia[] = {4.0 + 25.0, 9.0 + 25.0, 9.0 + 4.0};
    for (int d = 0; d < 3; ++d) {
        EXPECT_NEAR(block.TotalMass(d), whole, 1e-12 * whole);
        EXPECT_NEAR(block.TotalMass(3 + d), whole * inertia[d] / 12.0, 1e-12 * whole * inertia[d]);
    }

    // About the origin, and unknowns that are rotations: motion a turns the unknown of that rotation by 1.
    int const rotations[] = {4, 5, 6};
    auto const turned = KVOSrvModesParticipation::RigidMotions(3, places.data(), rotations);
    ExpectSame(Copy(*turned), Filled(3, 6, [](int i, int j) { return j == 3 + i ? 1.0 : 0.0; }));
    auto const units = KVOSrvModesParticipation::UnitDirections(order, 3);
    ExpectSame(Copy(*units), Part(r, 0, order - 1, 0, 2));
}

TEST(KVOSrvModesParticipation, RefusesWhatDoesNotFit)
{
    auto const mass = Sparse(DiagonalMatrix(Vector(4, 1.0)));
    KVOSrvScratchDenseMatrix const modes(5, 1, -1, -1);
    int const dofs[] = {1, 7};
    double const places[6] = {};
    EXPECT_THROW(KVOSrvModesParticipation(modes, *mass, Copy(Dense(4, 1))), KVOSrvMtxRefusedInput);
    EXPECT_THROW(KVOSrvModesParticipation(KVOSrvDenseMatrix(), *mass, Copy(Dense(3, 1))), KVOSrvMtxRefusedInput);
    EXPECT_THROW(KVOSrvModesParticipation::UnitDirections(10, 3), KVOSrvMtxRefusedInput);
    EXPECT_THROW(KVOSrvModesParticipation::UnitDirections(10, 0), KVOSrvMtxRefusedInput);
    EXPECT_THROW(KVOSrvModesParticipation::RigidMotions(2, places, dofs), KVOSrvMtxRefusedInput);
}
