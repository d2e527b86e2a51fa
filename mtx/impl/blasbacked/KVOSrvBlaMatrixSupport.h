#pragma once

#include "KVOSrvBlaMatrix.h"
#include "KVOSrvUtilities.h"

#include <cstdint>

/// How many objects refer to one array.
struct cow_Counter {
    std::int32_t count;
};

/// What the sources of KVOSrvBlaMatrix and KVOSrvTransBlaMtx share.
namespace KVOSrvBlaMatrixSupport
{

/// Rows and columns of a tile of a product into a structured matrix. Fixed: callers know the tiles.
constexpr int kTileSize = 144;

/// Ends the process unless `holds`. Texts and line numbers are part of the interface, since support staff search logs for them; so each
/// caller states both as literals, and neither follows the source when it moves.
inline void RequirePrecondition(bool holds, char const* expression, int line)
{
    if (!holds)
        KVOSrvUtilities::ReportAndAbort(expression, "mtx/impl/KVOSrvBlaMatrix", line);
}

} // namespace KVOSrvBlaMatrixSupport
