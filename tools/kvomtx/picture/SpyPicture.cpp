#include "SpyPicture.h"

#include "Axis.h"
#include "SpyColours.h"
#include "SpyLegend.h"

#include <cmath>

namespace
{

// Around the pattern, in pixels: room for row numbers of ten digits, and below for the legend.
constexpr int kLeft = 90, kTop = 96, kRight = 30, kBottom = 66;
constexpr int kNarrowest = 40;      // side of the pattern
constexpr int kNarrowestText = 560; // of title and legend
constexpr int kSquare = 8;          // pixels of a place from which on an entry is drawn as a square

constexpr Colour kFrame{120, 120, 120};

// Pixels of the longer side; the shorter one in proportion, but wide enough to see.
SpyGrid GridOf(SpyView const& view)
{
    double const rows = std::max(1, view.rows.Count()), columns = std::max(1, view.columns.Count()), longer = std::max(rows, columns);
    auto const scaled = [&](double size) { return std::max(kNarrowest, static_cast<int>(std::lround(size / longer * view.pixels))); };
    return {view.rows, view.columns, scaled(columns), scaled(rows)};
}

SpyCounts CountsOf(KVOSrvSparseRows const& matrix, SpyGrid const& grid)
{
    SpyCounts counts;
    ForEachEntryOf(matrix, grid, [&](int, int, unsigned k) {
        ++counts.entries;
        counts.zeros += matrix.values[k] == 0.0;
    });
    return counts;
}

void DrawSquares(Drawing& drawing, KVOSrvSparseRows const& matrix, SpyGrid const& grid, SpyColours const& colours)
{
    ForEachEntryOf(matrix, grid, [&](int row, int column, unsigned k) {
        int const left = grid.Left(column), top = grid.Top(row);
        int const width = grid.Right(column) - left - 1, height = grid.Bottom(row) - top - 1; // neighbours can be told apart
        if (matrix.values[k] == 0.0)
            drawing.Frame(kLeft + left, kTop + top, width, height, {colours.OfEntry(k), 2.0, {}});
        else
            drawing.Fill(kLeft + left, kTop + top, width, height, colours.OfEntry(k));
    });
}

void DrawFrame(Drawing& drawing, SpyGrid const& grid)
{
    TextStyle const left{12.0, false, Align::kLeft, kFrame}, right{12.0, false, Align::kRight, kFrame};
    drawing.Frame(kLeft - 1, kTop - 1, grid.width + 2, grid.height + 2, {kFrame, 1.0, {}});
    drawing.Text({kLeft, kTop - 33.0}, "column", left);
    drawing.Text({kLeft - 9.0, kTop - 14.0}, "row", right);

    double const ofNumber = drawing.TextWidth(std::to_string(grid.columns.last + 1), left);
    auto const middle = [](int number, IndexRange const& range, int pixels) {
        return std::floor((number - 1 - range.first + 0.5) / range.Count() * pixels);
    };
    for (int const column : NumbersAtAxis(grid.columns.first + 1, grid.columns.last + 1, grid.width, ofNumber + 12.0)) {
        double const x = kLeft + middle(column, grid.columns, grid.width);
        drawing.Fill(x, kTop - 6.0, 1.0, 5.0, kFrame);
        drawing.Text({x, kTop - 14.0}, std::to_string(column), {12.0, false, Align::kCentre});
    }
    for (int const row : NumbersAtAxis(grid.rows.first + 1, grid.rows.last + 1, grid.height, 24.0)) {
        double const y = kTop + middle(row, grid.rows, grid.height);
        drawing.Fill(kLeft - 6.0, y, 5.0, 1.0, kFrame);
        drawing.Text({kLeft - 9.0, y}, std::to_string(row), {12.0, false, Align::kRight});
    }
}

std::string Facts(KVOSrvSparseRows const& matrix, SpyGrid const& grid, SpyCounts const& counts)
{
    auto const number = [](std::int64_t value) { return std::to_string(value); };
    auto const range = [&](IndexRange const& part) { return number(part.first + 1) + " to " + number(part.last + 1); };
    std::string const size = number(matrix.rows) + " × " + number(matrix.columns);
    bool const isWhole = grid.rows.Count() == matrix.rows && grid.columns.Count() == matrix.columns;
    std::string const entries = number(counts.entries) + (counts.entries == 1 ? " entry" : " entries");
    std::string const zeros = counts.zeros == 0 ? "" : ", " + number(counts.zeros) + " of them stored zeros";
    return isWhole ? size + ", " + entries + zeros
                   : "rows " + range(grid.rows) + ", columns " + range(grid.columns) + " of " + size + ": " + entries + " of " +
                         number(matrix.entries) + zeros;
}

} // namespace

SpyCounts DrawSpy(KVOSrvSparseRows const& matrix, SpyView const& view, PictureFile const& file)
{
    SpyGrid const grid = GridOf(view);
    SpyCounts const counts = CountsOf(matrix, grid);
    double const ofText = std::max(grid.width, kNarrowestText);
    Drawing drawing(file, kLeft + ofText + kRight, kTop + grid.height + kBottom);
    drawing.Text({kLeft, 20.0}, view.title, {16.0, true, Align::kLeft, kTextColour, ofText});
    drawing.Text({kLeft, 42.0}, Facts(matrix, grid, counts), {13.0, false, Align::kLeft, kTextColour, ofText});

    auto const colours = view.byMagnitude ? MagnitudeColours(matrix, grid) : PatternColours(matrix, grid);
    bool const isSquares = grid.width >= kSquare * view.columns.Count() && grid.height >= kSquare * view.rows.Count();
    if (isSquares)
        DrawSquares(drawing, matrix, grid, *colours);
    else
        drawing.Image(kLeft, kTop, grid.width, grid.height, [&](int x, int y) { return colours->OfPixel(x, y); });
    DrawFrame(drawing, grid);
    SpyLegend legend(drawing, {kLeft, kTop + grid.height + 28.0});
    colours->Explain(legend, counts, isSquares);
    drawing.Write();
    return counts;
}
