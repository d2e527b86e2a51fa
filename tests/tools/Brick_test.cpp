#include "Tool.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <numeric>

TEST(Brick, FirstBendingFrequencyAgreesWithBeamTheory)
{
    constexpr double kLength = 20.0, kEdge = 1.0, kYoung = 2.0e11, kDensity = 7800.0;
    Tool const tool;
    tool.Do({"make-brick", "200", "1", "1", "k.mtx", "m.mtx", "--size", "20", "1", "1", "--young", "2e11", "--density", "7800", "--poisson",
             "0"});
    auto const result = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "2"});

    // A clamped Euler-Bernoulli beam: f = (1.8751 / L)^2 sqrt(E I / (rho A)) / (2 pi). Two effects it leaves out stand against each other:
    // shear and rotary inertia lower f^2 by about 4.65 (1 + 2.4) (h / L)^2 / 12 = 0.33 per cent (4.65 from the mode's shape, 2.4 the ratio
    // of E to 5/6 G); the locking of linear bricks of length a raises it by (G / E) (a / h)^2 = 0.5 per cent. That leaves 0.1 per cent of
    // f.
    double const inertiaOverArea = kEdge * kEdge / 12.0;
    double const beam = std::pow(1.8751040687 / kLength, 2) * std::sqrt(kYoung * inertiaOverArea / kDensity) / (2.0 * std::numbers::pi);
    double const first = result.at("frequencies")[0], second = result.at("frequencies")[1];
    EXPECT_NEAR(first, beam, 0.003 * beam);
    // Of a square section each bending mode is there twice.
    EXPECT_NEAR(first, second, 1e-8 * first);
}

TEST(Brick, MatricesHaveTheStiffnessAndMassOfTheBlock)
{
    Tool const tool;
    tool.Do({"make-brick", "3", "2", "2", "k.mtx", "m.mtx", "--size", "3", "1", "4", "--density", "5", "--free", "--young", "7"});
    MarketFile const stiffness(tool / "k.mtx"), mass(tool / "m.mtx");
    constexpr int kNodes = 4 * 3 * 3;
    ASSERT_EQ(stiffness.rows, 3 * kNodes);

    std::vector<double> shift(3 * kNodes), stretch(3 * kNodes);
    for (std::size_t node = 0; node < kNodes; ++node) {
        shift[3 * node] = 1.0;
        stretch[3 * node] = static_cast<double>(node % 4); // u = x
    }
    std::vector<double> const moved = mass.Times(shift), force = stiffness.Times(shift), stress = stiffness.Times(stretch);
    EXPECT_NEAR(std::inner_product(shift.begin(), shift.end(), moved.begin(), 0.0), 5.0 * 3 * 1 * 4, 1e-11);
    EXPECT_NEAR(std::inner_product(force.begin(), force.end(), force.begin(), 0.0), 0.0, 1e-20);
    // Uniaxial strain 1 stores E (1 - nu) / ((1 + nu) (1 - 2 nu)) / 2 in a unit of volume.
    double const modulus = 7.0 * 0.7 / (1.3 * 0.4);
    EXPECT_NEAR(std::inner_product(stretch.begin(), stretch.end(), stress.begin(), 0.0), modulus * 12.0, 1e-10);
}

TEST(Brick, ClampedUnknownsAreLeftOut)
{
    Tool const tool;
    tool.Do({"make-brick", "2", "1", "1", "free.mtx", "m.mtx", "--free"});
    tool.Do({"make-brick", "2", "1", "1", "clamped.mtx", "m.mtx"});
    MarketFile const whole(tool / "free.mtx"), clamped(tool / "clamped.mtx");

    std::vector<int> kept; // of the nodes, three along x, those not at x = 0
    for (int node = 0; node < 12; ++node)
        for (int d = 0; d < 3 && node % 3 != 0; ++d)
            kept.push_back(3 * node + d);
    ASSERT_EQ(clamped.rows, static_cast<int>(kept.size()));
    for (auto const& [place, value] : clamped.entries)
        EXPECT_EQ(value, whole.entries.at({kept[static_cast<std::size_t>(place.first)], kept[static_cast<std::size_t>(place.second)]}));
}
