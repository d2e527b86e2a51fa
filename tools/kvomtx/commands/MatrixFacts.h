#pragma once

#include <cstdint>
#include <limits>
#include <string>

struct MatrixName;

/// What a matrix is like. The entries of a sparse matrix are those that it stores, both triangles of a symmetric one; those of a dense
/// matrix are its values that are not 0.
struct MatrixFacts {
    std::string storage; ///< the format, and that a stored matrix is dense
    int rows = 0;
    int columns = 0;
    std::int64_t entries = 0;
    std::int64_t zeros = 0; ///< that are stored
    std::int64_t notFinite = 0;
    std::int64_t lowerBandwidth = 0;
    std::int64_t upperBandwidth = 0;
    double smallest = std::numeric_limits<double>::infinity(); ///< of the finite values; infinite when there is none
    double largest = -std::numeric_limits<double>::infinity();
    double smallestSize = std::numeric_limits<double>::infinity(); ///< of those that are not 0
    int trivialRows = 0;                                           ///< without an entry
    int trivialColumns = 0;
    int zeroRows = 0; ///< with entries, all of them 0
    std::string symmetry;
};

/// Reads a matrix file, or a sparse or dense matrix of a database; a dense one block by block.
/// @throws ToolError kUnreadable
MatrixFacts Examine(MatrixName const& name);
