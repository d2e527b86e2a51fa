#pragma once

#include <string>
#include <string_view>

/// Where a file of format 0, 1, 2, 3, 6 or 7 that the library refuses is malformed, and what was expected there, as
/// "line 7: expected a row number (whole, from 1), found \"abc\"". The library says only that it is.
std::string Diagnose(std::string const& path, int format);

/// The parts by kind of file; empty when they find nothing.
std::string DiagnoseTriplets(std::string const& path);
std::string DiagnoseChunks(std::string const& path, bool byHeader);
std::string DiagnoseDense(std::string const& path);
std::string DiagnoseRecords(std::string const& path);

/// A word of a file for a message: its beginning in quotation marks, what cannot be printed as ?.
std::string Quoted(std::string_view word);

/// A file of another kind, recognised by its first bytes; empty when it is none.
std::string RecogniseOtherKind(std::string const& path);
