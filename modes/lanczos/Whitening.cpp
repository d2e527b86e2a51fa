#include "Whitening.h"

#include "KVOFortran.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace
{

// A column goes before later ones unless one of those has so many times more left.
constexpr double kPreference = 10.0;

// The columns of a Cholesky factor with rows in the order of the basis, not of the pivots.
class PivotedCholesky
{
public:
    PivotedCholesky(Panel const& gram, double smallest) : m_gram(gram), m_factor(gram.rows, gram.rows)
    {
        for (int i = 0; i < gram.rows; ++i)
            m_left.push_back(gram.At(i, i));
        for (int pivot = Next(smallest); pivot >= 0; pivot = Next(smallest))
            Eliminate(pivot);
    }

    // P L^-T: the combinations that make the Gram matrix the identity.
    Panel Combinations() const
    {
        int const rank = static_cast<int>(m_pivots.size());
        Panel whitening(m_gram.rows, rank);
        if (rank == 0)
            return whitening;
        Panel triangle(rank, rank), inverse(rank, rank);
        for (int j = 0; j < rank; ++j) {
            inverse.At(j, j) = 1.0;
            for (int i = 0; i < rank; ++i)
                triangle.At(i, j) = m_factor.At(m_pivots[static_cast<std::size_t>(i)], j);
        }
        double const one = 1.0;
        BLAC_DTRSM("L", "L", "T", "N", &rank, &rank, &one, triangle.values.data(), &rank, inverse.values.data(), &rank);
        for (int j = 0; j < rank; ++j)
            for (int i = 0; i < rank; ++i)
                whitening.At(m_pivots[static_cast<std::size_t>(i)], j) = inverse.At(i, j);
        return whitening;
    }

private:
    // The first column that has enough left, or -1.
    int Next(double smallest) const
    {
        double const most = m_left.empty() ? 0.0 : *std::ranges::max_element(m_left);
        if (!(most > smallest))
            return -1;
        return static_cast<int>(std::ranges::find_if(m_left, [&](double left) { return left * kPreference >= most; }) - m_left.begin());
    }

    void Eliminate(int pivot)
    {
        int const done = static_cast<int>(m_pivots.size());
        double* const column = m_factor.Column(done);
        std::copy_n(m_gram.Column(pivot), m_gram.rows, column);
        for (int k = 0; k < done; ++k)
            for (int i = 0; i < m_gram.rows; ++i)
                column[i] -= m_factor.At(i, k) * m_factor.At(pivot, k);
        double const scale = 1.0 / std::sqrt(m_left[static_cast<std::size_t>(pivot)]);
        for (int i = 0; i < m_gram.rows; ++i)
            column[i] *= scale;
        for (int const before : m_pivots)
            column[before] = 0.0; // but for rounding
        for (int i = 0; i < m_gram.rows; ++i)
            m_left[static_cast<std::size_t>(i)] -= column[i] * column[i];
        m_left[static_cast<std::size_t>(pivot)] = 0.0;
        m_pivots.push_back(pivot);
    }

    Panel const& m_gram;
    Panel m_factor;
    std::vector<double> m_left; // of the diagonal, 0 for a pivot
    std::vector<int> m_pivots;
};

} // namespace

Panel Whitening(Panel const& gram, double smallest)
{
    // On a diagonal of 1: the columns may differ by orders of magnitude.
    Panel scaled = gram;
    std::vector<double> scale;
    for (int i = 0; i < gram.rows; ++i)
        scale.push_back(gram.At(i, i) > 0.0 ? 1.0 / std::sqrt(gram.At(i, i)) : 0.0);
    for (int j = 0; j < gram.columns; ++j)
        for (int i = 0; i < gram.rows; ++i)
            (scaled.At(i, j) *= scale[static_cast<std::size_t>(i)]) *= scale[static_cast<std::size_t>(j)];
    Panel whitening = PivotedCholesky(scaled, smallest).Combinations();
    for (int j = 0; j < whitening.columns; ++j)
        for (int i = 0; i < whitening.rows; ++i)
            whitening.At(i, j) *= scale[static_cast<std::size_t>(i)];
    return whitening;
}
