#include "SubspaceBasis.h"

#include "StiffnessSolver.h"

#include "KVOSrvDenseMatrixSet.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace
{

// Rows of a chunk, so that one of a basis of some dozens of columns has some megabytes.
constexpr int kChunkRows = 16384;
// What rounding leaves of the mass, 1, of a random column that lies in the others: some hundred times 2^-53.
constexpr double kNoMass = 1e-13;

KVOSrvMatrix Full(int rows, int columns)
{
    return KVOSrvMatrix(rows, columns, nullptr, false, false);
}

std::unique_ptr<KVOSrvScratchDenseMatrix> Scratch(int n, int columns)
{
    return std::make_unique<KVOSrvScratchDenseMatrix>(n, columns, std::min(n, kChunkRows), columns);
}

double& At(KVOSrvMatrix& matrix, int i, int j)
{
    return matrix.Values()[i + std::ptrdiff_t{j} * matrix.NumberOfRows()];
}

} // namespace

SubspaceBasis::SubspaceBasis(KVOSrvSparseMatrix const& mass, std::vector<double> const& massDiagonal, int columns) : m_mass(mass)
{
    // The sum of the squares of n uniform numbers between -1 and 1 is about n / 3.
    double const unit = std::sqrt(3.0 / static_cast<double>(massDiagonal.size()));
    for (double const entry : massDiagonal)
        m_scale.push_back(entry > 0.0 ? unit / std::sqrt(entry) : 0.0);
    Fill(0, columns);
}

SubspaceBasis::~SubspaceBasis() = default;

int SubspaceBasis::Columns() const
{
    return m_x->NumberOfColumns();
}

RitzPairs SubspaceBasis::Advance(StiffnessSolver& solver)
{
    int const width = m_y->MaxNumberOfColumnsInBlock();
    KVOSrvMatrix block = Full(m_y->NumberOfRows(), width);
    for (int b = 0; b < m_y->NumberOfColumnBlocks(); ++b) {
        int const first = m_y->FirstColumnInBlock(b);
        int const last = first + m_y->NumberOfColumnsInBlock(b) - 1;
        m_y->GetColumns(first, last, block);
        solver.Solve(block.Values(), last - first + 1);
        m_x->SetColumns(first, last, block);
    }
    m_mass.MultiplyDense(*m_x, *m_z, false);

    // One walk over the basis for both Gram matrices: [Y Z]^T X.
    int const q = Columns();
    KVOSrvDenseMatrix const* members[] = {m_y.get(), m_z.get()};
    KVOSrvDenseMatrixSet const set(members, 2);
    KVOSrvMatrix gram = Full(2 * q, q);
    set.TransposeMultiply(m_x.get(), gram, 0);
    KVOSrvMatrix stiffness = Full(q, q);
    KVOSrvMatrix mass = Full(q, q);
    gram.GetRows(0, q - 1, stiffness);
    gram.GetRows(q, 2 * q - 1, mass);
    RitzPairs ritz = SolveReduced(stiffness, mass);
    std::swap(m_y, m_z);
    Combine(ritz.combinations);
    return ritz;
}

void SubspaceBasis::Fill(int kept, int columns)
{
    Resize(columns);
    Randomize(kept);
    for (int pass = 0; kept > 0 && pass < 2; ++pass) { // the second one takes what rounding left in the first
        KVOSrvMatrix const gram = MassGram();
        KVOSrvMatrix project = Full(columns, columns);
        project = 0.0;
        for (int j = 0; j < columns; ++j) {
            At(project, j, j) = 1.0;
            for (int i = 0; j >= kept && i < kept; ++i)
                At(project, i, j) = -gram.Values()[i + std::ptrdiff_t{j} * columns];
        }
        Combine(project);
    }
    KVOSrvMatrix const gram = MassGram();
    KVOSrvMatrix fresh = Full(columns - kept, columns - kept);
    gram.GetValues(kept, columns - 1, kept, columns - 1, fresh);
    Symmetrize(fresh);
    KVOSrvMatrix const whitening = Whitening(fresh, kNoMass);
    int const found = whitening.NumberOfColumns();
    KVOSrvMatrix combinations = Full(columns, columns);
    combinations = 0.0;
    for (int j = 0; j < kept; ++j)
        At(combinations, j, j) = 1.0;
    for (int j = 0; j < found; ++j)
        for (int i = 0; i < columns - kept; ++i)
            At(combinations, kept + i, kept + j) = whitening.Values()[i + std::ptrdiff_t{j} * (columns - kept)];
    Combine(combinations);
    Resize(kept + found);
}

void SubspaceBasis::Resize(int columns)
{
    if (m_x && Columns() == columns)
        return;
    int const n = m_mass.NumberOfRows();
    for (auto* const matrix : {&m_x, &m_y}) {
        auto resized = Scratch(n, columns);
        for (int j = 0; *matrix && j < std::min((*matrix)->NumberOfColumns(), columns); ++j) {
            KVOSrvMatrix column = Full(n, 1);
            (*matrix)->GetColumns(j, j, column);
            resized->SetColumns(j, j, column);
        }
        *matrix = std::move(resized);
    }
    m_z = Scratch(n, columns);
}

void SubspaceBasis::Combine(KVOSrvMatrix const& combinations)
{
    m_x->MultiplyAssign(combinations);
    m_y->MultiplyAssign(combinations);
}

void SubspaceBasis::Randomize(int first)
{
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    KVOSrvMatrix column = Full(m_x->NumberOfRows(), 1);
    for (int j = first; j < Columns(); ++j) {
        std::ranges::transform(m_scale, column.Values(), [&](double scale) { return scale * uniform(m_generator); });
        m_x->SetColumns(j, j, column);
    }
    m_mass.MultiplyDense(*m_x, *m_y, false);
}

KVOSrvMatrix SubspaceBasis::MassGram()
{
    KVOSrvMatrix gram = Full(Columns(), Columns());
    m_y->TransposeMultiply(m_x.get(), gram, 1);
    return gram;
}
