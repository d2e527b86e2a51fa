#include "ReducedPair.h"

#include "JacobiRotations.h"
#include "SubspaceIteration.h"

#include "KVOFortran.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{

// A column of which less is left is dropped: the rounding of what is left, 2^-53 over it, is then below kNegativeMass of the largest mass.
constexpr double kDependent = 1e-8;
// A negative share of the largest reduced mass beyond that rounding: the mass matrix is not positive semidefinite.
constexpr double kNegativeMass = 1e-6;
// Below it a few sweeps of rotations suffice. Above it the basis has yet to turn to the modes.
constexpr double kNearlyDiagonal = 0.1;
// A tridiagonal method, the faster one, keeps twelve digits of every eigenvalue when they are no farther apart.
constexpr double kCloseEigenvalues = 1e3;
// The basis comes sorted by eigenvalue, and its upper columns hold traces of the lower modes, not the other way round: a column goes
// before later ones unless one of those has so many times more left.
constexpr double kPreference = 10.0;

KVOSrvMatrix Full(int rows, int columns)
{
    return KVOSrvMatrix(rows, columns, nullptr, false, false);
}

KVOSrvMatrix Identity(int n)
{
    KVOSrvMatrix identity = Full(n, n);
    identity = 0.0;
    std::vector<double> const ones(static_cast<std::size_t>(n), 1.0);
    identity.SetDiagonal(ones.data());
    return identity;
}

void RequireFinite(KVOSrvMatrix const& matrix)
{
    std::ptrdiff_t const size = std::ptrdiff_t{matrix.NumberOfRows()} * matrix.NumberOfColumns();
    if (!std::all_of(matrix.Values(), matrix.Values() + size, [](double value) { return std::isfinite(value); }))
        throw SubspaceFailure("the entries of the stiffness and the mass are too far apart for products of them; choose other units");
}

// Scales both so that the stiffness has a diagonal of 1: the columns of the basis differ by orders of magnitude. Returns the factors.
std::vector<double> Equilibrate(KVOSrvMatrix& stiffness, KVOSrvMatrix& mass)
{
    std::ptrdiff_t const q = stiffness.NumberOfRows();
    std::vector<double> scale;
    for (std::ptrdiff_t i = 0; i < q; ++i) {
        double const entry = stiffness.Values()[i + i * q];
        scale.push_back(entry > 0.0 ? 1.0 / std::sqrt(entry) : 0.0);
    }
    for (std::ptrdiff_t j = 0; j < q; ++j)
        for (std::ptrdiff_t i = 0; i < q; ++i)
            for (KVOSrvMatrix* const matrix : {&stiffness, &mass}) // one factor after the other: their product may overflow
                (matrix->Values()[i + j * q] *= scale[static_cast<std::size_t>(i)]) *= scale[static_cast<std::size_t>(j)];
    return scale;
}

bool IsGraded(KVOSrvMatrix const& matrix)
{
    std::vector<double> diagonal;
    for (std::ptrdiff_t i = 0, n = matrix.NumberOfRows(); i < n; ++i)
        diagonal.push_back(matrix.Values()[i + i * n]);
    auto const [smallest, largest] = std::ranges::minmax(diagonal);
    return smallest * kCloseEigenvalues < largest;
}

// Eigenpairs of a symmetric matrix, ascending.
void Decompose(KVOSrvMatrix& matrix, std::vector<double>& values, KVOSrvMatrix& vectors)
{
    if (IsGraded(matrix) && LargestCoupling(matrix) < kNearlyDiagonal)
        return DecomposeByRotations(matrix, values, vectors);
    int const n = matrix.NumberOfRows();
    values.assign(static_cast<std::size_t>(n), 0.0);
    KVOSrvMatrix eigenvalues(n, 1, values.data(), false, false);
    matrix.SolveEigenproblemSymmetric(Identity(n), eigenvalues, vectors);
}

// The columns of a Cholesky factor with rows in the order of the basis, not of the pivots.
class PivotedCholesky
{
public:
    PivotedCholesky(KVOSrvMatrix const& gram, double smallest)
        : m_gram(gram), m_n(gram.NumberOfRows()), m_factor(m_n, m_n, nullptr, false, false)
    {
        for (std::ptrdiff_t i = 0; i < m_n; ++i)
            m_left.push_back(gram.Values()[i + i * m_n]);
        for (int pivot = Next(smallest); pivot >= 0; pivot = Next(smallest))
            Eliminate(pivot);
    }

