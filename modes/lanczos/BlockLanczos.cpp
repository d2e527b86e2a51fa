#include "BlockLanczos.h"

#include "NegativeMass.h"
#include "StateWords.h"
#include "Whitening.h"

#include "KVOSrvModesFailure.h"
#include "KVOSrvSparseFactor.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <utility>

namespace
{

// What rounding leaves of a column that lies in V, as a share of what it was: some hundred times 2^-53.
constexpr double kNothingLeft = 1e-13;
// What is left of the square of a column that depends on others of its block but for rounding.
constexpr double kDependent = 1e-12;
// A column of norm 1 of which less is left was rounding.
constexpr double kRealShare = 0.25;
// A negative share of a column's mass beyond rounding: the mass matrix is not positive semidefinite.
constexpr double kNegativeMass = 1e-6;

// Makes rows and columns of a Gram matrix 0.
template<class Condition>
void ClearColumns(Panel& gram, Condition const& isCleared)
{
    std::vector<int> cleared;
    for (int j = 0; j < gram.columns; ++j)
        if (isCleared(j))
            cleared.push_back(j);
    for (int const k : cleared)
        for (int i = 0; i < gram.rows; ++i)
            gram.At(i, k) = gram.At(k, i) = 0.0;
}

// Of the numbers of a random column, for a mass of about 1: the sum of the squares of n uniform ones between -1 and 1 is about n / 3.
std::vector<double> ScaleOf(std::vector<double> const& massDiagonal)
{
    double const unit = std::sqrt(3.0 / static_cast<double>(massDiagonal.size()));
    std::vector<double> scale;
    for (double const entry : massDiagonal)
        scale.push_back(entry > 0.0 ? unit / std::sqrt(entry) : 0.0);
    return scale;
}

int ReadSize(StateWords& words)
{
    int size = 0;
    words.Exchange(size);
    return size;
}

void ExchangePanel(StateWords& words, Panel& panel)
{
    words.Exchange(panel.rows);
    words.Exchange(panel.columns);
    words.Exchange(panel.values);
}

} // namespace

BlockLanczos::BlockLanczos(KVOSrvSparseFactor& factor, KVOSrvSparseMatrix const& mass, std::vector<double> const& massDiagonal, int block,
                           int capacity, unsigned seed)
    : m_factor(factor), m_mass(mass), m_scale(ScaleOf(massDiagonal)), m_order(mass.NumberOfRows()), m_block(block), m_generator(seed),
      m_basis(m_order, capacity, block)
{
    m_next = Panel(m_order, 0);
    m_massNext = m_next;
    AddRandom(block);
}

// The members are in the order of the words: block and capacity come first.
BlockLanczos::BlockLanczos(KVOSrvSparseFactor& factor, KVOSrvSparseMatrix const& mass, std::vector<double> const& massDiagonal,
                           StateWords& kept)
    : m_factor(factor), m_mass(mass), m_scale(ScaleOf(massDiagonal)), m_order(mass.NumberOfRows()), m_block(ReadSize(kept)),
      m_basis(m_order, ReadSize(kept), m_block)
{
    ExchangeRest(kept);
}

void BlockLanczos::Exchange(StateWords& words)
{
    int capacity = Capacity();
    words.Exchange(m_block);
    words.Exchange(capacity);
    ExchangeRest(words);
}

void BlockLanczos::ExchangeRest(StateWords& words)
{
    words.Exchange(m_generator);
    words.ExchangeAll(m_projected);
    for (Panel* const panel : {&m_next, &m_massNext, &m_coupling})
        ExchangePanel(words, *panel);
}

Panel BlockLanczos::MassTimes(Panel const& block) const
{
    Panel product(block.rows, block.columns);
    m_mass.Multiply(block.values.data(), block.columns, product.values.data(), false);
    return product;
}

// block -= V H + F G, with H = V^T M block and G = F^T M block. @return H
Panel BlockLanczos::TakeOut(Panel& block, Panel& massBlock) const
{
    Panel coefficients(Columns(), block.columns);
    KVOSrvMatrix coefficientView = coefficients.View(), view = block.View();
    m_basis.Project(massBlock.View(), coefficientView);
    m_basis.Subtract(coefficientView, view);
    if (m_next.columns > 0) {
        Panel const inNext = Times(m_next, TransposeTimes(m_next, massBlock));
        std::ranges::transform(block.values, inNext.values, block.values.begin(), std::minus<>());
    }
    return coefficients;
}

// Adds the directions of `block` outside of V and F to F, M-orthonormal. The second pass is made on columns of norm 1, so that rounding, of
// which little but large parts may be left in a short column, is told from a direction: it goes in that pass.
BlockLanczos::Parts BlockLanczos::Extend(Panel block)
{
    Panel massBlock = MassTimes(block);
    std::vector<double> squares;
    double largest = 0.0;
    for (int j = 0; j < block.columns; ++j) {
        squares.push_back(std::inner_product(block.Column(j), block.Column(j) + m_order, massBlock.Column(j), 0.0));
        largest = std::max(largest, squares.back());
    }
    for (double const square : squares)
        if (square < -kNegativeMass * largest || (largest == 0.0 && square < 0.0))
            KVOSrvModesFailure(KVOSrvModesFailure::Pair, kNegativeMassText).Throw("modes/BlockLanczos", __LINE__);
    Panel coefficients = TakeOut(block, massBlock);
    massBlock = MassTimes(block);
    Panel gram = TransposeTimes(block, massBlock);
    ClearColumns(gram, [&](int j) { return !(gram.At(j, j) > kNothingLeft * kNothingLeft * squares[static_cast<std::size_t>(j)]); });
    Panel const first = Whitening(gram, kDependent);
    Panel unit = Times(block, first), massUnit = Times(massBlock, first);
    Panel const sizes = TransposeTimes(massUnit, block);

    Panel const more = Times(TakeOut(unit, massUnit), sizes);
    std::ranges::transform(coefficients.values, more.values, coefficients.values.begin(), std::plus<>());
    massUnit = MassTimes(unit);
    gram = TransposeTimes(unit, massUnit);
    ClearColumns(gram, [&](int j) { return !(gram.At(j, j) > kRealShare); });
    Panel const second = Whitening(gram, kDependent);
    Panel const next = Times(unit, second), massNext = Times(massUnit, second);
    auto const append = [](Panel& to, Panel const& from) {
        to.values.insert(to.values.end(), from.values.begin(), from.values.end());
        to.columns += from.columns;
    };
    append(m_next, next);
    append(m_massNext, massNext);
    return {std::move(coefficients), Times(TransposeTimes(massNext, unit), sizes)};
}

