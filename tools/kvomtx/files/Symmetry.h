#pragma once

#include "KVOSrvSparseRows.h"

#include <cstdint>
#include <memory>
#include <string>

class KVOSrvSparseMatrix;

/// Differences between a matrix and its transpose up to this share of its largest entry are rounding of the program that wrote it.
constexpr double kSymmetryTolerance = 1e-12;

/// How far a matrix is from its transpose.
struct Asymmetry {
    double largest = 0.0; ///< |a(i, j) - a(j, i)| over the largest finite entry in size; infinite where a value is no number
    int row = 0;          ///< where the largest finite one is; where a value is no number when there is none
    int column = 0;
    double value = 0.0;          ///< a(row, column)
    double mirror = 0.0;         ///< a(column, row)
    std::int64_t pairs = 0;      ///< of places whose values differ
    std::int64_t unmatched = 0;  ///< entries without one at the mirrored place
    std::int64_t line = 0;       ///< of the entry in a text file, and
    std::int64_t mirrorLine = 0; ///< of its mirror image; 0: not known, or there is none
};

/// Finds that of pairs of mirrored places, which come in any order, each pair once.
class AsymmetrySearch
{
public:
    void Compare(int row, int column, double value, double mirror);
    /// An entry is without one at the mirrored place.
    void CountUnmatched() { ++m_found.unmatched; }
    /// @param scale  the largest finite entry in size
    Asymmetry Result(double scale) const;

private:
    Asymmetry m_found; // `largest` as the difference itself, of those that are finite
    bool m_isFinite = true;
};

/// @param matrix  square, in full
Asymmetry FindAsymmetry(KVOSrvSparseRows const& matrix);

/// Whether a matrix in full equals its transpose, places without an entry being 0.
bool EqualsItsTranspose(KVOSrvSparseRows const& matrix);

/// The matrix, in full, is symmetric up to rounding and free of infinities and NaN.
/// @param name  of the matrix, for the message
/// @throws ToolError kCannot with the place
void RequireSymmetric(KVOSrvSparseRows const& matrix, std::string const& name);

/// A matrix that is symmetric up to rounding, given in full, in half storage: the mean of its triangles, the upper one kept.
std::unique_ptr<KVOSrvSparseMatrix> SymmetricPart(KVOSrvSparseRows const& matrix);
