#include "Drawing.h"

#include "Errors.h"
#include "Fonts.h"
#include "PictureFile.h"

#include <cairo-svg.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>

namespace
{

cairo_status_t Append(void* bytes, unsigned char const* data, unsigned length)
{
    try {
        static_cast<std::string*>(bytes)->append(reinterpret_cast<char const*>(data), length);
        return CAIRO_STATUS_SUCCESS;
    } catch (std::bad_alloc const&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

cairo_surface_t* MakeSurface(PictureKind kind, double width, double height, std::string& bytes)
{
    if (kind == PictureKind::kPng)
        return cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height));
    cairo_surface_t* const surface = cairo_svg_surface_create_for_stream(Append, &bytes, width, height);
    cairo_svg_surface_set_document_unit(surface, CAIRO_SVG_UNIT_PX);
    return surface;
}

std::string Markup(std::string const& text)
{
    char* const valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    char* const escaped = g_markup_escape_text(valid, -1);
    std::string result = escaped;
    g_free(escaped);
    g_free(valid);
    return result;
}

PangoLayout* MakeLayout(cairo_t* context)
{
    PangoFontMap* const fonts = pango_cairo_font_map_new();
    PangoContext* const text = pango_font_map_create_context(fonts);
    pango_cairo_update_context(context, text);
    PangoLayout* const layout = pango_layout_new(text);
    pango_layout_set_single_paragraph_mode(layout, TRUE); // a line break in a file's name is shown as a sign
    g_object_unref(text);
    g_object_unref(fonts);
    return layout;
}

} // namespace

Drawing::Drawing(PictureFile const& file, double width, double height)
    : m_file(file), m_surface(MakeSurface(file.Kind(), width, height, m_bytes)), m_context(cairo_create(m_surface.get()))
{
    Check(cairo_status(m_context.get()));
    constexpr std::size_t kRoom = std::size_t{64} << 20;
    ::operator delete(::operator new(kRoom)); // pango and GLib end the process where they find none for their threads and themselves
    FindFonts(file.Folder());
    m_layout.reset(MakeLayout(m_context.get()));
    Fill(0.0, 0.0, width, height, {255, 255, 255});
}

Drawing::~Drawing() = default;

void Drawing::Check(cairo_status_t status) const
{
    if (status == CAIRO_STATUS_NO_MEMORY)
        throw std::bad_alloc();
    if (status != CAIRO_STATUS_SUCCESS)
        throw ToolError(ExitCode::kCannot, std::string("the picture cannot be drawn: ") + cairo_status_to_string(status));
}

void Drawing::SetColour(Colour colour)
{
    cairo_set_source_rgb(m_context.get(), colour.red / 255.0, colour.green / 255.0, colour.blue / 255.0);
}

