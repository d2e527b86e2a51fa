#include "Picture.h"
#include "Tool.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace
{

/// The pattern in a picture, without what stands around it.
struct Pattern : Picture {
    using Picture::Picture;
    int At(int x, int y) const { return Grey(90 + x, 96 + y); }
};

std::string const kHeader = "%%MatrixMarket matrix coordinate real general\n";

} // namespace

TEST(Spy, SmallMatrixIsDrawnEntryByEntry)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", kHeader + "6 6 4\n2 2 2\n3 5 0\n5 2 7\n1 1 1\n");
    EXPECT_EQ(tool.Do({"spy", "a.mtx", "-o", "a.png", "--pixels", "400", "--rows", "2:5", "--columns", "2:5"}),
              "a.png: 6 x 6, 4 entries, 3 in the part that is drawn\n");
    Pattern const picture(tool / "a.png");
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) {
            bool const isZero = row == 1 && column == 3;
            bool const isEntry = (row == 0 && column == 0) || (row == 3 && column == 0);
            EXPECT_EQ(picture.At(100 * column + 50, 100 * row + 50) < 100, isEntry) << row << " " << column;
            EXPECT_EQ(picture.At(100 * column + 50, 100 * row + 1) < 200, isEntry || isZero) << row << " " << column; // zeros are hollow
        }
}

// 2000 x 2000 on 100 x 100 pixels: a full block is black, one entry alone can be seen, more are darker, and nothing is white. A 0 is
// orange.
TEST(Spy, LargeMatrixIsShadedByDensity)
{
    Tool const tool;
    std::string entries;
    auto const add = [&](int row, int column, int value = 1) {
        entries += std::to_string(row + 1) + " " + std::to_string(column + 1) + " " + std::to_string(value) + "\n";
    };
    for (int k = 0; k < 400; ++k)
        add(k / 20, k % 20); // pixel (0, 0) in full
    add(1000, 40);           // pixel (2, 50)
    for (int k = 0; k < 20; ++k)
        add(1500 + k, 60 + k, k % 2); // pixel (3, 75)
    WriteFile(tool / "a.mtx", kHeader + "2000 2000 421\n" + entries);
    tool.Do({"spy", "a.mtx", "-o", "a.png", "--pixels", "100"});

    Pattern const picture(tool / "a.png");
    EXPECT_EQ(picture.At(90, 10), 255);
    EXPECT_LT(picture.At(2, 50), 230);
    EXPECT_LT(picture.At(3, 75), picture.At(2, 50));
    EXPECT_LT(picture.At(0, 0), std::min(60, picture.At(3, 75)));
    EXPECT_GT(picture.Channel(2, 93, 171), picture.Channel(0, 93, 171) + 50);
    EXPECT_LT(picture.Channel(2, 92, 146), picture.Channel(0, 92, 146));
}

TEST(Spy, LargerMagnitudesAreDarker)
{
    Tool const tool;
    for (int const size : {5, 500}) { // in squares and in pixels
        WriteFile(tool / "a.mtx",
                  kHeader + std::to_string(size) + " " + std::to_string(size) + " 5\n1 1 2e-9\n2 2 -3e-2\n3 3 1e5\n4 4 nan\n5 5 0\n");
        tool.Do({"spy", "a.mtx", "-o", "a.png", "--pixels", "500", "--magnitude"});
        Pattern const picture(tool / "a.png");
        int const step = 500 / size, middle = step / 2;
        EXPECT_LT(picture.At(middle, middle), 240);
        EXPECT_LT(picture.At(step + middle, step + middle), picture.At(middle, middle) - 50);
        EXPECT_LT(picture.At(2 * step + middle, 2 * step + middle), picture.At(step + middle, step + middle) - 50);
        int const x = 90 + 3 * step + middle, y = 96 + 3 * step + middle;
        EXPECT_GT(picture.Channel(1, x, y), picture.Channel(0, x, y) + 50); // NaN is green
    }
}

TEST(Spy, VectorPicturesStaySmall)
{
    Tool const tool;
    tool.Do({"spy", Data("bcsstk11.mtx"), "-o", "large.SVG"});
    tool.Do({"spy", Data("bcsstk11.mtx"), "-o", "small.svg", "--rows", "1:20", "--columns", "1:20"});
    for (std::string const name : {"large.SVG", "small.svg"}) {
        std::string const svg = ReadFile(tool / name);
        EXPECT_LT(svg.size(), 250000U);
        EXPECT_TRUE(svg.starts_with("<?xml") && svg.ends_with("</svg>\n")) << name;
        EXPECT_EQ(svg.find("<image") != std::string::npos, name == "large.SVG"); // else squares
    }
}
