#pragma once

#include <span>
#include <string>

class BlockNodes;
class PictureFile;

/// A mode of a block of bricks, to be drawn.
struct ModeShape {
    BlockNodes const& nodes;
    std::span<double const> displacements; ///< of each unknown
    std::string title;
    std::string source;         ///< the file's name
    double amplification = 0.0; ///< of the displacements; 0: one by which they can be seen
};

/// Draws the block at rest, dashed, and its surface in the mode, obliquely from above.
/// @returns the amplification
/// @throws ToolError kUnwritable
double DrawShape(ModeShape const& shape, PictureFile const& file);
