#include "LargestQuotient.h"

#include "Interrupt.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <random>

namespace
{

using Vector = Quotient::Vector;
constexpr std::size_t kMost = 3; // the vector, the ascent, the step before
using Small = std::array<std::array<double, kMost>, kMost>;
using Weights = std::array<double, kMost>;

/// A vector with its products.
struct Column {
    explicit Column(std::size_t order) : x(order), ax(order), mx(order) {}
    void Scale(double factor)
    {
        for (Vector* const one : {&x, &ax, &mx})
            for (double& entry : *one)
                entry *= factor;
    }
    Vector x, ax, mx;
};

double Dot(Vector const& a, Vector const& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += a[i] * b[i];
    return sum;
}

double Form(Small const& matrix, Weights const& a, Weights const& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < kMost; ++i)
        for (std::size_t j = 0; j < kMost; ++j)
            sum += a[i] * matrix[i][j] * b[j];
    return sum;
}

// The eigenvector of the greatest eigenvalue, by Jacobi rotations.
Weights Uppermost(Small matrix, std::size_t order)
{
    Small vectors{};
    for (std::size_t i = 0; i < kMost; ++i)
        vectors[i][i] = 1.0;
    for (int sweep = 0; sweep < 20; ++sweep)
        for (std::size_t p = 0; p < order; ++p)
            for (std::size_t q = p + 1; q < order; ++q) {
                if (matrix[p][q] == 0.0)
                    continue;
                double const tau = (matrix[q][q] - matrix[p][p]) / (2.0 * matrix[p][q]);
                double const t = std::copysign(1.0, tau) / (std::fabs(tau) + std::hypot(1.0, tau));
                double const c = 1.0 / std::hypot(1.0, t), s = c * t;
                for (std::size_t k = 0; k < kMost; ++k) {
                    double const kp = matrix[k][p], kq = matrix[k][q], vp = vectors[k][p], vq = vectors[k][q];
                    matrix[k][p] = c * kp - s * kq;
                    matrix[k][q] = s * kp + c * kq;
                    vectors[k][p] = c * vp - s * vq;
                    vectors[k][q] = s * vp + c * vq;
                }
                for (std::size_t k = 0; k < kMost; ++k) {
                    double const pk = matrix[p][k], qk = matrix[q][k];
                    matrix[p][k] = c * pk - s * qk;
                    matrix[q][k] = s * pk + c * qk;
                }
            }
    std::size_t best = 0;
    for (std::size_t i = 1; i < order; ++i)
        if (matrix[i][i] > matrix[best][best])
            best = i;
    return {vectors[0][best], vectors[1][best], vectors[2][best]};
}

// The combination of so many columns with the greatest quotient; none where the numbers have failed.
Weights Best(std::array<Column*, kMost> const& columns, std::size_t count)
{
    Small a{}, m{};
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = 0; j < count; ++j) {
            a[i][j] = Dot(columns[i]->x, columns[j]->ax);
            m[i][j] = Dot(columns[i]->x, columns[j]->mx);
        }
    // Gram-Schmidt, twice, in the norm of M; what hardly leaves the span of those before is dropped.
    std::array<Weights, kMost> basis{};
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i) {
        Weights one{};
        one[i] = 1.0;
        for (int pass = 0; pass < 2; ++pass)
            for (std::size_t j = 0; j < kept; ++j) {
                double const share = Form(m, basis[j], one);
                for (std::size_t k = 0; k < kMost; ++k)
                    one[k] -= share * basis[j][k];
            }
        double const square = Form(m, one, one);
        if (!(square > 1e-12 * m[i][i]))
            continue;
        for (double& weight : one)
            weight /= std::sqrt(square);
        basis[kept++] = one;
    }
    Small projected{};
    for (std::size_t i = 0; i < kept; ++i)
        for (std::size_t j = 0; j < kept; ++j)
            projected[i][j] = Form(a, basis[i], basis[j]);
    Weights const inBasis = Uppermost(projected, kept);
    Weights weights{};
    for (std::size_t j = 0; j < kept; ++j)
        for (std::size_t k = 0; k < kMost; ++k)
            weights[k] += inBasis[j] * basis[j][k];
    return weights;
}

} // namespace

double LargestQuotient(Quotient const& quotient, int steps)
{
    constexpr double kGrowth = 1e-5;
    constexpr int kStanding = 3; // steps with less growth than that

    Column now(quotient.order), ascent(quotient.order), before(quotient.order);
    std::mt19937_64 generator(1);
    std::normal_distribution<double> normal;
    std::ranges::generate(now.x, [&] { return normal(generator); });
    auto const multiply = [&](Column& column) {
        quotient.numerator(column.x, column.ax);
        quotient.denominator(column.x, column.mx);
    };
    // To a size of 1 in the norm of M. @return false where that is 0 or no number
    auto const normalize = [](Column& column) {
        double const square = Dot(column.x, column.mx);
        if (!(square > 0.0) || !std::isfinite(square))
            return false;
        column.Scale(1.0 / std::sqrt(square));
        return true;
    };
    multiply(now);
    if (!normalize(now))
        return 0.0;
    double theta = Dot(now.x, now.ax);
    std::size_t columns = 2; // there is no step before the first
    for (int step = 0, standing = 0; step < steps && standing < kStanding; ++step) {
        CheckInterrupt();
        quotient.ascent(now.x, now.ax, now.mx, theta, ascent.x);
        multiply(ascent);
        if (!normalize(ascent))
            break;
        Weights const best = Best({&now, &ascent, &before}, columns);
        auto const combine = [&](Vector& x, Vector const& up, Vector& last) {
            for (std::size_t i = 0; i < x.size(); ++i) {
                last[i] = best[1] * up[i] + best[2] * last[i];
                x[i] = best[0] * x[i] + last[i];
            }
        };
        combine(now.x, ascent.x, before.x);
        combine(now.ax, ascent.ax, before.ax);
        combine(now.mx, ascent.mx, before.mx);
        columns = normalize(before) ? 3 : 2;
        if (!normalize(now))
            break;
        double const next = Dot(now.x, now.ax);
        standing = next - theta <= kGrowth * std::fabs(next) ? standing + 1 : 0;
        theta = std::max(theta, next);
    }
    return theta;
}