    // P L^-T: the combinations that make the Gram matrix the identity.
    KVOSrvMatrix Whitening() const
    {
        int const rank = static_cast<int>(m_pivots.size());
        if (rank == 0)
            return Full(m_n, 0);
        KVOSrvMatrix triangle = Full(rank, rank);
        for (int j = 0; j < rank; ++j)
            for (int i = 0; i < rank; ++i)
                triangle.Values()[i + std::ptrdiff_t{j} * rank] =
                    m_factor.Values()[m_pivots[static_cast<std::size_t>(i)] + std::ptrdiff_t{j} * m_n];
        KVOSrvMatrix inverse = Identity(rank);
        double const one = 1.0;
        BLAC_DTRSM("L", "L", "T", "N", &rank, &rank, &one, triangle.Values(), &rank, inverse.Values(), &rank);
        KVOSrvMatrix whitening = Full(m_n, rank);
        whitening = 0.0;
        for (int j = 0; j < rank; ++j)
            for (int i = 0; i < rank; ++i)
                whitening.Values()[m_pivots[static_cast<std::size_t>(i)] + std::ptrdiff_t{j} * m_n] =
                    inverse.Values()[i + std::ptrdiff_t{j} * rank];
        return whitening;
    }

private:
    // The first column that has enough left, or -1.
    int Next(double smallest) const
    {
        double const most = *std::ranges::max_element(m_left);
        if (!(most > smallest))
            return -1;
        return static_cast<int>(std::ranges::find_if(m_left, [&](double left) { return left * kPreference >= most; }) - m_left.begin());
    }

    void Eliminate(int pivot)
    {
        int const done = static_cast<int>(m_pivots.size()), one = 1;
        double* const column = m_factor.Values() + std::ptrdiff_t{done} * m_n;
        std::copy_n(m_gram.Values() + std::ptrdiff_t{pivot} * m_n, m_n, column);
        double const minus = -1.0, plus = 1.0;
        if (done > 0)
            BLAC_DGEMV("N", &m_n, &done, &minus, m_factor.Values(), &m_n, m_factor.Values() + pivot, &m_n, &plus, column, &one);
        double const scale = 1.0 / std::sqrt(m_left[static_cast<std::size_t>(pivot)]);
        for (int i = 0; i < m_n; ++i)
            column[i] *= scale;
        for (int const before : m_pivots)
            column[before] = 0.0; // but for rounding
        for (int i = 0; i < m_n; ++i)
            m_left[static_cast<std::size_t>(i)] -= column[i] * column[i];
        m_left[static_cast<std::size_t>(pivot)] = 0.0;
        m_pivots.push_back(pivot);
    }

    KVOSrvMatrix const& m_gram;
    int const m_n;
    KVOSrvMatrix m_factor;
    std::vector<double> m_left; // of the diagonal, 0 for a pivot
    std::vector<int> m_pivots;
};

} // namespace

void Symmetrize(KVOSrvMatrix& matrix)
{
    std::ptrdiff_t const n = matrix.NumberOfRows();
    double* const a = matrix.Values();
    for (std::ptrdiff_t j = 0; j < n; ++j)
        for (std::ptrdiff_t i = 0; i < j; ++i)
            a[i + j * n] = a[j + i * n] = 0.5 * a[i + j * n] + 0.5 * a[j + i * n];
}

KVOSrvMatrix Whitening(KVOSrvMatrix const& gram, double smallest)
{
    return PivotedCholesky(gram, smallest).Whitening();
}

RitzPairs SolveReduced(KVOSrvMatrix& stiffness, KVOSrvMatrix& mass)
{
    int const q = stiffness.NumberOfRows();
    RequireFinite(stiffness);
    RequireFinite(mass);
    Symmetrize(stiffness);
    Symmetrize(mass);
    std::vector<double> const scale = Equilibrate(stiffness, mass);

    KVOSrvMatrix const whitening = Whitening(stiffness, kDependent);
    int const rank = whitening.NumberOfColumns();
    RitzPairs ritz{{}, Full(q, q)};
    ritz.combinations = 0.0;
    if (rank == 0)
        return ritz;
    KVOSrvMatrix massTimes = Full(q, rank);
    massTimes.Multiply(mass, whitening);
    KVOSrvMatrix whiteMass = Full(rank, rank);
    whitening.TransposeMultiply(massTimes, whiteMass, 0, 0);
    Symmetrize(whiteMass);
    std::vector<double> mu;
    KVOSrvMatrix vectors = Full(rank, rank);
    Decompose(whiteMass, mu, vectors);
    KVOSrvMatrix product = Full(q, rank);
    product.Multiply(whitening, vectors);

    ritz.indefinite = mu.front() < -kNegativeMass * std::max(mu.back(), -mu.front());
    for (int k = 0; k < rank; ++k) { // largest mu first: lowest lambda
        int const from = rank - 1 - k;
        double const value = mu[static_cast<std::size_t>(from)];
        if (!(value > 0.0))
            break;
        ritz.shifted.push_back(1.0 / value);
        double const factor = 1.0 / std::sqrt(value);
        for (int i = 0; i < q; ++i)
            ritz.combinations.Values()[i + std::ptrdiff_t{k} * q] =
                factor * scale[static_cast<std::size_t>(i)] * product.Values()[i + std::ptrdiff_t{from} * q];
    }
    return ritz;
}
