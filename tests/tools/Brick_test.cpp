#include "Tool.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <numeric>
#include <thread>

using namespace std::chrono_literals;

// Every state of constant strain, and none: that decides on the material, the assembly and the mass. The bending that comes out of it is
// looked at with the modes of slender bodies.
TEST(Brick, MatricesHaveTheStiffnessAndMassOfTheBlock)
{
    Tool const tool;
    tool.Do({"make-brick", "3", "2", "2", "k.mtx", "m.mtx", "--size", "3", "1", "4", "--density", "5", "--free", "--young", "7"});
    MarketFile const stiffness(tool / "k.mtx"), mass(tool / "m.mtx");
    constexpr int kNodes = 4 * 3 * 3;
    ASSERT_EQ(stiffness.rows, 3 * kNodes);
    double const sides[] = {3.0, 1.0, 4.0}, volume = 3.0 * 1.0 * 4.0;
    int const elements[] = {3, 2, 2};

    // x^T A x with the displacement along axis `direction` that grows with the coordinate of axis `along`, or is 1 where there is none.
    auto const energy = [&](MarketFile const& matrix, int direction, int along) {
        std::vector<double> x(3 * kNodes);
        for (int node = 0; node < kNodes; ++node) {
            double const place[] = {1.0 * (node % 4), 1.0 * (node / 4 % 3), 1.0 * (node / 12)};
            x[static_cast<std::size_t>(3 * node + direction)] = along < 0 ? 1.0 : place[along] * sides[along] / elements[along];
        }
        std::vector<double> const y = matrix.Times(x);
        return std::inner_product(x.begin(), x.end(), y.begin(), 0.0);
    };
    // E (1 - nu) / ((1 + nu) (1 - 2 nu)) for uniaxial strain 1, E / (2 (1 + nu)) for shear 1.
    double const uniaxial = 7.0 * 0.7 / (1.3 * 0.4), shear = 7.0 / 2.6;
    for (int direction = 0; direction < 3; ++direction) {
        EXPECT_NEAR(energy(mass, direction, -1), 5.0 * volume, 1e-11);
        EXPECT_NEAR(energy(stiffness, direction, -1), 0.0, 1e-12);
        for (int along = 0; along < 3; ++along)
            EXPECT_NEAR(energy(stiffness, direction, along), (along == direction ? uniaxial : shear) * volume, 1e-10);
    }
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

// On a terminal, with the process stopped most of the time so that each step takes more than the second before its bar comes.
TEST(Brick, BarsOfStepsWithinStepsDoNotOverwriteEachOther)
{
    int const terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
    Tool tool;
    tool.inChild = [side = std::string(ptsname(terminal))] { dup2(open(side.c_str(), O_RDWR | O_NOCTTY), STDERR_FILENO); };
    pid_t const child = tool.Start({"make-brick", "16", "16", "16", "k.txt", "m.txt"});
    std::string shown;
    auto const times = [&](std::string const& text, std::size_t from = 0) {
        int count = 0;
        for (; (from = shown.find(text, from)) != std::string::npos; ++from)
            ++count;
        return count;
    };
    fcntl(terminal, F_SETFL, O_NONBLOCK);
    while (times("writing k.txt") < 4 && waitpid(child, nullptr, WNOHANG) == 0) {
        kill(child, SIGCONT);
        std::this_thread::sleep_for(1ms);
        kill(child, SIGSTOP);
        std::this_thread::sleep_for(100ms);
        char text[4096];
        if (ssize_t const count = read(terminal, text, sizeof text); count > 0)
            shown.append(text, static_cast<std::size_t>(count));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(terminal);

    EXPECT_GE(times("writing k.txt"), 4) << shown;
    EXPECT_GE(times("making the model"), 1) << shown;
    EXPECT_EQ(times("making the model", shown.find("writing k.txt")), 0) << shown;
}
