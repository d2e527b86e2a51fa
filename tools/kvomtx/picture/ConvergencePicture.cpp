#include "ConvergencePicture.h"

#include "Axis.h"
#include "Drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace
{

constexpr double kWidth = 960.0, kHeight = 640.0;
constexpr double kLeft = 100.0, kRight = 40.0, kTop = 70.0, kBottom = 70.0;
constexpr int kLowest = -16; // smaller residuals, and none at all, are drawn there
constexpr Colour kGrid{225, 225, 225};

struct Axes {
    int steps;

    double X(double step) const { return kLeft + (step - 1.0) / std::max(1, steps - 1) * (kWidth - kLeft - kRight); }
    double Y(double exponent) const { return kTop + exponent / kLowest * (kHeight - kTop - kBottom); }
};

// Of one mode: the points from its first step on.
using Line = std::vector<Point>;

double Exponent(double residual)
{
    return residual > 0.0 ? std::clamp(std::log10(residual), static_cast<double>(kLowest), 0.0) : kLowest;
}

std::vector<Line> LinesOf(ConvergenceHistory const& history, Axes const& axes)
{
    std::vector<Line> lines;
    for (std::size_t k = 0; k < history.size(); ++k) {
        lines.resize(std::max(lines.size(), history[k].size()));
        for (std::size_t mode = 0; mode < history[k].size(); ++mode)
            lines[mode].push_back({axes.X(static_cast<double>(k + 1)), axes.Y(Exponent(history[k][mode]))});
    }
    return lines;
}

// From blue for the lowest mode over violet to orange for the highest, the brightness growing, and dashes in turns.
Stroke StrokeOf(std::size_t mode, std::size_t count)
{
    static std::array<std::vector<double>, 4> const kDashes{{{}, {9.0, 4.0}, {2.0, 3.0}, {9.0, 3.0, 2.0, 3.0}}};
    double const t = count > 1 ? static_cast<double>(mode) / static_cast<double>(count - 1) : 0.0;
    auto const mix = [t](int from, int to) { return static_cast<std::uint8_t>(from + std::lround(t * (to - from))); };
    return {{mix(10, 225), mix(50, 110), mix(150, 20)}, 1.6, kDashes[mode % kDashes.size()]};
}

// One of five, so that with four kinds of dashes twenty modes in a row differ.
void DrawMark(Drawing& drawing, Point at, std::size_t mode, Colour colour)
{
    constexpr double r = 3.5;
    Stroke const stroke{colour, 1.6, {}};
    switch (mode % 5) {
    case 0:
        drawing.Circle(at, r, colour);
        break;
    case 1:
        drawing.Frame(at.x - r, at.y - r, 2.0 * r, 2.0 * r, stroke);
        break;
    case 2:
        drawing.Polygon(std::array<Point, 3>{{{at.x, at.y - r - 1.0}, {at.x + r + 1.0, at.y + r}, {at.x - r - 1.0, at.y + r}}}, colour);
        break;
    case 3:
        drawing.Polyline(std::array<Point, 2>{{{at.x - r, at.y - r}, {at.x + r, at.y + r}}}, stroke);
        drawing.Polyline(std::array<Point, 2>{{{at.x - r, at.y + r}, {at.x + r, at.y - r}}}, stroke);
        break;
    default:
        drawing.Polygon(
            std::array<Point, 4>{{{at.x, at.y - r - 1.5}, {at.x + r + 1.5, at.y}, {at.x, at.y + r + 1.5}, {at.x - r - 1.5, at.y}}}, colour);
    }
}

double SquaredDistance(Point a, Point b)
{
    return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

// Places on a line, between its marks.
Line PlacesOn(Line const& line)
{
    Line places;
    for (std::size_t k = 1; k < line.size(); ++k)
        for (double const t : {0.3, 0.5, 0.7})
            places.push_back({line[k - 1].x + t * (line[k].x - line[k - 1].x), line[k - 1].y + t * (line[k].y - line[k - 1].y)});
    return places.empty() && !line.empty() ? Line{{line[0].x + 14.0, line[0].y}} : places;
}

// Where the number of each mode stands: on its line, as far as possible from the numbers that stand already and, of places that are far
// enough, from the other lines.
std::vector<Point> PlacesOfNumbers(std::vector<Line> const& lines)
{
    constexpr double kFar = 30.0 * 30.0;
    std::vector<Line> places;
    for (Line const& line : lines)
        places.push_back(PlacesOn(line));
    std::vector<Point> taken;
    for (std::size_t mode = 0; mode < lines.size(); ++mode) {
        Point best{};
        double most = -1.0;
        for (Point const place : places[mode]) {
            double toNumbers = kFar, toLines = kFar;
            for (Point const other : taken)
                toNumbers = std::min(toNumbers, SquaredDistance(place, other));
            for (std::size_t other = 0; other < lines.size(); ++other)
                for (Point const point : places[other])
                    if (other != mode)
                        toLines = std::min(toLines, SquaredDistance(place, point));
            double const room = 2.0 * toNumbers + toLines;
            if (room > most) {
                most = room;
                best = place;
            }
        }
        taken.push_back(best);
    }
    return taken;
}

void DrawAxes(Drawing& drawing, Axes const& axes)
{
    double const right = kWidth - kRight, bottom = kHeight - kBottom;
    TextStyle const number{13.0, false, Align::kCentre};
    for (int exponent = 0; exponent >= kLowest; exponent -= 2) {
        double const y = std::floor(axes.Y(exponent));
        drawing.Fill(kLeft, y, right - kLeft, 1.0, kGrid);
        if (exponent == 0)
            drawing.Text({kLeft - 12.0, y}, "1", {13.0, false, Align::kRight});
        else
            drawing.PowerOfTen({kLeft - 12.0, y}, exponent, {13.0, false, Align::kRight});
    }
    for (int const step : NumbersAtAxis(1, axes.steps, right - kLeft, 40.0)) {
        double const x = std::floor(axes.X(step));
        drawing.Fill(x, kTop, 1.0, bottom - kTop, kGrid);
        drawing.Text({x, bottom + 16.0}, std::to_string(step), number);
    }
    drawing.Fill(kLeft, kTop, 1.0, bottom - kTop, kTextColour);
    drawing.Fill(kLeft, bottom, right - kLeft, 1.0, kTextColour);
    drawing.Text({(kLeft + right) / 2.0, bottom + 42.0}, "step of the search", number);
    drawing.Text({kLeft, kTop - 18.0}, "residual of a mode, relative to λ + shift; each line has the number of its mode");
}

} // namespace

void DrawConvergence(ConvergenceHistory const& history, std::string const& title, PictureFile const& file)
{
    Drawing drawing(file, kWidth, kHeight);
    Axes const axes{static_cast<int>(history.size())};
    drawing.Text({kLeft, 24.0}, title, {16.0, true, Align::kLeft, kTextColour, kWidth - kLeft - kRight});
    DrawAxes(drawing, axes);
    std::vector<Line> const lines = LinesOf(history, axes);
    for (std::size_t mode = 0; mode < lines.size(); ++mode) {
        Stroke const stroke = StrokeOf(mode, lines.size());
        drawing.Polyline(lines[mode], stroke);
        for (Point const point : lines[mode])
            DrawMark(drawing, point, mode, stroke.colour);
    }
    std::vector<Point> const numbers = PlacesOfNumbers(lines);
    for (std::size_t mode = 0; mode < lines.size(); ++mode)
        if (!lines[mode].empty())
            drawing.Text(numbers[mode], std::to_string(mode + 1),
                         {12.0, true, Align::kCentre, StrokeOf(mode, lines.size()).colour, 0.0, true});
    drawing.Write();
}
