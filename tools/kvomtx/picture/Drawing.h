#pragma once

#include <cairo.h>
#include <pango/pango.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

class PictureFile;

struct Colour {
    std::uint8_t red = 0, green = 0, blue = 0;
};

constexpr Colour kTextColour{40, 40, 40};

struct Point {
    double x = 0.0;
    double y = 0.0;
};

struct Stroke {
    Colour colour = kTextColour;
    double width = 1.0;
    std::vector<double> dashes; ///< pixels drawn and left out, in turns; empty: all drawn
};

/// Which point of a text is placed.
enum class Align { kLeft, kCentre, kRight };

struct TextStyle {
    double size = 13.0; ///< pixels
    bool bold = false;
    Align align = Align::kLeft;
    Colour colour = kTextColour;
    double widest = 0.0; ///< pixels that a longer text is shortened to, in its middle; 0: any
    bool halo = false;   ///< white around it, where lines lie below
};

/// A picture, white at first, in pixels from the upper left corner on; of an SVG file they are its units. Drawn by cairo, its text by pango
/// in a font that the system has.
class Drawing
{
public:
    /// @param file  stays the picture's, which is written by Write(); it must live as long as this
    /// @throws ToolError kUnwritable, std::bad_alloc
    Drawing(PictureFile const& file, double width, double height);
    ~Drawing();
    Drawing(Drawing const&) = delete;
    Drawing& operator=(Drawing const&) = delete;

    /// A rectangle without an edge, with sharp borders at whole pixels.
    void Fill(double x, double y, double width, double height, Colour colour);
    /// Its edge lies within it.
    void Frame(double x, double y, double width, double height, Stroke const& stroke);
    void Polygon(std::span<Point const> corners, Colour colour);
    void Polyline(std::span<Point const> points, Stroke const& stroke);
    void Circle(Point centre, double radius, Colour colour);
    /// @param place  the text's left end, middle or right end, halfway up the line
    /// @param text   UTF-8; what is none is shown as such
    void Text(Point place, std::string const& text, TextStyle const& style = {});
    /// 10 to that power, which `style` places likewise.
    void PowerOfTen(Point place, int exponent, TextStyle const& style = {});
    double TextWidth(std::string const& text, TextStyle const& style = {}) const;
    /// Of the pixels of a rectangle, from its upper left one on, each its colour; an SVG file holds them as one image.
    void Image(double x, double y, int width, int height, std::function<Colour(int column, int row)> const& colourOf);

    /// Writes the picture under the file's temporary name. It is complete then.
    /// @throws ToolError kUnwritable, std::bad_alloc
    void Write();

private:
    struct Free {
        void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
        void operator()(PangoLayout* layout) const noexcept { g_object_unref(layout); }
    };

    void Check(cairo_status_t status) const;
    void SetColour(Colour colour);
    void SetStroke(Stroke const& stroke);
    void Trace(std::span<Point const> points);
    void SetLayout(std::string const& markup, TextStyle const& style) const;
    void ShowLayout(Point place, TextStyle const& style);

    PictureFile const& m_file;
    std::string m_bytes; // of the file
    std::unique_ptr<cairo_surface_t, Free> m_surface;
    std::unique_ptr<cairo_t, Free> m_context;
    std::unique_ptr<PangoLayout, Free> m_layout;
};
