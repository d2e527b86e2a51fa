#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

/// Column-major matrices for naive oracles. The leading dimension may exceed the rows; the entries between are filled with a pattern. A row
/// serves as a vector whose increment is the leading dimension.

inline constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kPadding = -7777.0;
inline constexpr double kEpsilon = std::numeric_limits<double>::epsilon();

using Vector = std::vector<double>;

struct Dense {
    Dense(int rowCount, int columnCount, double value = 0.0, int padding = 0)
        : rows(rowCount), columns(columnCount), ld(rowCount + padding), values(static_cast<std::size_t>(ld) * columns, kPadding)
    {
        for (int j = 0; j < columns; ++j)
            std::fill_n(values.begin() + static_cast<std::ptrdiff_t>(j) * ld, rows, value);
    }
    /// A copy of any matrix whose elements Element() tells.
    template<class Matrix>
    explicit Dense(Matrix const& matrix) : Dense(matrix.NumberOfRows(), matrix.NumberOfColumns())
    {
        for (int j = 0; j < columns; ++j)
            for (int i = 0; i < rows; ++i)
                At(i, j) = Element(matrix, i, j);
    }

    double& At(int i, int j) { return values[static_cast<std::size_t>(j) * ld + i]; }
    double At(int i, int j) const { return values[static_cast<std::size_t>(j) * ld + i]; }
    double* data() { return values.data(); }
    double const* data() const { return values.data(); }
    int Padding() const { return ld - rows; }

    int rows, columns, ld;
    Vector values;
};

/// Entry (i, j) is entry(i, j).
template<class Entry>
Dense Filled(int m, int n, Entry const& entry, int padding = 0)
{
    Dense x(m, n, 0.0, padding);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i)
            x.At(i, j) = entry(i, j);
    return x;
}

/// Entries between -1 and 1, the same in every run. Leading dimensions, too, differ with the seed, so that none can stand for another.
inline Dense Seeded(int m, int n, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> entry(-1.0, 1.0);
    return Filled(
        m, n, [&](int, int) { return entry(generator); }, 1 + static_cast<int>(seed % 5));
}

inline Dense Identity(int n)
{
    return Filled(n, n, [](int i, int j) { return i == j ? 1.0 : 0.0; });
}

inline Dense Transposed(Dense const& a)
{
    return Filled(
        a.columns, a.rows, [&](int i, int j) { return a.At(j, i); }, a.Padding());
}

inline Dense Op(char trans, Dense const& a)
{
    return trans == 'N' || trans == 'n' ? a : Transposed(a);
}

inline Dense operator*(Dense const& a, Dense const& b)
{
    Dense c(a.rows, b.columns);
    for (int j = 0; j < c.columns; ++j)
        for (int k = 0; k < a.columns; ++k)
            for (int i = 0; i < c.rows; ++i)
                c.At(i, j) += a.At(i, k) * b.At(k, j);
    return c;
}

inline Dense Combined(double alpha, Dense const& a, double beta, Dense const& b)
{
    return Filled(a.rows, a.columns, [&](int i, int j) { return alpha * a.At(i, j) + (beta == 0.0 ? 0.0 : beta * b.At(i, j)); });
}

inline bool InTriangle(char uplo, int i, int j)
{
    return uplo == 'U' ? i <= j : i >= j;
}

/// `a` with NaN where a routine that is given `uplo` (and a unit diagonal) must not read or write.
inline Dense Stored(Dense const& a, char uplo, char diag = 'N')
{
    return Filled(
        a.rows, a.columns, [&](int i, int j) { return InTriangle(uplo, i, j) && !(diag == 'U' && i == j) ? a.At(i, j) : kNotANumber; },
        a.Padding());
}

/// The triangular matrix that such a routine sees.
inline Dense Triangle(Dense const& a, char uplo, char diag = 'N')
{
    return Filled(a.rows, a.columns, [&](int i, int j) { return diag == 'U' && i == j ? 1.0 : InTriangle(uplo, i, j) ? a.At(i, j) : 0.0; });
}

/// The symmetric matrix with that triangle.
inline Dense Symmetric(Dense const& a, char uplo)
{
    return Filled(
        a.rows, a.columns, [&](int i, int j) { return InTriangle(uplo, i, j) ? a.At(i, j) : a.At(j, i); }, a.Padding());
}

/// A matrix of modest condition, as are its triangles and its symmetric part.
inline Dense Dominated(int n, unsigned seed)
{
    Dense a = Seeded(n, n, seed);
    for (int i = 0; i < n; ++i)
        a.At(i, i) += n;
    return a;
}

inline Vector Packed(Dense const& a, char uplo)
{
    Vector packed;
    for (int j = 0; j < a.columns; ++j)
        for (int i = 0; i < a.rows; ++i)
            if (InTriangle(uplo, i, j))
                packed.push_back(a.At(i, j));
    return packed;
}

inline Dense Unpacked(Vector const& packed, char uplo, int n)
{
    std::size_t next = 0;
    return Filled(n, n, [&](int i, int j) { return InTriangle(uplo, i, j) ? packed[next++] : 0.0; });
}

/// Bound of the difference of two sums of `terms` products of entries up to `size` in absolute value, each formed in any order with or
/// without contraction: twice gamma_(terms + 2) |a||b| (Higham, Accuracy and Stability of Numerical Algorithms, 2nd edition, 3.1).
inline double ProductTolerance(int terms, double size = 1.0)
{
    return 2.0 * (terms + 2) * kEpsilon * terms * size + kEpsilon;
}

/// Every entry agrees within `tolerance`, NaN with NaN, and the padding between the columns of `actual` is as it was.
inline void ExpectNear(Dense const& actual, Dense const& expected, double tolerance)
{
    ASSERT_EQ(actual.rows, expected.rows);
    ASSERT_EQ(actual.columns, expected.columns);
    for (int j = 0; j < actual.columns; ++j) {
        for (int i = 0; i < actual.rows; ++i)
            ASSERT_TRUE(std::abs(actual.At(i, j) - expected.At(i, j)) <= tolerance ||
                        (std::isnan(actual.At(i, j)) && std::isnan(expected.At(i, j))))
                << "entry " << i << ", " << j << " is " << actual.At(i, j) << " instead of " << expected.At(i, j);
        for (int i = actual.rows; i < actual.ld; ++i)
            ASSERT_EQ(actual.At(i, j), kPadding) << "padding " << i << ", " << j;
    }
}
