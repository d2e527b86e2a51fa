#pragma once

#include <string>

struct MatrixName;

/// Says where a matrix came from, for those who find it in a database later: of a file its name and SHA-256, as sha256sum prints it; of a
/// database the file's name and the matrix's number.
/// @throws ToolError kUnreadable when the file cannot be read
std::string DescribeSource(MatrixName const& name);

/// A title for a matrix that was read from there: the file's name without folder and ending, where that can be one.
std::string TitleFor(MatrixName const& name);
