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
    Vector product(static_cast<std::size_t>(matrix.NumberOfRows())), input(static_cast<std::size_t>(matrix.NumberOfColumns()));
    Quotient quotient;
    quotient.order = input.size();
    // Of the matrix over its largest value, whose root is taken off before each product and behind it: nothing leaves the range of numbers.
    double const root = std::sqrt(largest);
    auto const divide = [root](Vector& vector) {
        for (double& entry : vector)
            entry /= root;
    };
    quotient.numerator = [&](Vector const& x, Vector& ax) {
        input = x;
        divide(input);
        matrix.Multiply(input.data(), 1, product.data(), false);
        divide(product);
        divide(product); // before the second one
        matrix.Multiply(product.data(), 1, ax.data(), !isSymmetric);
        divide(ax);
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
    return std::int64_t{8} * (rows + (kVectorsOfQuotient + 1) * std::int64_t{columns});
}
