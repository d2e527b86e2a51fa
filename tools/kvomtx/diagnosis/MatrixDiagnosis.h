#pragma once

#include "Definiteness.h"
#include "Found.h"
#include "Magnitudes.h"
#include "Pieces.h"
#include "Reordering.h"
#include "Symmetry.h"

#include <limits>
#include <optional>
#include <string>
#include <vector>

/// Rows whose diagonal entry is compared with the sizes of the others.
struct Dominance {
    int strict = 0;       ///< rows whose diagonal entry is greater than the sum of the others
    int weak = 0;         ///< rows where it is as great
    int weakestRow = -1;  ///< with the least quotient of the two
    double weakest = 0.0; ///< that quotient
};

/// Norms of a matrix without NaN and infinite values; infinite where they are beyond the range of doubles.
struct Norms {
    double one = 0.0;          ///< greatest sum of a column
    double infinity = 0.0;     ///< greatest sum of a row
    double frobenius = 0.0;    ///< root of the sum of squares
    std::optional<double> two; ///< greatest singular value, estimated from below; none where it was not asked for
};

/// What a matrix is like, and what is wrong with it. The entries of a sparse matrix are those that it stores, both triangles of a
/// symmetric one; those of a dense matrix are its values that are not 0. Rows and columns are 0-based.
struct MatrixDiagnosis {
    std::string name;    ///< as given
    std::string storage; ///< the format, and that a stored matrix is dense
    bool isDense = false;
    int rows = 0;
    int columns = 0;
    std::int64_t entries = 0;
    std::int64_t zeros = 0; ///< that are stored
    int fewestInRow = 0;
    int mostInRow = 0;
    double smallest = std::numeric_limits<double>::infinity(); ///< of the finite values; infinite when there is none
    double largest = -std::numeric_limits<double>::infinity();
    double smallestSize = std::numeric_limits<double>::infinity(); ///< of those that are not 0
    Magnitudes magnitudes;

    Found<EntryPlace> nan;
    Found<EntryPlace> infinite;
    Found<int> emptyRows; ///< without an entry
    Found<int> emptyColumns;
    Found<int> zeroRows; ///< with entries, all of them 0
    Found<int> zeroColumns;
    Found<EntryPlace> zeroDiagonal; ///< of a square matrix: 0 or without an entry
    Found<EntryPlace> negativeDiagonal;
    std::optional<Found<RepeatedEntry>> repeated; ///< none where its reader sums them without a word
    std::optional<Asymmetry> asymmetry;           ///< of a square matrix
    std::vector<char> holdsValue;                 ///< of a square matrix, for each unknown: its row or column has a value that is not 0
    std::vector<double> diagonal;                 ///< of a square matrix; 0 without an entry

    std::int64_t lowerBandwidth = 0;
    std::int64_t upperBandwidth = 0;
    std::optional<Envelope> envelope;   ///< of a square matrix, in the order it has
    std::optional<Envelope> reordered;  ///< of a sparse one, by reverse Cuthill-McKee
    std::optional<Pieces> pieces;       ///< of a sparse one
    std::optional<int> structuralRank;  ///< of a sparse one
    std::optional<Dominance> dominance; ///< of a square matrix without NaN
    std::optional<Norms> norms;         ///< of a matrix without NaN and infinite values
    Definiteness definiteness;
    std::string leftOut; ///< what was not computed, and why; empty when all was

    bool IsSquare() const noexcept { return rows == columns; }
    bool IsFinite() const noexcept { return nan.count + infinite.count == 0; }
    bool IsExactlySymmetric() const noexcept { return asymmetry && asymmetry->largest == 0.0; }
    /// Up to rounding.
    bool IsSymmetric() const noexcept { return asymmetry && asymmetry->largest <= kSymmetryTolerance; }
    /// In words.
    std::string SymmetryText() const
    {
        return !asymmetry             ? "not square"
               : IsExactlySymmetric() ? "symmetric"
               : IsSymmetric()        ? "symmetric up to rounding"
                                      : "not symmetric";
    }
};
