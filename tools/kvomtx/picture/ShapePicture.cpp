#include "ShapePicture.h"

#include "BlockNodes.h"
#include "BlockSurface.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>

namespace
{

constexpr double kWidth = 960.0, kHeight = 640.0;
constexpr double kLeft = 50.0, kRight = 50.0, kTop = 90.0, kBottom = 110.0;
constexpr Colour kAtRest{110, 110, 110};
constexpr Colour kLines{120, 140, 175};

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

double Diagonal(BlockNodes const& nodes)
{
    double sum = 0.0;
    for (std::size_t d = 0; d < 3; ++d) {
        double const length = nodes.Planes(d).back() - nodes.Planes(d).front();
        sum += length * length;
    }
    return std::sqrt(sum);
}

// The largest displacement becomes an eighth of the block's diagonal, of a factor of two digits.
double VisibleAmplification(BlockNodes const& nodes, std::span<double const> displacements)
{
    double largest = 0.0;
    for (std::size_t i = 0; i + 2 < displacements.size(); i += 3)
        largest = std::max(largest, std::hypot(displacements[i], displacements[i + 1], displacements[i + 2]));
    double const wanted = Diagonal(nodes) / 8.0 / largest;
    if (!(largest > 0.0) || !std::isfinite(wanted))
        return 1.0;
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.1e", wanted);
    return std::strtod(digits, nullptr);
}

// From projected places to the picture: all patches fit, in their middle.
class Fit
{
public:
    explicit Fit(std::vector<SurfacePatch> const& patches)
    {
        for (SurfacePatch const& patch : patches)
            for (std::size_t corner = 0; corner < 4; ++corner)
                for (Point const point : {Project(patch.atRest[corner]), Project(patch.moved[corner])}) {
                    m_low = {std::min(m_low.x, point.x), std::min(m_low.y, point.y)};
                    m_high = {std::max(m_high.x, point.x), std::max(m_high.y, point.y)};
                }
        m_scale = std::min((kWidth - kLeft - kRight) / (m_high.x - m_low.x), (kHeight - kTop - kBottom) / (m_high.y - m_low.y));
    }
    Point operator()(Place const& place) const
    {
        Point const point = Project(place);
        return {kLeft + (kWidth - kLeft - kRight) / 2.0 + (point.x - (m_low.x + m_high.x) / 2.0) * m_scale,
                kTop + (kHeight - kTop - kBottom) / 2.0 + (point.y - (m_low.y + m_high.y) / 2.0) * m_scale};
    }

private:
    Point m_low{HUGE_VAL, HUGE_VAL};
    Point m_high{-HUGE_VAL, -HUGE_VAL};
    double m_scale = 1.0;
};

bool FacesViewer(std::array<Point, 4> const& corners)
{
    double twiceArea = 0.0; // y points down, so what is counter-clockwise to the eye is negative
    for (std::size_t i = 0; i < 4; ++i) {
        Point const a = corners[i], b = corners[(i + 1) % 4];
        twiceArea += a.x * b.y - b.x * a.y;
    }
    return twiceArea < 0.0;
}

// Brighter the more a patch faces a light from above on the left.
Colour Lit(std::array<Place, 4> const& corners)
{
    constexpr Place kLight{-0.30, -0.50, 0.81};
    Place a{}, b{};
    for (std::size_t d = 0; d < 3; ++d) {
        a[d] = corners[2][d] - corners[0][d];
        b[d] = corners[3][d] - corners[1][d];
    }
    Place const normal{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    double const length = std::hypot(normal[0], normal[1], normal[2]);
    double const towards = length > 0.0 ? (normal[0] * kLight[0] + normal[1] * kLight[1] + normal[2] * kLight[2]) / length : 0.0;
    double const light = 0.72 + 0.28 * std::max(0.0, towards);
    auto const of = [light](double full) { return static_cast<std::uint8_t>(std::lround(light * full)); };
    return {of(205), of(222), of(250)};
}

// What lies farther is drawn first.
void DrawMoved(Drawing& drawing, std::vector<SurfacePatch> patches, Fit const& fit)
{
    auto const depth = [](SurfacePatch const& patch) {
        double sum = 0.0;
        for (Place const& corner : patch.moved)
            sum += Depth(corner);
        return sum;
    };
    std::ranges::sort(patches, std::ranges::greater{}, depth);
    for (SurfacePatch const& patch : patches) {
        std::array<Point, 4> corners{};
        std::ranges::transform(patch.moved, corners.begin(), fit);
        if (!FacesViewer(corners))
            continue;
        drawing.Polygon(corners, Lit(patch.moved));
        for (bool const isEdge : {false, true})
            for (std::size_t side = 0; side < 4; ++side)
                if (patch.isEdge[side] == isEdge)
                    drawing.Polyline(std::array<Point, 2>{corners[side], corners[(side + 1) % 4]},
                                     isEdge ? Stroke{{20, 40, 110}, 2.0, {}} : Stroke{kLines, 0.6, {}});
    }
}

void DrawAtRest(Drawing& drawing, BlockNodes const& nodes, Fit const& fit)
{
    for (std::size_t along = 0; along < 3; ++along)
        for (int k = 0; k < 4; ++k) {
            Place from{};
            for (std::size_t d = 0, bit = 0; d < 3; ++d)
                from[d] = d != along && (k >> bit++ & 1) != 0 ? nodes.Planes(d).back() : nodes.Planes(d).front();
            Place to = from;
            to[along] = nodes.Planes(along).back();
            drawing.Polyline(std::array<Point, 2>{fit(from), fit(to)}, {kAtRest, 1.0, {5.0, 4.0}});
        }
}

void DrawAxes(Drawing& drawing, Point origin)
{
    constexpr std::array<std::pair<char const*, Place>, 3> kAxes{{{"x", {1, 0, 0}}, {"y", {0, 1, 0}}, {"z", {0, 0, 1}}}};
    for (auto const& [name, direction] : kAxes) {
        Point const along = Project(direction);
        drawing.Polyline(std::array<Point, 2>{origin, Point{origin.x + 40.0 * along.x, origin.y + 40.0 * along.y}}, {kTextColour, 1.5, {}});
        drawing.Text({origin.x + 52.0 * along.x, origin.y + 52.0 * along.y}, name, {13.0, false, Align::kCentre});
    }
}

void DrawLegend(Drawing& drawing, double amplification)
{
    constexpr double y = kHeight - 30.0;
    drawing.Polyline(std::array<Point, 2>{{{180.0, y}, {225.0, y}}}, {kAtRest, 1.0, {5.0, 4.0}});
    drawing.Text({235.0, y}, "at rest");
    drawing.Polyline(std::array<Point, 2>{{{320.0, y}, {365.0, y}}}, {{20, 40, 110}, 2.0, {}});
    drawing.Text({375.0, y}, "mode, displacements × " + Number(amplification));
}

std::string Facts(ModeShape const& shape)
{
    std::string lengths, elements;
    for (std::size_t d = 0; d < 3; ++d) {
        std::vector<double> const& planes = shape.nodes.Planes(d);
        lengths += (d > 0 ? " × " : "") + Number(planes.back() - planes.front());
        elements += (d > 0 ? " × " : "") + std::to_string(planes.size() - 1);
    }
    return shape.source + ": block of " + lengths + ", " + elements + " elements" +
           (shape.nodes.IsClamped() ? ", clamped at x = 0" : ", free");
}

} // namespace

double DrawShape(ModeShape const& shape, PictureFile const& file)
{
    double const amplification = shape.amplification > 0.0 ? shape.amplification : VisibleAmplification(shape.nodes, shape.displacements);
    std::vector<SurfacePatch> const patches = SurfaceOf(shape.nodes, shape.displacements, amplification);
    Drawing drawing(file, kWidth, kHeight);
    constexpr double kWidest = kWidth - kLeft - kRight;
    drawing.Text({kLeft, 24.0}, shape.title, {16.0, true, Align::kLeft, kTextColour, kWidest});
    drawing.Text({kLeft, 48.0}, Facts(shape), {13.0, false, Align::kLeft, kTextColour, kWidest});
    Fit const fit(patches);
    DrawMoved(drawing, patches, fit);
    DrawAtRest(drawing, shape.nodes, fit);
    DrawAxes(drawing, {75.0, kHeight - 55.0});
    DrawLegend(drawing, amplification);
    drawing.Write();
    return amplification;
}
