#include "Rotations.h"

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

// Makes a_pq zero by a rotation of the unknowns p and q.
void Rotate(Panel& a, Panel& vectors, int p, int q)
{
    int const n = a.rows, one = 1;
    double const entry = a.At(p, q);
    double const theta = (a.At(q, q) - a.At(p, p)) / (2.0 * entry);
    double const t = std::copysign(1.0, theta) / (std::fabs(theta) + std::hypot(1.0, theta));
    double const c = 1.0 / std::hypot(1.0, t), s = -t * c;
    double const pp = a.At(p, p) - t * entry, qq = a.At(q, q) + t * entry;
    BLAC_DROT(&n, a.Column(p), &one, a.Column(q), &one, &c, &s);
    BLAC_DROT(&n, &a.At(p, 0), &n, &a.At(q, 0), &n, &c, &s);
    BLAC_DROT(&n, vectors.Column(p), &one, vectors.Column(q), &one, &c, &s);
    a.At(p, p) = pp; // t is more precise than what the two rotations leave
    a.At(q, q) = qq;
    a.At(p, q) = a.At(q, p) = 0.0;
}

// One pass over all pairs of unknowns. @return whether one of them was coupled
bool Sweep(Panel& a, Panel& vectors)
{
    bool coupled = false;
    for (int q = 1; q < a.rows; ++q)
        for (int p = 0; p < q; ++p)
            if (std::fabs(a.At(p, q)) > kNoCoupling * std::sqrt(std::fabs(a.At(p, p))) * std::sqrt(std::fabs(a.At(q, q)))) {
                Rotate(a, vectors, p, q);
                coupled = true;
            }
    return coupled;
}

} // namespace

double LargestCoupling(Panel const& symmetric)
{
    double largest = 0.0;
    for (int j = 0; j < symmetric.columns; ++j)
        for (int i = 0; i < j; ++i) {
            double const entry = std::fabs(symmetric.At(i, j));
            double const scale = std::sqrt(std::fabs(symmetric.At(i, i))) * std::sqrt(std::fabs(symmetric.At(j, j)));
            if (entry > 0.0)
                largest = std::max(largest, scale > 0.0 ? entry / scale : 1.0);
        }
    return largest;
}

std::vector<double> EigenpairsByRotations(Panel& symmetric)
{
    int const n = symmetric.rows;
    Panel vectors(n, n);
    for (int i = 0; i < n; ++i)
        vectors.At(i, i) = 1.0;
    for (int sweep = 0; sweep < kMostSweeps && Sweep(symmetric, vectors); ++sweep) {
    }
    std::vector<int> order(static_cast<std::size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    std::ranges::sort(order, {}, [&](int i) { return symmetric.At(i, i); });
    std::vector<double> values;
    Panel sorted(n, n);
    for (int j = 0; j < n; ++j) {
        int const from = order[static_cast<std::size_t>(j)];
        values.push_back(symmetric.At(from, from));
        std::copy_n(vectors.Column(from), n, sorted.Column(j));
    }
    symmetric = std::move(sorted);
    return values;
}
