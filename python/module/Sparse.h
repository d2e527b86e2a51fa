#pragma once

#include "Database.h"

#include "KVOSrvSparseMatrix.h"

#include <pybind11/numpy.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

/// A sparse matrix in memory, assembled.
class Sparse : public Home
{
public:
    explicit Sparse(std::unique_ptr<KVOSrvSparseMatrix> matrix) : m_matrix(std::move(matrix)) {}
    ~Sparse() override;

    /// What `make` makes, without the interpreter's lock.
    static std::shared_ptr<Sparse> Make(std::function<std::unique_ptr<KVOSrvSparseMatrix>()> const& make);
    /// Copies compressed rows, columns ascending. @param diagonal  None: full storage
    static std::shared_ptr<Sparse> FromRows(int rows, int columns, pybind11::array_t<int> const& rowStart,
                                            pybind11::array_t<int> const& columnIndices, pybind11::array_t<double> const& values,
                                            std::optional<pybind11::array_t<double>> const& diagonal);
    static std::shared_ptr<Sparse> FromDatabase(Database& database, Place const& place);
    /// @param format  as in MatrixName of the files: 0 to 7, -1: Matrix Market
    static std::shared_ptr<Sparse> Read(std::string const& path, int format, std::string const& variable);

    KVOSrvSparseMatrix const& Matrix() const noexcept { return *m_matrix; }
    bool IsHalfStored() const { return m_matrix->Rows().diagonal != nullptr; }
    bool IsSymmetric();
    std::shared_ptr<Sparse> InFullStorage();
    std::shared_ptr<Sparse> InHalfStorage();
    /// @param numbering  node and degree of freedom of each row, for format 4
    void Write(std::string const& path, int format, std::optional<pybind11::array_t<int>> const& numbering);
    Place Store(Database& database, About const& about, bool checksums);

    /// Y = A X, or A^T X. Shapes fit; both in Fortran order.
    void Multiply(pybind11::array_t<double> const& X, pybind11::array_t<double>& Y, bool transpose);

private:
    std::unique_ptr<KVOSrvSparseMatrix> m_matrix;
};

/// The stored rows as arrays of numpy, where they are: row starts, columns, values, and the diagonal of half storage or None. They keep the
/// matrix, which must not be changed by others from then on.
pybind11::tuple RowsOf(std::shared_ptr<Sparse> const& matrix);

/// The arrays of a sparse matrix of a database as they are stored, in the same order: mappings of the file where it is open for reading and
/// they have a place in it, else read.
pybind11::tuple StoredRows(Database& database, Place const& place, bool mapped);
