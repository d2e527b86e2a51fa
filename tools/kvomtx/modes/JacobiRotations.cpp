#include "JacobiRotations.h"

#include "KVOFortran.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace
{

// Couplings below this are rounding error of products over some hundred rows; they move no eigenvalue by more than their share of it.
constexpr double kNoCoupling = 1e-13;
// Convergence is quadratic; this many sweeps are only reached when rounding keeps a coupling above the limit.
constexpr int kMostSweeps = 12;

double& At(KVOSrvMatrix& matrix, int i, int j)
{
    return matrix.Values()[i + std::ptrdiff_t{j} * matrix.NumberOfRows()];
}

double* Column(KVOSrvMatrix& matrix, int j)
{
    return &At(matrix, 0, j);
}

// Makes a_pq zero by a rotation of the unknowns p and q.
void Rotate(KVOSrvMatrix& a, KVOSrvMatrix& vectors, int p, int q)
{
    int const n = a.NumberOfRows(), one = 1;
    double const entry = At(a, p, q);
    double const theta = (At(a, q, q) - At(a, p, p)) / (2.0 * entry);
    double const t = std::copysign(1.0, theta) / (std::fabs(theta) + std::hypot(1.0, theta));
    double const c = 1.0 / std::hypot(1.0, t), s = -t * c;
    double const pp = At(a, p, p) - t * entry, qq = At(a, q, q) + t * entry;
    BLAC_DROT(&n, Column(a, p), &one, Column(a, q), &one, &c, &s);
    BLAC_DROT(&n, &At(a, p, 0), &n, &At(a, q, 0), &n, &c, &s);
    BLAC_DROT(&n, Column(vectors, p), &one, Column(vectors, q), &one, &c, &s);
    At(a, p, p) = pp; // t is more precise than what the two rotations leave
    At(a, q, q) = qq;
    At(a, p, q) = At(a, q, p) = 0.0;
}

// One pass over all pairs of unknowns. @return whether one of them was coupled
bool Sweep(KVOSrvMatrix& a, KVOSrvMatrix& vectors)
{
    bool coupled = false;
    for (int q = 1; q < a.NumberOfRows(); ++q)
        for (int p = 0; p < q; ++p)
            if (std::fabs(At(a, p, q)) > kNoCoupling * std::sqrt(std::fabs(At(a, p, p))) * std::sqrt(std::fabs(At(a, q, q)))) {
                Rotate(a, vectors, p, q);
                coupled = true;
            }
    return coupled;
}

} // namespace

double LargestCoupling(KVOSrvMatrix const& symmetric)
{
    std::ptrdiff_t const n = symmetric.NumberOfRows();
    double const* const a = symmetric.Values();
    double largest = 0.0;
    for (std::ptrdiff_t j = 0; j < n; ++j)
        for (std::ptrdiff_t i = 0; i < j; ++i) {
            double const entry = std::fabs(a[i + j * n]);
            double const scale = std::sqrt(std::fabs(a[i + i * n])) * std::sqrt(std::fabs(a[j + j * n]));
            if (entry > 0.0)
                largest = std::max(largest, scale > 0.0 ? entry / scale : 1.0);
        }
    return largest;
}

void DecomposeByRotations(KVOSrvMatrix& symmetric, std::vector<double>& values, KVOSrvMatrix& vectors)
{
    int const n = symmetric.NumberOfRows();
    vectors = 0.0;
    std::vector<double> const ones(static_cast<std::size_t>(n), 1.0);
    vectors.SetDiagonal(ones.data());
    for (int sweep = 0; sweep < kMostSweeps && Sweep(symmetric, vectors); ++sweep) {
    }
    std::vector<int> order(static_cast<std::size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    std::ranges::sort(order, {}, [&](int i) { return At(symmetric, i, i); });
    KVOSrvMatrix sorted(n, n, nullptr, false, false);
    values.clear();
    for (int j = 0; j < n; ++j) {
        int const from = order[static_cast<std::size_t>(j)];
        values.push_back(At(symmetric, from, from));
        std::copy_n(Column(vectors, from), n, Column(sorted, j));
    }
    std::copy_n(sorted.Values(), std::ptrdiff_t{n} * n, vectors.Values());
}