void BlockLanczos::AddRandom(int columns)
{
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    Panel block(m_order, columns);
    for (int j = 0; j < columns; ++j)
        std::ranges::transform(m_scale, block.Column(j), [&](double scale) { return scale * uniform(m_generator); });
    Extend(std::move(block));
}

void BlockLanczos::Step()
{
    int const first = Columns(), width = m_next.columns;
    m_basis.Append(m_next.View());
    Panel block = std::move(m_massNext);
    {
        KVOSrvMatrix view = block.View();
        m_factor.Solve(view);
    }
    m_next = m_massNext = Panel(m_order, 0);
    Parts const parts = Extend(std::move(block));
    m_coupling = Panel(m_next.columns, Columns());
    for (int j = 0; j < width; ++j) {
        m_projected.emplace_back(parts.inside.Column(j), parts.inside.Column(j) + parts.inside.rows);
        std::copy_n(parts.outside.Column(j), parts.outside.rows, m_coupling.Column(first + j));
    }
    if (m_next.columns < m_block)
        AddRandom(m_block - m_next.columns); // their rows of B are 0
    m_decomposed = false;
}

void BlockLanczos::Decompose()
{
    if (std::exchange(m_decomposed, true))
        return;
    int const k = Columns();
    Panel t(k, k);
    for (int j = 0; j < k; ++j)
        for (std::size_t i = 0; i < m_projected[static_cast<std::size_t>(j)].size(); ++i)
            t.At(std::max(static_cast<int>(i), j), std::min(static_cast<int>(i), j)) = m_projected[static_cast<std::size_t>(j)][i];
    std::vector<double> const theta = Eigenpairs(t);
    std::vector<int> order(static_cast<std::size_t>(k));
    std::iota(order.begin(), order.end(), 0);
    auto const rank = [&](int i) {
        double const value = theta[static_cast<std::size_t>(i)];
        return std::pair(m_prefersNegative && value > 0.0, -std::fabs(value));
    };
    std::ranges::sort(order, {}, rank);
    m_combinations = Panel(k, k);
    m_ritz.assign(static_cast<std::size_t>(k), {});
    for (int j = 0; j < k; ++j)
        std::copy_n(t.Column(order[static_cast<std::size_t>(j)]), k, m_combinations.Column(j));
    Panel const outside = Times(m_coupling, m_combinations);
    for (int j = 0; j < k; ++j) {
        double const* const column = outside.Column(j);
        m_ritz[static_cast<std::size_t>(j)] = {theta[static_cast<std::size_t>(order[static_cast<std::size_t>(j)])],
                                               std::sqrt(std::inner_product(column, column + outside.rows, column, 0.0))};
    }
}

void BlockLanczos::PreferNegative()
{
    m_prefersNegative = true;
    m_decomposed = false;
}

std::vector<RitzValue> const& BlockLanczos::Ritz()
{
    Decompose();
    return m_ritz;
}

Panel BlockLanczos::Vectors(int first, int count)
{
    Decompose();
    Panel chosen(Columns(), count);
    std::copy_n(m_combinations.Column(first), chosen.values.size(), chosen.values.begin());
    Panel vectors(m_order, count);
    KVOSrvMatrix view = vectors.View();
    m_basis.Combine(chosen.View(), view);
    return vectors;
}

void BlockLanczos::Restart(int kept)
{
    Decompose();
    Panel chosen = m_combinations;
    chosen.Cut(kept);
    m_coupling = Times(m_coupling, chosen);
    m_basis.Rotate(chosen.View());
    m_projected.clear();
    for (int j = 0; j < kept; ++j) {
        m_projected.emplace_back(static_cast<std::size_t>(j + 1));
        m_projected.back().back() = m_ritz[static_cast<std::size_t>(j)].theta;
    }
    m_decomposed = false;
}

void BlockLanczos::Refresh(int block)
{
    m_block = block;
    m_next = m_massNext = Panel(m_order, 0);
    AddRandom(block);
    m_coupling = Panel(m_next.columns, Columns());
    m_decomposed = false;
}

void BlockLanczos::Lock(Panel const& vectors, std::vector<double> const& theta)
{
    Panel known = vectors;
    m_basis.Append(known.View());
    for (std::size_t j = 0; j < theta.size(); ++j) {
        m_projected.emplace_back(j + 1);
        m_projected.back().back() = theta[j];
    }
    Refresh(m_block);
}

void BlockLanczos::Reserve(int capacity)
{
    m_basis.Reserve(capacity);
}
