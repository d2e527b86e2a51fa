#include "SpectrumEstimate.h"

#include "Panel.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <random>

namespace
{

constexpr int kStepsBetween = 10;
// About a fifth of the time of a factorization of 100 000 unknowns of a solid, of which it saves one.
constexpr int kMostSteps = 120;
// Nodes of the quadrature that must lie below a value to tell how many eigenvalues do.
constexpr double kNodes = 2.0;

// The sums of the rows; the diagonal where it is more, as for rotations, whose coupling with displacements has either sign.
std::vector<double> Lumped(KVOSrvSparseMatrix const& mass)
{
    KVOSrvSparseRows const rows = mass.Rows();
    auto const n = static_cast<std::size_t>(rows.rows);
    std::vector<double> const ones(n, 1.0);
    std::vector<double> lumped(n);
    mass.Multiply(ones.data(), 1, lumped.data(), false);
    for (std::size_t i = 0; i < n; ++i) {
        if (rows.diagonal != nullptr)
            lumped[i] = std::max(lumped[i], rows.diagonal[i]);
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k)
            if (static_cast<std::size_t>(rows.columnIndices[k]) == i)
                lumped[i] = std::max(lumped[i], rows.values[k]);
    }
    return lumped;
}

} // namespace

SpectrumEstimate::Columns SpectrumEstimate::Dot(std::vector<double> const& a, std::vector<double> const& b)
{
    Columns sum{};
    for (std::size_t i = 0; i < a.size(); i += kColumns)
        for (std::size_t c = 0; c < kColumns; ++c)
            sum[c] += a[i + c] * b[i + c];
    return sum;
}

SpectrumEstimate::SpectrumEstimate(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double wanted)
{
    int const n = stiffness.NumberOfRows();
    m_scale = Lumped(mass);
    if (!(std::ranges::min(m_scale) > 0.0) || 4.0 * wanted > n)
        return;
    std::ranges::transform(m_scale, m_scale.begin(), [](double lumped) { return 1.0 / std::sqrt(lumped); });
    std::mt19937_64 generator(1);
    std::normal_distribution<double> normal;
    m_columns.resize(m_scale.size() * kColumns);
    std::ranges::generate(m_columns, [&] { return normal(generator); });
    m_before.resize(m_columns.size());
    m_product.resize(m_columns.size());
    Columns const squares = Dot(m_columns, m_columns);
    for (std::size_t i = 0; i < m_scale.size(); ++i)
        for (std::size_t j = 0; j < kColumns; ++j)
            m_columns[i * kColumns + j] /= std::sqrt(squares[j]);
    m_diagonals.resize(kColumns);
    m_couplings.resize(kColumns);
    for (int steps = kStepsBetween; steps <= std::min(kMostSteps, n); steps += kStepsBetween) {
        for (int step = 0; step < kStepsBetween; ++step)
            if (!Step(stiffness))
                return;
        Evaluate();
        m_resolved = true;
        std::optional<double> const value = ValueAbove(wanted);
        double const nodes = value ? NodesBelow(*value, wanted) : 0.0;
        if (nodes >= kNodes)
            return;
        m_resolved = false;
        if (nodes * kMostSteps < kNodes * steps) // their number grows as the steps do
            return;
    }
}

double SpectrumEstimate::Safely(int eigenvalues)
{
    constexpr double kFewNodes = 1.1; // by which a quadrature that has just as many nodes as it must counts too many
    return kFewNodes * eigenvalues + 1.0 + 2.0 * std::sqrt(2.0 * eigenvalues / static_cast<double>(kColumns));
}

// product = S K S columns, S the scale. Numbers of one row lie together: an entry meets all its columns at once.
void SpectrumEstimate::Multiply(KVOSrvSparseMatrix const& stiffness)
{
    KVOSrvSparseRows const rows = stiffness.Rows();
    std::ranges::fill(m_product, 0.0);
    for (std::size_t i = 0; i < m_scale.size(); ++i) {
        double const* const x = m_columns.data() + i * kColumns;
        double* const y = m_product.data() + i * kColumns;
        Columns sum{};
        if (rows.diagonal != nullptr)
            for (std::size_t c = 0; c < kColumns; ++c)
                sum[c] = rows.diagonal[i] * m_scale[i] * x[c];
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
            auto const j = static_cast<std::size_t>(rows.columnIndices[k]);
            double const entry = rows.values[k] * m_scale[j];
            double const* const xj = m_columns.data() + j * kColumns;
            for (std::size_t c = 0; c < kColumns; ++c)
                sum[c] += entry * xj[c];
            if (rows.diagonal != nullptr) { // half storage: its mirror image, too
                double const mirrored = rows.values[k] * m_scale[j] * m_scale[i];
                double* const yj = m_product.data() + j * kColumns;
                for (std::size_t c = 0; c < kColumns; ++c)
                    yj[c] += mirrored * x[c];
            }
        }
        for (std::size_t c = 0; c < kColumns; ++c)
            y[c] += m_scale[i] * sum[c];
    }
}

