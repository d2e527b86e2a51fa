#include "MatrixName.h"

#include "Errors.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <string_view>

namespace
{

struct Ending {
    std::string_view text;
    MatrixFormat format;
};

constexpr Ending kEndings[] = {
    {".mtx", MatrixFormat::kMatrixMarket},  {".sim", MatrixFormat::kDatabase},  {".records", MatrixFormat::kRecords},
    {".triplets", MatrixFormat::kTriplets}, {".txt", MatrixFormat::kTriplets},  {".nodes", MatrixFormat::kNodes},
    {".csv", MatrixFormat::kLines},         {".chunks", MatrixFormat::kChunks}, {".dense", MatrixFormat::kDense},
};

std::optional<MatrixFormat> FormatOfWord(std::string_view word)
{
    if (word.size() == 1 && word[0] >= '0' && word[0] <= '7')
        return static_cast<MatrixFormat>(word[0] - '0');
    for (Ending const& ending : kEndings)
        if (word == ending.text.substr(1))
            return ending.format;
    return std::nullopt;
}

std::optional<MatrixFormat> FormatOfFile(std::string const& path)
{
    std::string ending = std::filesystem::path(path).extension().string();
    std::ranges::transform(ending, ending.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return ending.empty() ? std::nullopt : FormatOfWord(std::string_view(ending).substr(1));
}

// Reads "7" or "1.7": distribution, or context and distribution.
bool ReadPlace(std::string_view text, int& context, int& distribution)
{
    char const* const end = text.data() + text.size();
    auto first = std::from_chars(text.data(), end, distribution);
    if (first.ec != std::errc{} || distribution < 0)
        return false;
    if (first.ptr == end)
        return true;
    context = distribution;
    auto const second = std::from_chars(first.ptr + 1, end, distribution);
    return *first.ptr == '.' && second.ec == std::errc{} && second.ptr == end && distribution >= 0;
}

} // namespace

MatrixName ParseMatrixName(std::string const& text, std::string const& format, bool reading)
{
    MatrixName name{text, text, MatrixFormat::kDatabase};
    auto const sign = text.find_last_of(":#");
    if (sign != std::string::npos && ReadPlace(std::string_view(text).substr(sign + 1), name.context, name.distribution)) {
        name.path = text.substr(0, sign);
        if (!reading)
            throw ToolError(ExitCode::kUsage, text + ": an output is a whole file; leave \"" + text.substr(sign) + "\" out");
        return name;
    }
    name.context = name.distribution = -1;
    auto const found = format.empty() ? FormatOfFile(text) : FormatOfWord(format);
    if (!found)
        throw ToolError(ExitCode::kUsage,
                        format.empty() ? text + ": the ending of the file does not tell its format; name it, for instance by its number"
                                       : "\"" + format + "\" is no format; formats are mtx, sim and the numbers 0 to 7");
    name.format = *found;
    // Read by their header, not as format 6: that reader deliberately drops a last chunk that is full.
    if (reading && format != "6" && name.format == MatrixFormat::kChunks)
        name.format = MatrixFormat::kChunksAsStored;
    return name;
}

std::string DescribeFormat(MatrixFormat format)
{
    switch (format) {
    case MatrixFormat::kRecords:
        return "format 0 (record file)";
    case MatrixFormat::kChunksAsStored:
        return "format 1 (chunked file)";
    case MatrixFormat::kTriplets2:
        return "format 2 (text triplets)";
    case MatrixFormat::kTriplets:
        return "format 3 (text triplets)";
    case MatrixFormat::kNodes:
        return "format 4 (lines with node and degree of freedom)";
    case MatrixFormat::kLines:
        return "format 5 (comma-separated lines)";
    case MatrixFormat::kChunks:
        return "format 6 (chunked file)";
    case MatrixFormat::kDense:
        return "format 7 (dense file)";
    case MatrixFormat::kMatrixMarket:
        return "Matrix Market";
    case MatrixFormat::kDatabase:
        break;
    }
    return "simulation database";
}

char const kFormatHelp[] = "Formats, by number and by ending:\n"
                           "  mtx  .mtx              Matrix Market: real or integer, general or symmetric\n"
                           "  sim  .sim              simulation database; FILE.sim:ID names the matrix ID in it\n"
                           "  0    .records          record file, symmetric                        read only\n"
                           "  1                      chunked file, by its header                   read only\n"
                           "  2                      text triplets                                 read only\n"
                           "  3    .triplets .txt    text triplets \"row column value\", from 1\n"
                           "  4    .nodes            lines with node and degree of freedom         written only\n"
                           "  5    .csv              comma-separated lines, from 0                 written only\n"
                           "  6    .chunks           chunked file, symmetric (read as 1 by ending)\n"
                           "  7    .dense            dense file";
