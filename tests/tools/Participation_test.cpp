#include "Tool.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

// All modes of a clamped block of 2 x 1 x 3, density 4, hold the mass of its free unknowns in every direction, however those are given.
TEST(Participation, AllModesOfABrickHoldItsMass)
{
    Tool const tool;
    tool.Do({"make-brick", "2", "1", "1", "k.mtx", "m.mtx", "--size", "2", "1", "3", "--density", "4", "--coordinates", "nodes.txt"});
    EXPECT_THAT(tool.Files().at("nodes.txt"), HasSubstr("\n1 0 0\n2 0 0\n1 1 0\n2 1 0\n1 0 3\n2 0 3\n1 1 3\n2 1 3\n"));
    auto const whole =
        tool.Json({"modes", "k.mtx", "m.mtx", "-n", "24", "--coordinates", "nodes.txt", "-o", "all.sim"}).at("participation");
    auto const units = tool.Json({"modes", "k.mtx", "m.mtx", "-n", "5", "--masses", "3"}).at("participation");

    MarketFile const mass(tool / "m.mtx");
    std::vector<double> const total = whole.at("total_masses"), share = whole.at("shares"), unitTotal = units.at("total_masses");
    ASSERT_EQ(total.size(), 6u);
    for (std::size_t d = 0; d < 6; ++d)
        EXPECT_NEAR(share[d], 1.0, 1e-9);
    double sum = 0.0; // of the entries that belong to x, y and z alike
    for (auto const& [place, value] : mass.entries)
        sum += place.first % 3 == place.second % 3 ? value : 0.0;
    for (std::size_t d = 0; d < 3; ++d) {
        EXPECT_NEAR(total[d], sum / 3.0, 1e-12 * sum);
        EXPECT_NEAR(unitTotal[d], total[d], 1e-12 * sum);
        for (std::size_t mode = 0; mode < 5; ++mode)
            EXPECT_NEAR(units.at("effective_masses")[mode][d], whole.at("effective_masses")[mode][d], 1e-8 * sum);
    }

    // Nodes that are listed unknown by unknown, in other words and about another point: what is moved by (0, 0, 1) adds its mass.
    std::string unknowns = "% brick\n\n";
    std::istringstream nodes(tool.Files().at("nodes.txt"));
    for (std::string line; std::getline(nodes, line);)
        for (int dof = 1; dof <= 3 && !line.starts_with('%'); ++dof)
            unknowns += "\t" + line + " +" + std::to_string(dof) + "e0 % free\r\n";
    WriteFile(tool / "unknowns.txt", unknowns);
    std::vector<std::string> const again{"modes", "k.mtx", "m.mtx", "-n", "24", "--coordinates", "unknowns.txt", "--about"};
    auto const at = [&](char const* z) {
        auto arguments = again;
        arguments.insert(arguments.end(), {"0", "0", z});
        return tool.Json(arguments).at("participation").at("total_masses")[3].get<double>();
    };
    EXPECT_NEAR(at("0"), total[3], 1e-12 * total[3]);
    // Steiner: I(z) is a parabola whose second difference is twice the mass.
    EXPECT_NEAR(at("1") - 2.0 * at("0") + at("-1"), 2.0 * total[0], 1e-9 * total[3]);

    // The database keeps the factors, and the table shows what the JSON object holds.
    tool.Do({"db", "export", "all.sim", "4", "factors.mtx"});
    MarketFile const factors(tool / "factors.mtx");
    ASSERT_EQ(factors.rows, 24);
    ASSERT_EQ(factors.columns, 6);
    for (int mode = 0; mode < 24; ++mode)
        EXPECT_EQ(factors.At(mode, 4), whole.at("factors")[static_cast<std::size_t>(mode)][4].get<double>());
    EXPECT_THAT(tool({"db", "ls", "all.sim"}).out, HasSubstr("participation factors"));
    std::string const table = tool.Do({"modes", "k.mtx", "m.mtx", "-n", "2", "--coordinates", "nodes.txt"});
    EXPECT_THAT(table, HasSubstr("effective masses\n  mode             x"));
    EXPECT_THAT(table, HasSubstr("\n share "));
}
