#pragma once

#include <string>

/// What a user gives for the standard input as a matrix to read, and for the standard output as a file to write.
constexpr char kStandardStream[] = "-";

/// What comes by the standard input, as a file that can be read again and again; it is removed when the program ends. Every call gives the
/// same file.
/// @throws ToolError kUnreadable, kUnwritable
std::string const& StandardInputFile();

/// The folder where private folders for what comes and goes by these streams are made: that of the variable TMPDIR, else /tmp.
std::string FolderForStreams();

/// Writes a file to the standard output. @throws ToolError kUnwritable
void CopyToStandardOutput(std::string const& path);
