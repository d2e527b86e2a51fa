#pragma once

#include "MatrixDiagnosis.h"

#include <cstdint>
#include <memory>

class KVOSrvSparseMatrix;
struct MatrixName;

/// What a diagnosis may take, and how far it goes.
struct ExamineLimits {
    std::int64_t memory = 0; ///< bytes beside the matrix
    bool isDeep = false;     ///< also what takes long
    bool factors = false;    ///< also the factor for the definiteness
};

/// A matrix and what is known of it.
struct ExaminedMatrix {
    MatrixDiagnosis diagnosis;
    std::unique_ptr<KVOSrvSparseMatrix const> matrix; ///< in full; null for a dense one
};

/// Reads a matrix file, or a sparse or dense matrix of a database, the latter block by block, and examines it.
/// @throws ToolError kUnreadable
ExaminedMatrix Examine(MatrixName const& name, ExamineLimits const& limits);
