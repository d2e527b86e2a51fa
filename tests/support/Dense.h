#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
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
    /// The values of any matrix for which there is a ValuesOf().
    template<class Matrix>
    explicit Dense(Matrix const& matrix) : Dense(ValuesOf(matrix))
    {
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

inline Dense operator*(double s, Dense const& a)
{
    return Filled(a.rows, a.columns, [&](int i, int j) { return s * a.At(i, j); });
}

/// op(a) b, a transposed if told so.
inline Dense Product(Dense const& a, bool transposed, Dense const& b)
{
    return (transposed ? Transposed(a) : a) * b;
}

inline Dense Combined(double alpha, Dense const& a, double beta, Dense const& b)
{
    return Filled(a.rows, a.columns,
                  [&](int i, int j) { return beta == 0.0 ? alpha * a.At(i, j) : alpha * a.At(i, j) + beta * b.At(i, j); });
}

/// Rows r0 to r1 and columns c0 to c1, both inclusive.
inline Dense Part(Dense const& whole, int r0, int r1, int c0, int c1)
{
    return Filled(r1 - r0 + 1, c1 - c0 + 1, [&](int i, int j) { return whole.At(r0 + i, c0 + j); });
}

/// The lower triangle copied onto the upper one, times `sign`, or the other way round where there are fewer rows than columns.
inline Dense Mirrored(Dense const& x, double sign = 1.0)
{
    return Filled(x.rows, x.columns, [&](int i, int j) {
        bool const mirrors = x.rows < x.columns ? j < i : i < j;
        return mirrors ? sign * x.At(j, i) : x.At(i, j);
    });
}

/// Puts `part` in its place, whose first element is (r0, c0).
inline void Put(Dense& whole, Dense const& part, int r0, int c0)
{
    for (int j = 0; j < part.columns; ++j)
        for (int i = 0; i < part.rows; ++i)
            whole.At(r0 + i, c0 + j) = part.At(i, j);
}

/// Bound of the difference of two sums of `terms` products of entries up to `size` in absolute value, each formed in any order with or
/// without contraction: twice gamma_(terms + 2) |a||b| (Higham, Accuracy and Stability of Numerical Algorithms, 2nd edition, 3.1).
inline double ProductTolerance(int terms, double size = 1.0)
{
    return 2.0 * (terms + 2) * kEpsilon * terms * size + kEpsilon;
}

inline bool SameBits(double x, double y)
{
    return std::memcmp(&x, &y, sizeof x) == 0;
}

/// What an element must be, up to `bound`, a NaN any NaN; without a bound to the bit.
struct Expected {
    Expected(double v, double b = 0.0) : value(v), bound(b) {}
    bool Admits(double x) const
    {
        return SameBits(x, value) || (bound > 0.0 && (std::abs(x - value) <= bound || (std::isnan(x) && std::isnan(value))));
    }
    double value, bound;
};

/// Every element of `actual`, which is any matrix, is expectation(i, j), a double or an Expected.
template<class Matrix, class Expectation>
void ExpectSame(Matrix const& actual, Expectation const& expectation)
{
    Dense const values(actual);
    int wrong = 0;
    for (int j = 0; j < values.columns; ++j) {
        for (int i = 0; i < values.rows; ++i)
            if (Expected const expected = expectation(i, j); !expected.Admits(values.At(i, j)) && ++wrong <= 3)
                ADD_FAILURE() << "element (" << i << ", " << j << ") is " << values.At(i, j) << " instead of " << expected.value;
        double const* const behind = values.data() + std::ptrdiff_t{j + 1} * values.ld;
        wrong += static_cast<int>(values.Padding() - std::count(behind - values.Padding(), behind, kPadding));
    }
    ASSERT_EQ(wrong, 0) << "elements, with those between the columns";
}

/// Every element of `actual` is that of `expected`, up to `tolerance`, and between the columns of a Dense nothing has been written.
template<class Matrix>
void ExpectSame(Matrix const& actual, Dense const& expected, double tolerance = 0.0)
{
    Dense const values(actual);
    ASSERT_EQ(values.rows, expected.rows);
    ASSERT_EQ(values.columns, expected.columns);
    ExpectSame(values, [&](int i, int j) { return Expected(expected.At(i, j), tolerance); });
}
