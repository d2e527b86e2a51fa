#pragma once

#include "KVOSrvMatrixFile.h"

#include <string>

using MatrixFormat = KVOSrvMatrixFormat;

/// What a user names as a matrix: a file, FILE.sim:ID, a matrix in a database, FILE.mat:NAME, a variable, or "-", the standard input.
struct MatrixName {
    std::string text; ///< as given; "standard input" for that
    std::string path;
    MatrixFormat format;                              ///< unknown where nothing tells it, of a file that cannot be read
    int context = -1;                                 ///< of a database; -1: the first
    int distribution = -1;                            ///< of a database; -1: not said
    std::string variable{};                           ///< of a .mat file; empty: not said
    KVOSrvMatrixPart part = KVOSrvMatrixPart::kWhole; ///< to read of a complex matrix
};

/// @param format  number or word that the user gave; empty: by the mark or the ending of the file, else what an input looks like
/// @param reading an input: the format of chunked files is then the one that their header decides; what comes by the standard input is read
/// @throws ToolError kUsage when nothing tells the format, kUnreadable when the standard input cannot be read
MatrixName ParseMatrixName(std::string const& text, std::string const& format, bool reading);

/// As "format 6 (chunked file)".
std::string DescribeFormat(MatrixFormat format);

/// The table of formats and endings, for help texts.
extern char const kFormatHelp[];
