#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class OutputFile;

struct Colour {
    std::uint8_t red = 0, green = 0, blue = 0;
};

/// A picture of width x height pixels, white at first. Points outside are left out.
class Canvas
{
public:
    Canvas(int width, int height);

    int Width() const noexcept { return m_width; }
    int Height() const noexcept { return m_height; }

    void Set(int x, int y, Colour colour);
    /// The pixels from (x, y) on.
    void Fill(int x, int y, int width, int height, Colour colour);
    /// A line between two points, smooth.
    void Line(double x0, double y0, double x1, double y1, Colour colour);
    /// Letters of 5 x 7 pixels, enlarged `scale` times, from their upper left corner on. Small letters are drawn as capitals.
    void Text(int x, int y, std::string_view text, Colour colour, int scale = 2);
    static int TextWidth(std::string_view text, int scale = 2) noexcept { return static_cast<int>(text.size()) * 6 * scale; }

    /// Writes the picture under the file's temporary name.
    /// @throws ToolError kUnwritable
    void WritePng(OutputFile const& file) const;

private:
    void Blend(int x, int y, double share, Colour colour);

    int m_width;
    int m_height;
    std::vector<Colour> m_pixels;
};
