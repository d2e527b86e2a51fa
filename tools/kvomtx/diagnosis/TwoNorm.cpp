#include "TwoNorm.h"

#include "LargestQuotient.h"

#include "KVOSrvSparseMatrix.h"

#include <cmath>
#include <cstddef>

double EstimateTwoNorm(KVOSrvSparseMatrix const& matrix, double largest, bool isSymmetric)
{
    constexpr int kSteps = 40;
    if (!(largest > 0.0))
        return 0.0;
    using Vector = Quotient::Vector;
    Vector product(static_cast<std::size_t>(matrix.NumberOfRows()));
    Quotient quotient;
    quotient.order = static_cast<std::size_t>(matrix.NumberOfColumns());
    // Of the matrix over its largest value: squares would leave the range of numbers.
    quotient.numerator = [&](Vector const& x, Vector& ax) {
        matrix.Multiply(x.data(), 1, product.data(), false);
        for (double& entry : product)
            entry /= largest;
        matrix.Multiply(product.data(), 1, ax.data(), !isSymmetric);
        for (double& entry : ax)
            entry /= largest;
    };
    quotient.denominator = [](Vector const& x, Vector& mx) { mx = x; };
    quotient.ascent = [](Vector const& x, Vector const& ax, Vector const&, double theta, Vector& direction) {
        for (std::size_t i = 0; i < x.size(); ++i)
            direction[i] = ax[i] - theta * x[i];
    };
    return largest * std::sqrt(LargestQuotient(quotient, kSteps));
}

std::int64_t BytesOfTwoNorm(int rows, int columns)
{
    return std::int64_t{8} * (rows + kVectorsOfQuotient * std::int64_t{columns});
}
