#include "MatrixName.h"

#include "Errors.h"

#include "StandardStreams.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace
{

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

// "FILE.mat:NAME" where there is such a file, and none of the whole name.
bool NamesVariable(std::string const& text, MatrixName& name)
{
    auto const sign = text.rfind(':');
    std::error_code ignored;
    if (sign == std::string::npos || std::filesystem::exists(text, ignored))
        return false;
    std::string const path = text.substr(0, sign);
    if (KVOSrvMatrixFile::FormatOfContent(path.c_str(), true) != MatrixFormat::kMatlab)
        return false;
    name.path = path;
    name.variable = text.substr(sign + 1);
    name.format = MatrixFormat::kMatlab;
    return true;
}

MatrixFormat FormatOfWord(std::string const& word)
{
    MatrixFormat const format = KVOSrvMatrixFile::FormatOfWord(word.c_str());
    if (format == MatrixFormat::kUnknown)
        throw ToolError(ExitCode::kUsage, "\"" + word + "\" is no format; formats are mtx, sim, hb, npz, npy, mat and the numbers 0 to 7");
    return format;
}

MatrixFormat FormatToRead(MatrixName const& name)
{
    MatrixFormat const format = KVOSrvMatrixFile::FormatToRead(name.path.c_str());
    if (format == MatrixFormat::kUnknown && std::ifstream(name.path).is_open() && !std::filesystem::is_directory(name.path))
        throw ToolError(ExitCode::kUsage,
                        name.text + ": neither its ending nor its content tells its format; name it, for instance by its number");
    return format;
}

MatrixFormat FormatToWrite(std::string const& text)
{
    MatrixFormat const format = KVOSrvMatrixFile::FormatOfName(text.c_str());
    if (format == MatrixFormat::kUnknown)
        throw ToolError(ExitCode::kUsage, (text == kStandardStream ? std::string("the standard output has no ending that tells the format")
                                                                   : text + ": the ending of the file does not tell its format") +
                                              "; name it, for instance by its number");
    return format;
}

} // namespace

MatrixName ParseMatrixName(std::string const& text, std::string const& format, bool reading)
{
    MatrixName name{text, text, MatrixFormat::kDatabase};
    auto const sign = text.find_last_of(":#");
    bool const inDatabase =
        sign != std::string::npos && ReadPlace(std::string_view(text).substr(sign + 1), name.context, name.distribution);
    if (inDatabase && !reading)
        throw ToolError(ExitCode::kUsage, text + ": an output is a whole file; leave \"" + text.substr(sign) + "\" out");
    if (inDatabase)
        name.path = text.substr(0, sign);
    else
        name.context = name.distribution = -1;
    if (reading && name.path == kStandardStream) {
        name.path = StandardInputFile();
        name.text = "standard input" + text.substr(1);
    }
    if (inDatabase || (reading && format.empty() && NamesVariable(text, name)))
        return name;
    name.format = !format.empty() ? FormatOfWord(format) : reading ? FormatToRead(name) : FormatToWrite(text);
    // Read by their header, not as format 6: that reader deliberately drops a last chunk that is full.
    if (reading && format != "6" && name.format == MatrixFormat::kChunks)
        name.format = MatrixFormat::kChunksAsStored;
    return name;
}

std::string DescribeFormat(MatrixFormat format)
{
    return KVOSrvMatrixFile::Describe(format);
}

char const kFormatHelp[] = "Formats, by word or number and by ending; what a file holds counts more than its ending:\n"
                           "  mtx  .mtx              Matrix Market\n"
                           "  sim  .sim              simulation database; FILE.sim:ID names the matrix ID in it\n"
                           "  0    .records          record file, symmetric                        read only\n"
                           "  1                      chunked file, by its header                   read only\n"
                           "  2                      text triplets                                 read only\n"
                           "  3    .triplets .txt    text triplets \"row column value\", from 1\n"
                           "  4    .nodes            lines with node and degree of freedom         written only\n"
                           "  5    .csv              comma-separated lines, from 0                 written only\n"
                           "  6    .chunks           chunked file, symmetric (read as 1 by ending)\n"
                           "  7    .dense            dense file\n"
                           "  hb   .hb .rb           Harwell-Boeing, Rutherford-Boeing             read only\n"
                           "  npz  .npz              sparse matrix of scipy                        read only\n"
                           "  npy  .npy              array of NumPy                                read only\n"
                           "  mat  .mat              MATLAB, level 7.3; FILE.mat:NAME a variable   read only\n"
                           "mtx, 2, 3 and hb are also read compressed by gzip or zstd. \"-\" is the standard input or output.";
