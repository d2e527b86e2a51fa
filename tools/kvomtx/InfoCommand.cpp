#include "Commands.h"

#include "Database.h"
#include "Errors.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "Progress.h"
#include "SparseStructure.h"

#include "KVOSrvSparseMatrix.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx info data/bcsstk11.mtx\n"
    "  kvomtx info model-modes.sim:1 --json\n\n"
    "Entries are those of the whole matrix, both triangles of a symmetric one. A trivial row has no entry; one that\n"
    "holds zeros only is told apart from it.";

struct Facts {
    std::int64_t entries = 0;
    std::int64_t zeros = 0;
    std::int64_t notFinite = 0;
    std::int64_t lowerBandwidth = 0;
    std::int64_t upperBandwidth = 0;
    double smallest = std::numeric_limits<double>::infinity(); // of the finite values
    double largest = -std::numeric_limits<double>::infinity();
    double smallestSize = std::numeric_limits<double>::infinity(); // of those that are not 0
    int trivialRows = 0;
    int trivialColumns = 0;
    int zeroRows = 0; // with entries, all of them 0
    std::string symmetry;
};

std::string DescribeSymmetry(SparseStructure const& matrix)
{
    if (matrix.Rows() != matrix.Columns())
        return "not square";
    double const asymmetry = FindAsymmetry(matrix).largest;
    if (asymmetry == 0.0)
        return "symmetric";
    return asymmetry <= 1e-12 ? "symmetric up to rounding" : "not symmetric";
}

Facts Examine(KVOSrvSparseMatrix const& matrix)
{
    SparseStructure const structure(matrix);
    Facts facts;
    std::vector<char> rows(static_cast<std::size_t>(structure.Rows())), columns(static_cast<std::size_t>(structure.Columns()));
    enum : char { kNothing, kZeros, kValues };
    structure.ForEach([&](int row, int column, double value) {
        ++facts.entries;
        facts.lowerBandwidth = std::max<std::int64_t>(facts.lowerBandwidth, row - column);
        facts.upperBandwidth = std::max<std::int64_t>(facts.upperBandwidth, column - row);
        char& seen = rows[static_cast<std::size_t>(row)];
        seen = std::max<char>(seen, value == 0.0 ? kZeros : kValues);
        columns[static_cast<std::size_t>(column)] = kValues;
        facts.zeros += value == 0.0;
        facts.notFinite += !std::isfinite(value);
        if (!std::isfinite(value))
            return;
        facts.smallest = std::min(facts.smallest, value);
        facts.largest = std::max(facts.largest, value);
        if (value != 0.0)
            facts.smallestSize = std::min(facts.smallestSize, std::fabs(value));
    });
    facts.trivialRows = static_cast<int>(std::ranges::count(rows, char{kNothing}));
    facts.zeroRows = static_cast<int>(std::ranges::count(rows, char{kZeros}));
    facts.trivialColumns = static_cast<int>(std::ranges::count(columns, char{kNothing}));
    facts.symmetry = DescribeSymmetry(structure);
    return facts;
}

// The formatting of JSON has no infinities: a range without values is null.
nlohmann::ordered_json Number(double value)
{
    return std::isfinite(value) ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
}

void PrintJson(std::string const& name, MatrixName const& source, KVOSrvSparseMatrix const& matrix, Facts const& facts)
{
    nlohmann::ordered_json object;
    object["matrix"] = name;
    object["format"] = DescribeFormat(source.format);
    object["rows"] = matrix.NumberOfRows();
    object["columns"] = matrix.NumberOfColumns();
    object["entries"] = facts.entries;
    object["stored_zeros"] = facts.zeros;
    object["not_finite"] = facts.notFinite;
    object["symmetry"] = facts.symmetry;
    object["lower_bandwidth"] = facts.lowerBandwidth;
    object["upper_bandwidth"] = facts.upperBandwidth;
    object["smallest_value"] = Number(facts.smallest);
    object["largest_value"] = Number(facts.largest);
    object["smallest_nonzero_size"] = Number(facts.smallestSize);
    object["trivial_rows"] = facts.trivialRows;
    object["zero_rows"] = facts.zeroRows;
    object["trivial_columns"] = facts.trivialColumns;
    std::printf("%s\n", object.dump(4, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

void PrintText(std::string const& name, MatrixName const& source, KVOSrvSparseMatrix const& matrix, Facts const& facts)
{
    double const places = static_cast<double>(matrix.NumberOfRows()) * matrix.NumberOfColumns();
    std::printf("%s: %s\n", name.c_str(), DescribeFormat(source.format).c_str());
    std::printf("  size             %d x %d, %s\n", matrix.NumberOfRows(), matrix.NumberOfColumns(), facts.symmetry.c_str());
    std::printf("  entries          %lld", static_cast<long long>(facts.entries));
    if (places > 0)
        std::printf(", %.3g%% of all places", 100.0 * static_cast<double>(facts.entries) / places);
    std::printf("\n  stored zeros     %lld\n", static_cast<long long>(facts.zeros));
    std::printf("  bandwidth        %lld below the diagonal, %lld above\n", static_cast<long long>(facts.lowerBandwidth),
                static_cast<long long>(facts.upperBandwidth));
    if (facts.largest >= facts.smallest)
        std::printf("  values           %.6g to %.6g", facts.smallest, facts.largest);
    if (std::isfinite(facts.smallestSize))
        std::printf(", the smallest in size %.6g", facts.smallestSize);
    if (facts.largest >= facts.smallest)
        std::printf("\n");
    if (facts.notFinite > 0)
        std::printf("  NOT FINITE       %lld values\n", static_cast<long long>(facts.notFinite));
    std::printf("  trivial          %d rows, %d columns; %d rows of zeros\n", facts.trivialRows, facts.trivialColumns, facts.zeroRows);
}

} // namespace

void AddInfoCommand(CLI::App& app, Command& chosen)
{
    struct Options {
        std::string file;
        std::string format;
        bool json = false;
    };
    auto const options = std::make_shared<Options>();
    CLI::App* const info = app.add_subcommand("info", "What a sparse matrix is like");
    info->footer(kFooter);
    info->add_option("FILE", options->file, "Matrix file or FILE.sim:ID")->required();
    info->add_option("--format", options->format, "Format of FILE, when its ending does not tell it (see convert --help)");
    info->add_flag("--json", options->json, "Print one JSON object");
    info->callback([options, &chosen] {
        chosen = [options] {
            MatrixName const name = ParseMatrixName(options->file, options->format, true);
            auto const matrix = ReadMatrix(name);
            Facts const facts = Examine(*matrix);
            (options->json ? PrintJson : PrintText)(options->file, name, *matrix, facts);
        };
    });
}
