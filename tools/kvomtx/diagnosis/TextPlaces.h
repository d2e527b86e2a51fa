#pragma once

#include "Found.h"

#include "KVOSrvSparseRows.h"

#include <vector>

struct MatrixName;

/// Whether a file holds its entries as text, so that each has a line.
bool HasLines(MatrixName const& name);

/// The entries that such a file holds more than once.
/// @param matrix  what was read from it, in full
Found<RepeatedEntry> FindRepeated(MatrixName const& name, KVOSrvSparseRows const& matrix);

/// Tells for each entry the first line that holds it, or its mirror image in a file that holds one triangle.
void FindLines(MatrixName const& name, std::vector<EntryPlace*> const& wanted);
