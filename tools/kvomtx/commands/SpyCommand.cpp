// kvomtx spy.

#include "Commands.h"

#include "Errors.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "OutputFile.h"
#include "PictureFile.h"
#include "ScratchFolder.h"
#include "SpyPicture.h"
#include "StatedBytes.h"
#include "Validators.h"

#include "KVOSrvSparseMatrix.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx spy data/bcsstk11.mtx -o pattern.png\n"
    "  kvomtx spy data/bcsstk11.mtx -o corner.svg --rows 1:60 --columns 1:60 --magnitude\n\n"
    "A small matrix is drawn entry by entry, entries that are 0 as hollow squares. In a large one a pixel stands for many places:\n"
    "the more of them hold an entry, the darker it is, by the logarithm of their share; a single entry stays visible, and a pixel\n"
    "with an entry that is 0 is orange. With --magnitude the colour of a pixel is that of its largest entry in size, a step for a\n"
    "decade or for several: the larger the darker, also in grey. Rows and columns are counted from 1.";

struct Options {
    std::string file;
    std::string output;
    std::string format;
    std::string memory;
    std::string rows;
    std::string columns;
    int pixels = 800;
    bool byMagnitude = false;
};

// Of "A:B", counted from 1, both inclusive. False where it is none.
bool ReadRange(std::string const& text, IndexRange& range)
{
    char const* const end = text.data() + text.size();
    auto const first = std::from_chars(text.data(), end, range.first);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != ':')
        return false;
    auto const last = std::from_chars(first.ptr + 1, end, range.last);
    return last.ec == std::errc() && last.ptr == end && 1 <= range.first && range.first-- <= range.last--;
}

std::string RequireRange(std::string const& text)
{
    IndexRange range;
    return ReadRange(text, range) ? "" : text + " is no range A:B, counted from 1, such as 1:100";
}

/// @param size  of the matrix
IndexRange RangeOf(std::string const& text, char const* option, int size)
{
    IndexRange range{0, size - 1};
    if (!text.empty() && (!ReadRange(text, range) || range.last >= size))
        throw ToolError(ExitCode::kUsage, std::string(option) + " " + text + " leaves the matrix, which has " + std::to_string(size) +
                                              " of them; give a range within 1:" + std::to_string(size));
    return range;
}

void RunSpy(Options const& options)
{
    MatrixName name = ParseMatrixName(options.file, options.format, true);
    if (!options.byMagnitude)
        name.part = KVOSrvMatrixPart::kReal; // of a complex matrix both have entries at the same places
    MemoryForFiles const memory(options.memory, ScratchFolder::FolderOf(options.output));
    RequireSeparateFiles({options.output}, {name.path});
    PictureFile picture(options.output);
    FullMatrix const full(ReadMatrix(name));
    KVOSrvSparseRows const matrix = full.Rows();
    SpyView const view{std::filesystem::path(name.text).filename().string(), RangeOf(options.rows, "--rows", matrix.rows),
                       RangeOf(options.columns, "--columns", matrix.columns), options.pixels, options.byMagnitude};
    SpyCounts const counts = DrawSpy(matrix, view, picture);
    picture.Commit();
    std::printf("%s: %d x %d, %d entries", options.output.c_str(), matrix.rows, matrix.columns, matrix.entries);
    if (counts.entries != matrix.entries || !options.rows.empty() || !options.columns.empty())
        std::printf(", %lld in the part that is drawn", static_cast<long long>(counts.entries));
    std::printf("\n");
}

} // namespace

void AddSpyCommand(CLI::App& app, Command& chosen)
{
    auto const options = std::make_shared<Options>();
    CLI::App& spy = AddCommand(app, "spy", "A picture of where a sparse matrix has entries", kFooter);
    AddRequired(spy, "FILE", options->file, "Matrix file or FILE.sim:ID");
    AddRequired(spy, "-o,--output", options->output, "Picture to write: .png or .svg", RequireName);
    AddOption(spy, "--rows", options->rows, "Draw rows A:B only", RequireRange);
    AddOption(spy, "--columns", options->columns, "Draw columns A:B only", RequireRange);
    AddFlag(spy, "--magnitude", options->byMagnitude, "Colour by the size of the entries");
    AddOption(spy, "--pixels", options->pixels, "Length of the longer side (800)", 50, 8000);
    AddOption(spy, "--format", options->format, "Format of FILE, when nothing in it or its ending tells it (see convert --help)");
    AddMemory(spy, options->memory, "reading");
    AddForce(spy);
    SetWork(spy, chosen, [options] { RunSpy(*options); });
}
