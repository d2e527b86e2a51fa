#pragma once

#include "KVOSrvBlaMatrix.h"
#include "KVOSrvUtilities.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

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

/// Holds a view that Submatrix() made.
struct ViewDeleter {
    void operator()(KVOSrvBlaMatrix const* view) const noexcept
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor" // a view is of this class and no other
        delete view;
#pragma GCC diagnostic pop
    }
};
using View = std::unique_ptr<KVOSrvBlaMatrix const, ViewDeleter>;

} // namespace KVOSrvBlaMatrixSupport
