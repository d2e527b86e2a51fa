#include "Picture.h"
#include "Tool.h"

#include <gmock/gmock.h>
#include <numbers>

using testing::HasSubstr;

namespace
{

std::string const kHeader = "%%MatrixMarket matrix coordinate real symmetric\n";

// A stiffness and mass pair whose mode k, of frequency k, is the displacement of the unknown modes[k - 1] alone.
void WriteModel(Tool const& tool, int unknowns, std::vector<int> const& modes)
{
    std::string const size = std::to_string(unknowns) + " " + std::to_string(unknowns) + " " + std::to_string(unknowns) + "\n";
    std::string stiffness = kHeader + size, mass = kHeader + size;
    for (int i = 0; i < unknowns; ++i) {
        auto const mode = std::ranges::find(modes, i);
        double const omega = 2.0 * std::numbers::pi * (mode == modes.end() ? 100.0 + i : static_cast<double>(mode - modes.begin() + 1));
        std::string const place = std::to_string(i + 1) + " " + std::to_string(i + 1) + " ";
        stiffness += place + std::to_string(omega * omega) + "\n";
        mass += place + "1\n";
    }
    WriteFile(tool / "k.mtx", stiffness);
    WriteFile(tool / "m.mtx", mass);
    tool.Do({"modes", "k.mtx", "m.mtx", "-n", std::to_string(modes.size()), "-o", "modes.sim"});
}

// The column of the highest edge of the moved block; its edges alone are dark blue.
int ColumnOfTop(std::string const& path)
{
    Picture const picture(path);
    for (int y = 0; y < picture.Height(); ++y)
        for (int x = 0; x < picture.Width(); ++x)
            if (picture.Channel(0, x, y) - picture.Channel(2, x, y) > 80)
                return x;
    return -1;
}

} // namespace

// Each upper corner of a block of one element goes up in a mode of its own. In the picture x points to the right and y back, to the right.
TEST(Shape, MovesTheNodesOfTheMode)
{
    Tool const tool;
    WriteFile(tool / "nodes.txt", "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n");
    WriteModel(tool, 24, {14, 17, 20, 23});
    std::vector<int> tops;
    for (std::string const mode : {"1", "2", "3", "4"}) {
        EXPECT_THAT(tool.Do({"shape", "modes.sim", "nodes.txt", "--mode", mode, "-o", "shape.png", "--amplify", "2"}),
                    HasSubstr("mode " + mode + ": " + mode + " Hz, displacements x 2\n"));
        tops.push_back(ColumnOfTop(tool / "shape.png"));
    }
    EXPECT_TRUE(0 < tops[0] && tops[0] < tops[2] && tops[2] < tops[1] && tops[1] < tops[3]) << testing::PrintToString(tops);

    // Clamped: the nodes of the face x = 0 are not among the unknowns. The upper corner at its end goes up.
    WriteFile(tool / "nodes.txt", "1 0 0\n2 0 0\n1 1 0\n2 1 0\n1 0 1\n2 0 1\n1 1 1\n2 1 1\n");
    WriteModel(tool, 24, {17});
    EXPECT_THAT(tool.Do({"shape", "modes.sim", "nodes.txt", "-o", "shape.png"}), HasSubstr("displacements x 0.31\n")); // sqrt(6) / 8
    tool.Do({"shape", "modes.sim", "nodes.txt", "-o", "shape.svg"});
    EXPECT_TRUE(ReadFile(tool / "shape.svg").ends_with("</svg>\n"));
    tool.Do({"shape", "modes.sim", "nodes.txt", "-o", "shape.png", "--amplify", "2"});
    EXPECT_GT(ColumnOfTop(tool / "shape.png"), 480);
}
