#include "Tool.h"

#include <gtest/gtest.h>
#include <png.h>

namespace
{

constexpr int kMargin = 50; // around the pattern

/// Grey values of a PNG file, 0 black to 255 white.
struct Picture {
    explicit Picture(std::string const& path)
    {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_file(&image, path.c_str()))
            throw std::runtime_error(image.message);
        image.format = PNG_FORMAT_GRAY;
        width = image.width;
        pixels.resize(PNG_IMAGE_SIZE(image));
        png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr);
        png_image_free(&image);
    }
    int At(std::size_t x, std::size_t y) const { return pixels.at((kMargin + y) * width + kMargin + x); }

    std::size_t width = 0;
    std::vector<unsigned char> pixels;
};

} // namespace

TEST(Spy, SmallMatrixIsDrawnEntryByEntry)
{
    Tool const tool;
    WriteFile(tool / "a.mtx", "%%MatrixMarket matrix coordinate real general\n4 4 3\n1 1 2\n2 4 0\n4 1 7\n");
    tool.Do({"spy", "a.mtx", "-o", "a.png", "--pixels", "400"});
    Picture const picture(tool / "a.png");
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 4; ++column) {
            bool const entry = (row == 0 && column == 0) || (row == 1 && column == 3) || (row == 3 && column == 0);
            EXPECT_EQ(picture.At(100 * column + 50, 100 * row + 50) < 100, entry) << row << " " << column;
        }
}

// 2000 x 2000 on 100 x 100 pixels: a full block is black, one entry alone can be seen, more are darker, and nothing is white.
TEST(Spy, LargeMatrixIsShadedByDensity)
{
    Tool const tool;
    std::string entries;
    auto const add = [&](int row, int column) { entries += std::to_string(row + 1) + " " + std::to_string(column + 1) + " 1\n"; };
    for (int k = 0; k < 400; ++k)
        add(k / 20, k % 20); // pixel (0, 0) in full
    add(1000, 40);           // pixel (2, 50)
    for (int k = 0; k < 20; ++k)
        add(1500 + k, 60 + k); // pixel (3, 75)
    WriteFile(tool / "a.mtx", "%%MatrixMarket matrix coordinate real general\n2000 2000 421\n" + entries);
    tool.Do({"spy", "a.mtx", "-o", "a.png", "--pixels", "100"});

    Picture const picture(tool / "a.png");
    EXPECT_EQ(picture.At(90, 10), 255);
    EXPECT_LT(picture.At(2, 50), 230);
    EXPECT_LT(picture.At(3, 75), picture.At(2, 50));
    EXPECT_LT(picture.At(0, 0), std::min(60, picture.At(3, 75)));
}
