#include "Canvas.h"

#include "Errors.h"
#include "OutputFile.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace
{

constexpr int kGlyphColumns = 5;
constexpr int kGlyphRows = 7;

struct Glyph {
    char letter;
    std::uint8_t rows[kGlyphRows]; // from above; bit 4 is the left pixel
};

constexpr Glyph kGlyphs[] = {
    {'0', {14, 17, 19, 21, 25, 17, 14}}, {'1', {4, 12, 4, 4, 4, 4, 14}},      {'2', {14, 17, 1, 2, 4, 8, 31}},
    {'3', {31, 2, 4, 2, 1, 17, 14}},     {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},   {'7', {31, 1, 2, 4, 8, 8, 8}},       {'8', {14, 17, 17, 14, 17, 17, 14}},
    {'9', {14, 17, 17, 15, 1, 2, 12}},   {'A', {14, 17, 17, 31, 17, 17, 17}}, {'B', {30, 17, 17, 30, 17, 17, 30}},
    {'C', {14, 17, 16, 16, 16, 17, 14}}, {'D', {28, 18, 17, 17, 17, 18, 28}}, {'E', {31, 16, 16, 30, 16, 16, 31}},
    {'F', {31, 16, 16, 30, 16, 16, 16}}, {'G', {14, 17, 16, 23, 17, 17, 15}}, {'H', {17, 17, 17, 31, 17, 17, 17}},
    {'I', {14, 4, 4, 4, 4, 4, 14}},      {'J', {7, 2, 2, 2, 2, 18, 12}},      {'K', {17, 18, 20, 24, 20, 18, 17}},
    {'L', {16, 16, 16, 16, 16, 16, 31}}, {'M', {17, 27, 21, 21, 17, 17, 17}}, {'N', {17, 17, 25, 21, 19, 17, 17}},
    {'O', {14, 17, 17, 17, 17, 17, 14}}, {'P', {30, 17, 17, 30, 16, 16, 16}}, {'Q', {14, 17, 17, 17, 21, 18, 13}},
    {'R', {30, 17, 17, 30, 20, 18, 17}}, {'S', {15, 16, 16, 14, 1, 1, 30}},   {'T', {31, 4, 4, 4, 4, 4, 4}},
    {'U', {17, 17, 17, 17, 17, 17, 14}}, {'V', {17, 17, 17, 17, 17, 10, 4}},  {'W', {17, 17, 17, 21, 21, 21, 10}},
    {'X', {17, 17, 10, 4, 10, 17, 17}},  {'Y', {17, 17, 17, 10, 4, 4, 4}},    {'Z', {31, 1, 2, 4, 8, 16, 31}},
    {'-', {0, 0, 0, 31, 0, 0, 0}},       {'.', {0, 0, 0, 0, 0, 12, 12}},      {',', {0, 0, 0, 0, 12, 4, 8}},
    {':', {0, 12, 12, 0, 12, 12, 0}},    {'(', {2, 4, 8, 8, 8, 4, 2}},        {')', {8, 4, 2, 2, 2, 4, 8}},
    {'/', {0, 1, 2, 4, 8, 16, 0}},       {'_', {0, 0, 0, 0, 0, 0, 31}},       {'%', {24, 25, 2, 4, 8, 19, 3}},
};

Glyph const* GlyphOf(char letter)
{
    if (letter >= 'a' && letter <= 'z')
        letter = static_cast<char>(letter - 'a' + 'A');
    auto const* const glyph = std::ranges::find(kGlyphs, letter, &Glyph::letter);
    return glyph == std::end(kGlyphs) ? nullptr : glyph;
}

} // namespace

Canvas::Canvas(int width, int height)
    : m_width(width), m_height(height), m_pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), Colour{255, 255, 255})
{
}

void Canvas::Set(int x, int y, Colour colour)
{
    if (x >= 0 && y >= 0 && x < m_width && y < m_height)
        m_pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x)] = colour;
}

void Canvas::Fill(int x, int y, int width, int height, Colour colour)
{
    for (int row = y; row < y + height; ++row)
        for (int column = x; column < x + width; ++column)
            Set(column, row, colour);
}

void Canvas::Blend(int x, int y, double share, Colour colour)
{
    if (x < 0 || y < 0 || x >= m_width || y >= m_height)
        return;
    Colour& pixel = m_pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x)];
    auto const mix = [share](std::uint8_t from, std::uint8_t to) {
        return static_cast<std::uint8_t>(from + std::lround(share * (to - from)));
    };
    pixel = {mix(pixel.red, colour.red), mix(pixel.green, colour.green), mix(pixel.blue, colour.blue)};
}

void Canvas::Line(double x0, double y0, double x1, double y1, Colour colour)
{
    // Along the longer side one pixel a step; across, its colour is shared by the two pixels it lies between.
    bool const steep = std::fabs(y1 - y0) > std::fabs(x1 - x0);
    int const steps = std::max(1, static_cast<int>(std::ceil(std::max(std::fabs(x1 - x0), std::fabs(y1 - y0)))));
    for (int k = 0; k <= steps; ++k) {
        double const t = static_cast<double>(k) / steps, x = x0 + t * (x1 - x0), y = y0 + t * (y1 - y0);
        double const across = steep ? x : y;
        int const below = static_cast<int>(std::floor(across));
        int const along = static_cast<int>(std::lround(steep ? y : x));
        for (int side : {0, 1}) {
            double const share = 1.0 - std::fabs(across - (below + side));
            Blend(steep ? below + side : along, steep ? along : below + side, share, colour);
        }
    }
}

void Canvas::Text(int x, int y, std::string_view text, Colour colour, int scale)
{
    for (char const letter : text) {
        if (Glyph const* const glyph = GlyphOf(letter))
            for (int row = 0; row < kGlyphRows; ++row)
                for (int column = 0; column < kGlyphColumns; ++column)
                    if (glyph->rows[row] >> (kGlyphColumns - 1 - column) & 1)
                        Fill(x + column * scale, y + row * scale, scale, scale, colour);
        x += TextWidth(" ", scale);
    }
}

void Canvas::WritePng(OutputFile const& file) const
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(m_width);
    image.height = static_cast<png_uint_32>(m_height);
    image.format = PNG_FORMAT_RGB;
    static_assert(sizeof(Colour) == 3);
    errno = 0;
    bool const written = png_image_write_to_file(&image, file.TemporaryPath().c_str(), 0, m_pixels.data(), 3 * m_width, nullptr) != 0;
    int const error = errno;
    std::string const reason = error != 0 ? std::strerror(error) : image.message;
    png_image_free(&image);
    if (!written)
        throw ToolError(ExitCode::kUnwritable, file.Path() + ": cannot be written: " + reason + "; make room or write elsewhere");
}
