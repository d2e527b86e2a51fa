#pragma once

#include <string>

/// How a file holds a matrix: one of the library's formats 0 to 7, or one of the two below.
enum class MatrixFormat : int {
    kRecords = 0,
    kChunksAsStored = 1,
    kTriplets2 = 2,
    kTriplets = 3,
    kNodes = 4,
    kLines = 5,
    kChunks = 6,
    kDense = 7,
    kMatrixMarket = 100,
    kDatabase = 101
};

/// What a user names as a matrix: a file, or FILE.sim:ID, a matrix in a database.
struct MatrixName {
    std::string text; ///< as given
    std::string path;
    MatrixFormat format;
    int context = -1;      ///< of a database; -1: the first
    int distribution = -1; ///< of a database; -1: not said
};

/// @param format  number or word that the user gave; empty: by the ending of the file
/// @param reading an input: the format of chunked files is then the one that their header decides
/// @throws ToolError kUsage when neither tells the format
MatrixName ParseMatrixName(std::string const& text, std::string const& format, bool reading);

/// As "format 6 (chunked file)".
std::string DescribeFormat(MatrixFormat format);

/// The table of formats and endings, for help texts.
extern char const kFormatHelp[];
