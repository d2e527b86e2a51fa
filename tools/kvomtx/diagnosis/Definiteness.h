#pragma once

#include "KVOSrvSparseRows.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

class KVOSrvSparseFactor;
class KVOSrvSparseMatrix;
struct MatrixDiagnosis;

/// Whether x^T A x is positive for all x other than 0, of a symmetric matrix.
struct Definiteness {
    enum class Verdict { kNotTold, kPositive, kSemidefinite, kNot };
    /// Signs of the eigenvalues.
    struct Inertia {
        int positive = 0;
        int negative = 0;
        int zero = 0; ///< up to rounding
    };

    Verdict verdict = Verdict::kNotTold;
    std::string why;                             ///< of the verdict, or that there is none
    std::optional<Inertia> inertia;              ///< of the factor
    std::optional<double> smallestSingularValue; ///< estimated from above with the factor; none of a singular matrix
    std::int64_t factorEntries = 0;              ///< 0: nothing was factored

    /// As "positive definite".
    char const* Text() const noexcept;
};

/// What the diagonal, minors of order two and dominance tell, which is nothing in many cases.
/// @param facts  all else of them
Definiteness JudgeDefiniteness(MatrixDiagnosis const& facts, KVOSrvSparseRows const& matrix);

/// By the inertia of the factor.
/// @param facts   of a symmetric matrix without NaN and infinite values  @param matrix  in full
/// @param memory  bytes that the factor may take; a larger one goes to the library's folder for scratch files
/// @param use     what else the factor is needed for
/// @throws ToolError kCannot with the least memory that would do, kUnwritable
Definiteness FactorForDefiniteness(MatrixDiagnosis const& facts, KVOSrvSparseMatrix const& matrix, std::int64_t memory,
                                   std::function<void(KVOSrvSparseFactor&)> const& use = {});
