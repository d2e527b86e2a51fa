#pragma once

#include <string>

class Ranks;

/// To be called by all ranks, while none has the database open for writing. They must see one file under the path, in one state: its mark
/// tells (docs/database-format.md).
/// @throws EndedTogether when they do not, or it cannot be read
void RequireOneFile(Ranks const& ranks, std::string const& path);