// One Lanczos step of every column. @return false where one is no number
bool SpectrumEstimate::Step(KVOSrvSparseMatrix const& stiffness)
{
    Multiply(stiffness);
    auto const subtract = [&](std::vector<double> const& from, Columns const& share) {
        for (std::size_t i = 0; i < m_scale.size(); ++i)
            for (std::size_t c = 0; c < kColumns; ++c)
                m_product[i * kColumns + c] -= share[c] * from[i * kColumns + c];
    };
    subtract(m_before, m_coupling);
    Columns const diagonal = Dot(m_product, m_columns);
    subtract(m_columns, diagonal);
    m_coupling = Dot(m_product, m_product);
    Columns inverse;
    for (std::size_t c = 0; c < kColumns; ++c) {
        m_coupling[c] = std::sqrt(m_coupling[c]);
        if (!std::isfinite(m_coupling[c]))
            return false;
        inverse[c] = m_coupling[c] > 0.0 ? 1.0 / m_coupling[c] : 0.0;
        m_diagonals[c].push_back(diagonal[c]);
        m_couplings[c].push_back(m_coupling[c]);
    }
    for (std::size_t i = 0; i < m_scale.size(); ++i)
        for (std::size_t c = 0; c < kColumns; ++c)
            m_product[i * kColumns + c] *= inverse[c];
    std::swap(m_before, m_columns);
    std::swap(m_columns, m_product);
    return true;
}

// The nodes of each column's quadrature: eigenvalues of the projection, with the squares of their vectors' first entries as weights. Half
// of a weight counts at its node.
void SpectrumEstimate::Evaluate()
{
    m_nodes.clear();
    for (std::size_t k = 0; k < m_diagonals.size(); ++k) {
        int const steps = static_cast<int>(m_diagonals[k].size());
        Panel projected(steps, steps);
        for (int i = 0; i < steps; ++i) {
            projected.At(i, i) = m_diagonals[k][static_cast<std::size_t>(i)];
            if (i + 1 < steps)
                projected.At(i + 1, i) = projected.At(i, i + 1) = m_couplings[k][static_cast<std::size_t>(i)];
        }
        std::vector<double> const values = Eigenpairs(projected);
        std::vector<Node> nodes;
        double below = 0.0;
        for (int i = 0; i < steps; ++i) {
            double const weight = Order() * projected.At(0, i) * projected.At(0, i);
            nodes.push_back({values[static_cast<std::size_t>(i)], below + 0.5 * weight});
            below += weight;
        }
        m_nodes.push_back(std::move(nodes));
    }
}

double SpectrumEstimate::Below(double value) const
{
    double sum = 0.0;
    for (std::vector<Node> const& nodes : m_nodes) {
        auto const next = std::ranges::upper_bound(nodes, value, {}, &Node::value);
        if (next == nodes.end()) {
            sum += Order();
        } else if (next != nodes.begin()) {
            Node const& before = next[-1];
            sum += before.below + (next->below - before.below) * (value - before.value) / (next->value - before.value);
        }
    }
    return sum / static_cast<double>(m_nodes.size());
}

// In the mean over the columns; a share of one where the first lies above: as in a solid, where the number of eigenvalues below a value
// grows with the third power of the nodes.
double SpectrumEstimate::NodesBelow(double value, double eigenvalues) const
{
    double nodes = 0.0;
    for (std::vector<Node> const& each : m_nodes) {
        auto const count = std::ranges::upper_bound(each, value, {}, &Node::value) - each.begin();
        nodes += count > 0 ? static_cast<double>(count) : std::min(1.0, std::cbrt(eigenvalues / each.front().below));
    }
    return nodes / static_cast<double>(m_nodes.size());
}

std::optional<double> SpectrumEstimate::ValueAbove(double eigenvalues) const
{
    if (!m_resolved)
        return std::nullopt;
    double low = 0.0, high = 0.0;
    for (std::vector<Node> const& nodes : m_nodes)
        high = std::max(high, nodes.back().value);
    if (!std::isfinite(high) || !(high > 0.0))
        return std::nullopt;
    for (int halving = 0; halving < 100 && high - low > 1e-6 * high; ++halving) {
        double const middle = 0.5 * (low + high);
        (Below(middle) < eigenvalues ? low : high) = middle;
    }
    return high;
}
