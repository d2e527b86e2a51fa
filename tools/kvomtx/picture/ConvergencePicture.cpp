#include "ConvergencePicture.h"

#include "Canvas.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace
{

constexpr int kWidth = 960, kHeight = 640;
constexpr int kLeft = 110, kRight = 40, kTop = 60, kBottom = 80;
constexpr double kLowest = -16.0; // smaller residuals, and none at all, are drawn there
constexpr double kHighest = 0.0;
constexpr Colour kInk{40, 40, 40};
constexpr Colour kGrid{225, 225, 225};

struct Axes {
    int steps;

    double X(double step) const { return kLeft + (step - 1.0) / std::max(1, steps - 1) * (kWidth - kLeft - kRight); }
    double Y(double exponent) const { return kTop + (kHighest - exponent) / (kHighest - kLowest) * (kHeight - kTop - kBottom); }
};

double Exponent(double residual)
{
    return residual > 0.0 ? std::clamp(std::log10(residual), kLowest, kHighest) : kLowest;
}

// From blue for the lowest mode to red for the highest.
Colour ColourOf(std::size_t mode, std::size_t count)
{
    double const t = count > 1 ? static_cast<double>(mode) / static_cast<double>(count - 1) : 0.0;
    auto const mix = [t](int from, int to) { return static_cast<std::uint8_t>(from + std::lround(t * (to - from))); };
    return {mix(20, 215), mix(90, 60), mix(200, 30)};
}

void DrawAxes(Canvas& canvas, Axes const& axes)
{
    int const left = static_cast<int>(axes.X(1.0)), right = kWidth - kRight;
    for (int exponent = 0; exponent >= static_cast<int>(kLowest); exponent -= 2) {
        int const y = static_cast<int>(axes.Y(exponent));
        canvas.Fill(left, y, right - left, 1, kGrid);
        std::string const label = exponent == 0 ? "1" : "1E" + std::to_string(exponent);
        canvas.Text(left - 10 - Canvas::TextWidth(label), y - 7, label, kInk);
    }
    int const step = std::max(1, (axes.steps + 9) / 10);
    for (int number = 1; number <= axes.steps; number += step) {
        int const x = static_cast<int>(axes.X(number));
        canvas.Fill(x, kTop, 1, kHeight - kTop - kBottom, kGrid);
        std::string const label = std::to_string(number);
        canvas.Text(x - Canvas::TextWidth(label) / 2, kHeight - kBottom + 10, label, kInk);
    }
    canvas.Fill(left, kTop, 1, kHeight - kTop - kBottom, kInk);
    canvas.Fill(left, kHeight - kBottom, right - left, 1, kInk);
    std::string const name = "STEP";
    canvas.Text((left + right - Canvas::TextWidth(name)) / 2, kHeight - 35, name, kInk);
}

} // namespace

void DrawConvergence(ConvergenceHistory const& history, OutputFile const& file)
{
    std::size_t modes = 0;
    for (auto const& step : history)
        modes = std::max(modes, step.size());
    Canvas canvas(kWidth, kHeight);
    Axes const axes{static_cast<int>(history.size())};
    DrawAxes(canvas, axes);
    canvas.Text(kLeft, 20, "RESIDUALS OF " + std::to_string(modes) + " MODES, NEAREST BLUE, FARTHEST RED", kInk);
    for (std::size_t mode = 0; mode < modes; ++mode)
        for (std::size_t k = 1; k < history.size(); ++k) {
            if (mode >= history[k - 1].size() || mode >= history[k].size())
                continue;
            auto const step = static_cast<double>(k);
            for (double thickness : {0.0, 1.0})
                canvas.Line(axes.X(step), axes.Y(Exponent(history[k - 1][mode])) + thickness, axes.X(step + 1.0),
                            axes.Y(Exponent(history[k][mode])) + thickness, ColourOf(mode, modes));
        }
    canvas.WritePng(file);
}
