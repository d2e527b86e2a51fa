#pragma once

#include "KVOSrvSparseRows.h"

#include <cstdint>
#include <string>

class PictureFile;

/// Rows or columns from one to another, both inclusive and from 0 on; none where the last one lies before the first.
struct IndexRange {
    int first = 0;
    int last = -1;

    int Count() const noexcept { return last - first + 1; }
};

/// What is drawn of a matrix, and how.
struct SpyView {
    std::string title;
    IndexRange rows;    ///< within the matrix
    IndexRange columns; ///< within the matrix
    int pixels = 800;   ///< of the longer side
    bool byMagnitude = false;
};

/// What stands in that part of the matrix.
struct SpyCounts {
    std::int64_t entries = 0;
    std::int64_t zeros = 0; ///< entries that are 0
};

/// Draws where a matrix has entries: one by one as squares where there is room, else pixel by pixel, in an SVG file as one image.
/// @param matrix  all entries, see FullMatrix
/// @throws ToolError kUnwritable
SpyCounts DrawSpy(KVOSrvSparseRows const& matrix, SpyView const& view, PictureFile const& file);
