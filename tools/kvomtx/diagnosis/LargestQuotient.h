#pragma once

#include <functional>
#include <vector>

/// x^T A x over x^T M x, of symmetric A and positive semidefinite M, which is to become as great as it can.
struct Quotient {
    using Vector = std::vector<double>;

    std::size_t order = 0;
    /// ax = A x
    std::function<void(Vector const& x, Vector& ax)> numerator;
    /// mx = M x
    std::function<void(Vector const& x, Vector& mx)> denominator;
    /// A direction in which the quotient, which is theta at x, grows.
    std::function<void(Vector const& x, Vector const& ax, Vector const& mx, double theta, Vector& direction)> ascent;
};

/// The greatest quotient, from below, by locally optimal conjugate gradients (Knyazev, SIAM J. Sci. Comput. 23, 2001): each step one
/// product with A and one with M. It ends when the value grows by less than 1e-5 of itself in some steps; 0 where M is 0.
/// @param steps  most of them
double LargestQuotient(Quotient const& quotient, int steps);

/// Vectors of the order that it holds.
constexpr int kVectorsOfQuotient = 9;
