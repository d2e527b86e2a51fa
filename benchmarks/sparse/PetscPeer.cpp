// PETSc beside the places of sparse matrices.

#include "CoordinatePeer.h"

#include <petscmat.h>
#include <stdexcept>

namespace
{

void Require(PetscErrorCode code)
{
    if (code != 0)
        throw std::runtime_error("PETSc failed with status " + std::to_string(code));
}

// Of the whole process, from the first use on.
struct Petsc {
    Petsc() { Require(PetscInitializeNoArguments()); }
    ~Petsc() { PetscFinalize(); }
    Petsc(Petsc const&) = delete;
    Petsc& operator=(Petsc const&) = delete;
};

class PetscMatrix final : public CoordinatePeer
{
public:
    PetscMatrix(int order, std::vector<int> rows, std::vector<int> columns)
        : m_order(order), m_rows(std::move(rows)), m_columns(std::move(columns))
    {
        static Petsc const s_petsc;
        Locate();
    }
    ~PetscMatrix() override { MatDestroy(&m_matrix); }
    PetscMatrix(PetscMatrix const&) = delete;
    PetscMatrix& operator=(PetscMatrix const&) = delete;

    void Locate() override
    {
        Require(MatDestroy(&m_matrix));
        Require(MatCreate(PETSC_COMM_SELF, &m_matrix));
        Require(MatSetSizes(m_matrix, m_order, m_order, m_order, m_order));
        Require(MatSetType(m_matrix, MATSEQAIJ));
        std::vector<int> rows = m_rows, columns = m_columns; // it may change what it is given
        Require(MatSetPreallocationCOO(m_matrix, static_cast<PetscCount>(rows.size()), rows.data(), columns.data()));
    }

    void Sum(double const* values) override { Require(MatSetValuesCOO(m_matrix, values, INSERT_VALUES)); }

    std::vector<double> Sums() const override
    {
        MatInfo info;
        Require(MatGetInfo(m_matrix, MAT_LOCAL, &info));
        double const* sums = nullptr;
        Require(MatSeqAIJGetArrayRead(m_matrix, &sums));
        std::vector<double> copy(sums, sums + static_cast<std::ptrdiff_t>(info.nz_used));
        Require(MatSeqAIJRestoreArrayRead(m_matrix, &sums));
        return copy;
    }

private:
    int m_order;
    std::vector<int> m_rows, m_columns;
    Mat m_matrix = nullptr;
};

} // namespace

std::unique_ptr<CoordinatePeer> PetscByCoordinates(int order, std::vector<int> rows, std::vector<int> columns)
{
    return std::make_unique<PetscMatrix>(order, std::move(rows), std::move(columns));
}
