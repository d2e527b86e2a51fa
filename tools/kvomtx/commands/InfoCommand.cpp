// kvomtx info.

#include "Commands.h"

#include "MatrixFacts.h"
#include "MatrixName.h"
#include "StatedBytes.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

namespace
{

constexpr char kFooter[] =
    "\nEXAMPLE\n"
    "  kvomtx info data/bcsstk11.mtx\n"
    "  kvomtx info model-modes.sim:1 --json\n\n"
    "Entries are those of the whole matrix, both triangles of a symmetric one. A trivial row has no entry; one that\n"
    "holds zeros only is told apart from it. Of a dense matrix of a database the values that are not 0 count as entries.";

// The formatting of JSON has no infinities: a range without values is null.
nlohmann::ordered_json Number(double value)
{
    return std::isfinite(value) ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
}

void PrintJson(std::string const& name, MatrixFacts const& facts)
{
    nlohmann::ordered_json object;
    object["matrix"] = name;
    object["format"] = facts.storage;
    object["rows"] = facts.rows;
    object["columns"] = facts.columns;
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

void PrintText(std::string const& name, MatrixFacts const& facts)
{
    double const places = static_cast<double>(facts.rows) * facts.columns;
    std::printf("%s: %s\n", name.c_str(), facts.storage.c_str());
    std::printf("  size             %d x %d, %s\n", facts.rows, facts.columns, facts.symmetry.c_str());
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
        std::string memory;
        bool json = false;
    };
    auto const options = std::make_shared<Options>();
    CLI::App& info = AddCommand(app, "info", "What a matrix is like", kFooter);
    AddRequired(info, "FILE", options->file, "Matrix file or FILE.sim:ID");
    AddOption(info, "--format", options->format, "Format of FILE, when its ending does not tell it (see convert --help)");
    AddFlag(info, "--json", options->json, "Print one JSON object");
    AddMemory(info, options->memory, "reading");
    SetWork(info, chosen, [options] {
        MemoryForFiles const memory(options->memory, "");
        MatrixName const name = ParseMatrixName(options->file, options->format, true);
        (options->json ? PrintJson : PrintText)(options->file, Examine(name));
    });
}
