#pragma once

#include "MatrixSupport.h"

#include <functional>
#include <limits>

inline Dense operator-(Dense a, Dense const& b)
{
    std::transform(a.values.begin(), a.values.end(), b.values.begin(), a.values.begin(), std::minus<>());
    return a;
}

/// The greatest sum of magnitudes in a column; NaN if there is one.
inline double Norm(Dense const& a)
{
    double norm = 0.0;
    for (int j = 0; j < a.columns; ++j) {
        double sum = 0.0;
        for (int i = 0; i < a.rows; ++i)
            sum += std::abs(a.At(i, j));
        norm = sum <= norm ? norm : sum;
    }
    return norm;
}

inline KVOSrvMatrix RandomSymmetric(int n, double shift, bool flag = false)
{
    KVOSrvMatrix matrix(n, n, nullptr, flag, false);
    FillRandom(matrix);
    matrix.SetSymmetricResults();
    for (int i = 0; i < n; ++i)
        matrix.Values()[i * (n + 1)] += shift;
    return matrix;
}

/// Dominated by its diagonal.
inline KVOSrvMatrix RandomPositive(int n)
{
    return RandomSymmetric(n, 2.0 * n);
}

/// That a x = lambda b x and x^T b x = 1 hold for all n pairs, in ascending order. Residuals are bounded as in LAPACK's own tests: by 30 in
/// units of n u and of the norms that the backward error of the method scales with.
template<class Matrix>
void ExpectEigenpairs(Dense const& a, Dense const& b, Vector const& values, Matrix const& vectors)
{
    int const n = a.rows;
    double const unit = 30.0 * n * std::numeric_limits<double>::epsilon() / 2;
    Dense const x(vectors);
    Dense bx = Product(b, false, x), orthogonality = Product(x, true, bx);
    for (int i = 0; i < n; ++i)
        orthogonality.At(i, i) -= 1.0;
    EXPECT_LE(Norm(orthogonality), unit * Norm(b) * Norm(x) * Norm(x));
    for (int k = 0; k < n * n; ++k)
        bx.values[k] *= values[k / n];
    EXPECT_LE(Norm(Product(a, false, x) - bx), unit * Norm(a) * Norm(b) * Norm(x));
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
}
