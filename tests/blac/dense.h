#pragma once

#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

/// Column-major matrices for naive oracles. The leading dimension exceeds the rows, and the entries between are filled with a pattern.

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kPadding = -7777.0;
inline constexpr double kEpsilon = std::numeric_limits<double>::epsilon();

using Vector = std::vector<double>;

struct Dense {
    Dense(int rows, int cols, double value = 0.0) : m(rows), n(cols), ld(rows + 3), v(static_cast<std::size_t>(ld) * cols, kPadding)
    {
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i)
                (*this)(i, j) = value;
    }

    double& operator()(int i, int j) { return v[static_cast<std::size_t>(j) * ld + i]; }
    double operator()(int i, int j) const { return v[static_cast<std::size_t>(j) * ld + i]; }
    double* data() { return v.data(); }
    double const* data() const { return v.data(); }

    int m, n, ld;
    Vector v;
};

/// Entry (i, j) is entry(i, j).
template<class Entry>
Dense Filled(int m, int n, Entry const& entry)
{
    Dense x(m, n);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i)
            x(i, j) = entry(i, j);
    return x;
}

/// Entries between -1 and 1, the same in every run.
inline Dense Random(int m, int n, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> entry(-1.0, 1.0);
    return Filled(m, n, [&](int, int) { return entry(generator); });
}

inline Dense Transposed(Dense const& a)
{
    return Filled(a.n, a.m, [&](int i, int j) { return a(j, i); });
}

inline Dense Op(char trans, Dense const& a)
{
    return trans == 'N' || trans == 'n' ? a : Transposed(a);
}

inline Dense operator*(Dense const& a, Dense const& b)
{
    return Filled(a.m, b.n, [&](int i, int j) {
        double sum = 0.0;
        for (int k = 0; k < a.n; ++k)
            sum += a(i, k) * b(k, j);
        return sum;
    });
}

inline Dense Combined(double alpha, Dense const& a, double beta, Dense const& b)
{
    return Filled(a.m, a.n, [&](int i, int j) { return alpha * a(i, j) + (beta == 0.0 ? 0.0 : beta * b(i, j)); });
}

inline bool InTriangle(char uplo, int i, int j)
{
    return uplo == 'U' ? i <= j : i >= j;
}

/// `a` with NaN where a routine that is given `uplo` (and a unit diagonal) must not read.
inline Dense Stored(Dense const& a, char uplo, char diag = 'N')
{
    return Filled(a.m, a.n, [&](int i, int j) { return InTriangle(uplo, i, j) && !(diag == 'U' && i == j) ? a(i, j) : kNaN; });
}

/// The triangular matrix that such a routine sees.
inline Dense Triangle(Dense const& a, char uplo, char diag = 'N')
{
    return Filled(a.m, a.n, [&](int i, int j) { return diag == 'U' && i == j ? 1.0 : InTriangle(uplo, i, j) ? a(i, j) : 0.0; });
}

/// The symmetric matrix with that triangle.
inline Dense Symmetric(Dense const& a, char uplo)
{
    return Filled(a.m, a.n, [&](int i, int j) { return InTriangle(uplo, i, j) ? a(i, j) : a(j, i); });
}

/// A symmetric positive definite matrix of modest condition.
inline Dense PositiveDefinite(int n, unsigned seed)
{
    Dense const a = Random(n, n, seed);
    return Filled(n, n, [&](int i, int j) { return 0.5 * (a(i, j) + a(j, i)) + (i == j ? n : 0); });
}

inline Vector Packed(Dense const& a, char uplo)
{
    Vector packed;
    for (int j = 0; j < a.n; ++j)
        for (int i = 0; i < a.m; ++i)
            if (InTriangle(uplo, i, j))
                packed.push_back(a(i, j));
    return packed;
}

inline Dense Unpacked(Vector const& packed, char uplo, int n)
{
    std::size_t next = 0;
    return Filled(n, n, [&](int i, int j) { return InTriangle(uplo, i, j) ? packed[next++] : 0.0; });
}

inline Vector Column(Dense const& a, int j = 0)
{
    Vector column;
    for (int i = 0; i < a.m; ++i)
        column.push_back(a(i, j));
    return column;
}

inline double LargestEntry(Dense const& a)
{
    double largest = 0.0;
    for (int j = 0; j < a.n; ++j)
        for (int i = 0; i < a.m; ++i)
            largest = std::fmax(largest, std::fabs(a(i, j)));
    return largest;
}

/// Bound of the difference of two sums of `terms` products of entries up to `size` in absolute value, each formed in any order with or
/// without contraction: twice gamma_(terms + 2) |a||b| (Higham, Accuracy and Stability of Numerical Algorithms, 2nd edition, 3.1).
inline double ProductTolerance(int terms, double size = 1.0)
{
    return 2.0 * (terms + 2) * kEpsilon * terms * size + kEpsilon;
}

/// Every entry agrees within `tolerance`, and the padding between the columns of `actual` is as it was.
inline void ExpectNear(Dense const& actual, Dense const& expected, double tolerance)
{
    ASSERT_EQ(actual.m, expected.m);
    ASSERT_EQ(actual.n, expected.n);
    for (int j = 0; j < actual.n; ++j) {
        for (int i = 0; i < actual.m; ++i)
            ASSERT_NEAR(actual(i, j), expected(i, j), tolerance) << "entry " << i << ", " << j;
        for (int i = actual.m; i < actual.ld; ++i)
            ASSERT_EQ(actual(i, j), kPadding) << "padding " << i << ", " << j;
    }
}

/// The same in the triangle; the rest of `actual` is still NaN.
inline void ExpectTriangleNear(Dense const& actual, Dense const& expected, char uplo, double tolerance)
{
    for (int j = 0; j < actual.n; ++j)
        for (int i = 0; i < actual.m; ++i)
            if (InTriangle(uplo, i, j)) {
                ASSERT_NEAR(actual(i, j), expected(i, j), tolerance) << "entry " << i << ", " << j;
            } else {
                ASSERT_TRUE(std::isnan(actual(i, j))) << "entry " << i << ", " << j;
            }
}
