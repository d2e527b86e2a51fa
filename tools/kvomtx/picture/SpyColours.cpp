#include "SpyColours.h"

#include "MagnitudeScale.h"
#include "SpyLegend.h"

#include <cmath>
#include <optional>
#include <vector>

namespace
{

constexpr Colour kWhite{255, 255, 255};
constexpr Colour kInk{20, 40, 110};
constexpr Colour kZero{225, 120, 0};
constexpr Colour kPaleZero{150, 205, 255}; // where yellow to red are magnitudes
constexpr Colour kNoNumber{0, 150, 80};

/// Calls take(pixel, k) for each pixel of each entry k.
template<class Take>
void ForEachPixelOfEntries(KVOSrvSparseRows const& matrix, SpyGrid const& grid, Take const& take)
{
    ForEachEntryOf(matrix, grid, [&](int row, int column, unsigned k) {
        int const left = grid.Left(column), bottom = grid.Bottom(row), right = grid.Right(column);
        for (int y = grid.Top(row); y < bottom; ++y)
            for (int x = left; x < right; ++x)
                take(grid.Pixel(x, y), k);
    });
}

class Pattern : public SpyColours
{
public:
    Pattern(KVOSrvSparseRows const& matrix, SpyGrid const& grid) : m_matrix(matrix), m_grid(grid), m_pixels(grid.Pixels())
    {
        ForEachPixelOfEntries(matrix, grid, [&](std::size_t pixel, unsigned k) {
            ++m_pixels[pixel].entries;
            if (matrix.values[k] == 0.0)
                m_pixels[pixel].hasZero = 1;
        });
    }

    Colour OfEntry(unsigned k) const override { return m_matrix.values[k] == 0.0 ? kZero : kInk; }
    Colour OfPixel(int x, int y) const override
    {
        Pixel const& pixel = m_pixels[m_grid.Pixel(x, y)];
        return Shade(pixel.entries, pixel.hasZero != 0 ? kZero : kInk);
    }
    void Explain(SpyLegend& legend, SpyCounts const& counts, bool isSquares) const override
    {
        bool const isDensity = !IsNearlyOnePlace();
        if (isDensity)
            legend.Density(m_grid.PlacesOfPixel(), [this](double entries) { return Shade(entries, kInk); });
        else if (counts.entries > counts.zeros)
            legend.Entry(kInk, "entry");
        if (counts.zeros > 0)
            legend.Entry(kZero, isDensity ? "a stored zero among them" : "stored zero", isSquares);
    }

private:
    struct Pixel {
        std::uint32_t entries : 31 = 0; // a matrix has fewer than 2^31
        std::uint32_t hasZero : 1 = 0;
    };

    bool IsNearlyOnePlace() const { return m_grid.PlacesOfPixel() <= 2.0; }
    Colour Shade(double entries, Colour ink) const
    {
        constexpr double kFaintest = 0.25;
        if (entries == 0.0)
            return kWhite;
        double const share = IsNearlyOnePlace() ? 1.0 : std::min(1.0, std::log(entries) / std::log(m_grid.PlacesOfPixel()));
        auto const mix = [share](int full) {
            return static_cast<std::uint8_t>(255 - std::lround((kFaintest + (1.0 - kFaintest) * share) * (255 - full)));
        };
        return {mix(ink.red), mix(ink.green), mix(ink.blue)};
    }

    KVOSrvSparseRows const& m_matrix;
    SpyGrid m_grid;
    std::vector<Pixel> m_pixels;
};

class Magnitudes : public SpyColours
{
public:
    Magnitudes(KVOSrvSparseRows const& matrix, SpyGrid const& grid) : m_matrix(matrix), m_grid(grid), m_largest(grid.Pixels(), kNone)
    {
        auto const isLarger = [&](unsigned a, unsigned b) { return std::isnan(matrix.values[a]) || Magnitude(a) > Magnitude(b); };
        ForEachPixelOfEntries(matrix, grid, [&](std::size_t pixel, unsigned k) {
            if (m_largest[pixel] == kNone || isLarger(k, m_largest[pixel]))
                m_largest[pixel] = k;
        });
        MakeScale();
    }

    Colour OfEntry(unsigned k) const override
    {
        double const magnitude = Magnitude(k);
        return !std::isfinite(magnitude) ? kNoNumber : magnitude == 0.0 ? kPaleZero : m_scale->Of(magnitude);
    }
    Colour OfPixel(int x, int y) const override
    {
        unsigned const k = m_largest[m_grid.Pixel(x, y)];
        return k == kNone ? kWhite : OfEntry(k);
    }
    void Explain(SpyLegend& legend, SpyCounts const& counts, bool isSquares) const override
    {
        if (m_scale)
            legend.Magnitudes(*m_scale, isSquares ? "magnitude:" : "largest magnitude:");
        if (m_hasNoNumber)
            legend.Entry(kNoNumber, "infinite or NaN");
        if (counts.zeros > 0)
            legend.Entry(kPaleZero, "stored zero", isSquares);
    }

private:
    static constexpr unsigned kNone = 0xffffffff;

    double Magnitude(unsigned k) const { return std::fabs(m_matrix.values[k]); }
    void MakeScale()
    {
        double smallest = HUGE_VAL, greatest = 0.0;
        for (unsigned const k : m_largest) {
            double const magnitude = k == kNone ? 0.0 : Magnitude(k);
            m_hasNoNumber = m_hasNoNumber || !std::isfinite(magnitude);
            if (magnitude > 0.0 && std::isfinite(magnitude)) {
                smallest = std::min(smallest, magnitude);
                greatest = std::max(greatest, magnitude);
            }
        }
        if (greatest > 0.0)
            m_scale.emplace(smallest, greatest);
    }

    KVOSrvSparseRows const& m_matrix;
    SpyGrid m_grid;
    std::vector<unsigned> m_largest; // entry of each pixel
    std::optional<MagnitudeScale> m_scale;
    bool m_hasNoNumber = false;
};

} // namespace

std::unique_ptr<SpyColours> PatternColours(KVOSrvSparseRows const& matrix, SpyGrid const& grid)
{
    return std::make_unique<Pattern>(matrix, grid);
}

std::unique_ptr<SpyColours> MagnitudeColours(KVOSrvSparseRows const& matrix, SpyGrid const& grid)
{
    return std::make_unique<Magnitudes>(matrix, grid);
}