void Drawing::SetStroke(Stroke const& stroke)
{
    SetColour(stroke.colour);
    cairo_set_line_width(m_context.get(), stroke.width);
    cairo_set_line_join(m_context.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_set_dash(m_context.get(), stroke.dashes.data(), static_cast<int>(stroke.dashes.size()), 0.0);
}

void Drawing::Trace(std::span<Point const> points)
{
    cairo_new_path(m_context.get());
    for (Point const& point : points)
        cairo_line_to(m_context.get(), point.x, point.y);
}

void Drawing::Fill(double x, double y, double width, double height, Colour colour)
{
    SetColour(colour);
    cairo_rectangle(m_context.get(), x, y, width, height);
    cairo_fill(m_context.get());
}

void Drawing::Frame(double x, double y, double width, double height, Stroke const& stroke)
{
    SetStroke(stroke);
    double const half = stroke.width / 2.0;
    cairo_rectangle(m_context.get(), x + half, y + half, width - stroke.width, height - stroke.width);
    cairo_stroke(m_context.get());
}

void Drawing::Polygon(std::span<Point const> corners, Colour colour)
{
    SetColour(colour);
    Trace(corners);
    cairo_fill(m_context.get());
}

void Drawing::Polyline(std::span<Point const> points, Stroke const& stroke)
{
    SetStroke(stroke);
    Trace(points);
    cairo_stroke(m_context.get());
}

void Drawing::Circle(Point centre, double radius, Colour colour)
{
    SetColour(colour);
    cairo_arc(m_context.get(), centre.x, centre.y, radius, 0.0, 2.0 * std::numbers::pi);
    cairo_fill(m_context.get());
}

void Drawing::SetLayout(std::string const& markup, TextStyle const& style) const
{
    PangoFontDescription* const font = pango_font_description_from_string("Sans");
    pango_font_description_set_weight(font, style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE); // pixels, whatever the screen's resolution
    pango_layout_set_font_description(m_layout.get(), font);
    pango_font_description_free(font);
    pango_layout_set_markup(m_layout.get(), markup.c_str(), -1);
    pango_layout_set_width(m_layout.get(), -1);
    int width = 0;
    pango_layout_get_pixel_size(m_layout.get(), &width, nullptr);
    bool const isCut = style.widest > 0.0 && width > style.widest;
    pango_layout_set_ellipsize(m_layout.get(), isCut ? PANGO_ELLIPSIZE_MIDDLE : PANGO_ELLIPSIZE_NONE);
    if (isCut)
        pango_layout_set_width(m_layout.get(), static_cast<int>(style.widest * PANGO_SCALE));
}

void Drawing::ShowLayout(Point place, TextStyle const& style)
{
    int width = 0, height = 0;
    pango_layout_get_pixel_size(m_layout.get(), &width, &height);
    double const before = style.align == Align::kLeft ? 0.0 : style.align == Align::kCentre ? width / 2.0 : width;
    cairo_move_to(m_context.get(), std::round(place.x - before), std::round(place.y - height / 2.0));
    if (style.halo) {
        SetStroke({{255, 255, 255}, 4.0, {}});
        cairo_save(m_context.get());
        pango_cairo_layout_path(m_context.get(), m_layout.get());
        cairo_stroke(m_context.get());
        cairo_restore(m_context.get());
        cairo_move_to(m_context.get(), std::round(place.x - before), std::round(place.y - height / 2.0));
    }
    SetColour(style.colour);
    pango_cairo_show_layout(m_context.get(), m_layout.get());
}

void Drawing::Text(Point place, std::string const& text, TextStyle const& style)
{
    SetLayout(Markup(text), style);
    ShowLayout(place, style);
}

void Drawing::PowerOfTen(Point place, int exponent, TextStyle const& style)
{
    std::string const digits = std::to_string(std::abs(exponent));
    SetLayout("10<sup>" + (exponent < 0 ? "\u2212" + digits : digits) + "</sup>", style);
    ShowLayout(place, style);
}

double Drawing::TextWidth(std::string const& text, TextStyle const& style) const
{
    SetLayout(Markup(text), style);
    int width = 0;
    pango_layout_get_pixel_size(m_layout.get(), &width, nullptr);
    return width;
}

void Drawing::Image(double x, double y, int width, int height, std::function<Colour(int column, int row)> const& colourOf)
{
    std::unique_ptr<cairo_surface_t, Free> const image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    Check(cairo_surface_status(image.get()));
    unsigned char* pixel = cairo_image_surface_get_data(image.get());
    int const gap = cairo_image_surface_get_stride(image.get()) - 4 * width;
    for (int row = 0; row < height; ++row, pixel += gap)
        for (int column = 0; column < width; ++column, pixel += 4) {
            Colour const colour = colourOf(column, row);
            std::uint32_t const bits = std::uint32_t{colour.red} << 16 | std::uint32_t{colour.green} << 8 | colour.blue;
            std::memcpy(pixel, &bits, sizeof bits);
        }
    cairo_surface_mark_dirty(image.get());
    cairo_set_source_surface(m_context.get(), image.get(), x, y);
    cairo_pattern_set_filter(cairo_get_source(m_context.get()), CAIRO_FILTER_NEAREST);
    cairo_rectangle(m_context.get(), x, y, width, height);
    cairo_fill(m_context.get());
}

void Drawing::Write()
{
    Check(cairo_status(m_context.get()));
    if (m_file.Kind() == PictureKind::kPng)
        Check(cairo_surface_write_to_png_stream(m_surface.get(), Append, &m_bytes));
    cairo_surface_finish(m_surface.get());
    Check(cairo_surface_status(m_surface.get()));
    m_file.Write(m_bytes);
}
