// kvomtx spy.

#include "Commands.h"

#include "Canvas.h"
#include "Errors.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "OutputFile.h"
#include "ScratchFolder.h"
#include "StatedBytes.h"
#include "Validators.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx spy data/bcsstk11.mtx -o pattern.png\n\n"
    "A small matrix is drawn entry by entry. In a large one a pixel stands for many places: the more of them hold an entry, the darker\n"
    "it is, by the logarithm of their share; a single entry stays visible. Entries that are 0 count.";

constexpr Colour kInk{20, 40, 110};
constexpr Colour kFrame{120, 120, 120};
constexpr int kMargin = 50;

/// How many entries fall into each pixel.
class Raster
{
public:
    Raster(KVOSrvSparseRows const& matrix, int width, int height)
        : m_rows(std::max(1, matrix.rows)), m_columns(std::max(1, matrix.columns)), m_width(width), m_height(height),
          m_counts(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
    {
        ForEachEntry(
            matrix, [&](int row, int column, double) { ++m_counts[Place(Scaled(column, m_columns, width), Scaled(row, m_rows, height))]; });
    }

    /// 0 without an entry, 1 when every place has one; logarithmic between, from a share that can be seen.
    double Darkness(int x, int y) const
    {
        constexpr double kFaintest = 0.25;
        double const places = std::max(1.0, static_cast<double>(m_rows) * m_columns / (static_cast<double>(m_width) * m_height));
        double const count = m_counts[Place(x, y)];
        if (count == 0.0)
            return 0.0;
        return places <= 2.0 ? 1.0 : std::min(1.0, kFaintest + (1.0 - kFaintest) * std::log(count) / std::log(places));
    }

private:
    static int Scaled(int index, int size, int pixels) { return static_cast<int>(std::int64_t{index} * pixels / size); }
    std::size_t Place(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x);
    }

    int m_rows;
    int m_columns;
    int m_width;
    int m_height;
    std::vector<std::uint32_t> m_counts;
};

Colour Shade(double darkness)
{
    auto const mix = [darkness](int ink) { return static_cast<std::uint8_t>(255 - std::lround(darkness * (255 - ink))); };
    return {mix(kInk.red), mix(kInk.green), mix(kInk.blue)};
}

// Pixels of the longer side; the shorter one in proportion, but wide enough to see.
std::pair<int, int> PictureSize(KVOSrvSparseRows const& matrix, int pixels)
{
    double const rows = std::max(1, matrix.rows), columns = std::max(1, matrix.columns), longer = std::max(rows, columns);
    constexpr int kNarrowest = 16;
    auto const scaled = [&](double size) { return std::max(kNarrowest, static_cast<int>(std::lround(size / longer * pixels))); };
    return {scaled(columns), scaled(rows)};
}

void DrawSmall(Canvas& canvas, KVOSrvSparseRows const& matrix, int width, int height)
{
    ForEachEntry(matrix, [&](int row, int column, double) {
        auto const left = static_cast<int>(std::int64_t{column} * width / matrix.columns);
        auto const right = static_cast<int>((std::int64_t{column} + 1) * width / matrix.columns);
        auto const top = static_cast<int>(std::int64_t{row} * height / matrix.rows);
        auto const bottom = static_cast<int>((std::int64_t{row} + 1) * height / matrix.rows);
        int const gap = std::min(right - left, bottom - top) > 4 ? 1 : 0; // neighbours can be told apart
        canvas.Fill(kMargin + left, kMargin + top, right - left - gap, bottom - top - gap, kInk);
    });
}

void DrawLarge(Canvas& canvas, KVOSrvSparseRows const& matrix, int width, int height)
{
    Raster const raster(matrix, width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            canvas.Set(kMargin + x, kMargin + y, Shade(raster.Darkness(x, y)));
}

void Draw(KVOSrvSparseRows const& matrix, int pixels, OutputFile const& file)
{
    auto const [width, height] = PictureSize(matrix, pixels);
    std::string const title =
        std::to_string(matrix.rows) + " X " + std::to_string(matrix.columns) + ", " + std::to_string(matrix.entries) + " ENTRIES";
    Canvas canvas(std::max(width, Canvas::TextWidth(title)) + 2 * kMargin, height + 2 * kMargin);
    if (matrix.rows <= height && matrix.columns <= width)
        DrawSmall(canvas, matrix, width, height);
    else
        DrawLarge(canvas, matrix, width, height);
    canvas.Fill(kMargin - 1, kMargin - 1, width + 2, 1, kFrame);
    canvas.Fill(kMargin - 1, kMargin + height, width + 2, 1, kFrame);
    canvas.Fill(kMargin - 1, kMargin - 1, 1, height + 2, kFrame);
    canvas.Fill(kMargin + width, kMargin - 1, 1, height + 2, kFrame);
    canvas.Text(kMargin, (kMargin - 14) / 2, title, {40, 40, 40});
    canvas.WritePng(file);
}

} // namespace

void AddSpyCommand(CLI::App& app, Command& chosen)
{
    struct Options {
        std::string file;
        std::string output;
        std::string format;
        std::string memory;
        int pixels = 800;
    };
    auto const options = std::make_shared<Options>();
    CLI::App& spy = AddCommand(app, "spy", "A picture of where a sparse matrix has entries", kFooter);
    AddRequired(spy, "FILE", options->file, "Matrix file or FILE.sim:ID");
    AddRequired(spy, "-o,--output", options->output, "PNG file to write", RequireName);
    AddOption(spy, "--pixels", options->pixels, "Length of the longer side (800)", 50, 8000);
    AddOption(spy, "--format", options->format, "Format of FILE, when its ending does not tell it (see convert --help)");
    AddMemory(spy, options->memory, "reading");
    AddForce(spy);
    SetWork(spy, chosen, [options] {
        MatrixName const name = ParseMatrixName(options->file, options->format, true);
        MemoryForFiles const memory(options->memory, ScratchFolder::FolderOf(options->output));
        RequireSeparateFiles({options->output}, {name.path});
        OutputFile file(options->output);
        FullMatrix const full(ReadMatrix(name));
        KVOSrvSparseRows const matrix = full.Rows();
        Draw(matrix, options->pixels, file);
        file.Commit();
        std::printf("%s: %d x %d, %d entries\n", options->output.c_str(), matrix.rows, matrix.columns, matrix.entries);
    });
}
