#pragma once

#include <cairo.h>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

/// The pixels of a PNG file.
class Picture
{
public:
    explicit Picture(std::string const& path) : m_surface(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy)
    {
        if (cairo_surface_status(m_surface.get()) != CAIRO_STATUS_SUCCESS)
            throw std::runtime_error(path + " is no PNG file");
    }

    int Width() const { return cairo_image_surface_get_width(m_surface.get()); }
    int Height() const { return cairo_image_surface_get_height(m_surface.get()); }
    /// Red, green or blue, as `channel` is 2, 1 or 0.
    int Channel(int channel, int x, int y) const
    {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, cairo_image_surface_get_data(m_surface.get()) + y * cairo_image_surface_get_stride(m_surface.get()) + 4 * x, 4);
        return static_cast<int>(pixel >> 8 * channel & 255);
    }
    /// 0 black to 255 white.
    int Grey(int x, int y) const { return (299 * Channel(2, x, y) + 587 * Channel(1, x, y) + 114 * Channel(0, x, y)) / 1000; }

private:
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> m_surface;
};
