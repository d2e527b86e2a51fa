#pragma once

#include "KVOExport.h"

#include <cstddef>
#include <cstdint>

class KVOSrvDenseMatrix;

/// A dense matrix of doubles in memory: the common operand of the library.
///
/// Element (i, j), 0-based, stands at values[j * rows + i]: by columns, the leading dimension is always the number of
/// rows. A matrix that is created as diagonal stores its diagonal alone: `rows` doubles, entry i being element (i, i)
/// and every other element zero; such a matrix is square in use. Ranges (first, last) are inclusive at both ends. A
/// packed array is one of rows x columns whose leading dimension is its own number of rows.
///
/// A matrix owns its array, or wraps one of the caller's, which it never frees nor reallocates and which must outlive
/// it; a Fortran array is passed through the library so, without a copy. Several matrices may wrap one array, but where
/// a member has an operand beside the matrix it changes, their arrays may not overlap unless the member says so.
///
/// Shapes and arguments that a member checks are checked before anything changes; a refusal is a KVOSrvMtxIllegalInput
/// with the quoted name. Every member that allocates throws mem_OutOfMemory, before it has changed anything, when the
/// memory cannot be had. One object is used by one thread at a time.
class KVO_EXPORT KVOSrvMatrix
{
public:
    /// @param rows,columns  the shape, 0 allowed
    /// @param values        array to wrap; null: the matrix allocates its own, not initialised
    /// @param symmetric     the matrix is to be treated as symmetric; its values are not looked at
    /// @param diagonal      the array holds the diagonal alone, `rows` doubles
    /// @throws KVOSrvMtxIllegalInput "KVOSrvMatrix" if a size is negative
    /// @throws mem_OutOfMemory  also if rows * columns exceeds the largest `int`: an owned array has at most 2^31 - 1
    /// entries
    KVOSrvMatrix(int rows, int columns, double* values, bool symmetric, bool diagonal);

    /// Copies shape, flags and values into an array of its own, also when `other` wraps one. There is no move: a
    /// temporary is copied too.
    KVOSrvMatrix(KVOSrvMatrix const& other);

    /// Frees the array if it is the matrix's own.
    ~KVOSrvMatrix();

    /// @name Shape, flags, array
    /// @{

    /// Number of rows.
    int NumberOfRows() const noexcept { return m_rows; }
    /// Number of columns.
    int NumberOfColumns() const noexcept { return m_columns; }
    /// Whether the array holds the diagonal alone.
    bool IsDiagonal() const noexcept { return m_diagonal; }
    /// The flag given at creation, not a property of the values: see IsSymmetricNumerically().
    bool IsSymmetric() const noexcept { return m_symmetric; }
    /// The array; it stays the matrix's, and valid until an assignment or Transpose() reallocates it.
    double* Values() noexcept { return m_values; }
    /// The same for reading.
    double const* Values() const noexcept { return m_values; }
    /// How many entries members that take the array as full storage may reach: rows * columns, whoever wraps a diagonal
    /// vouching for its array, but `rows` where the array was allocated for a diagonal.
    std::int64_t AddressableEntries() const noexcept;
    /// @}

    /// @name Assignment and comparison
    /// @{

    /// Takes the values of `other`. Of equal shape, and unless this matrix is diagonal and `other` full, the values
    /// alone are copied and the flags of this matrix stay; otherwise the array is replaced, and shape and flags become
    /// those of `other`.
    /// @throws KVOSrvMtxIllegalInput "Assignment operator" if a wrapped array would have to be replaced
    KVOSrvMatrix& operator=(KVOSrvMatrix const& other);
    /// Sets every stored entry to `value`.
    KVOSrvMatrix& operator=(double value);

    /// Whether shapes, kinds of storage and all stored entries are equal, exactly; a NaN equals nothing, but an object
    /// always equals itself.
    bool operator==(KVOSrvMatrix const& other) const;
    /// Whether every stored entry equals `value`, exactly; true without entries.
    bool operator==(double value) const;
    /// @}

    /// @name Ranges
    /// They take the array as full storage, whatever IsDiagonal() says. A range outside an array that was allocated for
    /// a diagonal is refused.
    /// @{

    /// Copies the packed array `values` into rows startRow to endRow of the columns startCol to endCol.
    /// @throws KVOSrvMtxIllegalInput "SetValues" if the range is empty or leaves the matrix
    void SetValues(int startRow, int endRow, int startCol, int endCol, double const* values);
    /// The same with the array of `source` as the packed one; its shape plays no part, but it must hold that many
    /// entries.
    /// @throws KVOSrvMtxIllegalInput "SetValues" if the range is empty or leaves the matrix, or if `source` is too
    /// small
    void SetValues(int startRow, int endRow, int startCol, int endCol, KVOSrvMatrix const& source);
    /// SetValues() over all columns.
    void SetRows(int startRow, int endRow, KVOSrvMatrix const& source);
    /// Copies a range into the array of `target`, packed; the shape of `target` plays no part and stays.
    /// @throws KVOSrvMtxIllegalInput "GetValues" if the range is empty or leaves the matrix, or if `target` is too
    /// small
    void GetValues(int startRow, int endRow, int startCol, int endCol, KVOSrvMatrix& target) const;
    /// GetValues() over all columns.
    void GetRows(int startRow, int endRow, KVOSrvMatrix& target) const;

    /// Sets the diagonal to the NumberOfRows() values of `d`; a full matrix must have as many columns.
    void SetDiagonal(double const* d);
    /// Sets the diagonal to that of `source`.
    /// @throws KVOSrvMtxIllegalInput "SetDiagonal" if one of the two is not square, if this matrix is diagonal and
    ///         `source` full, or if `source` has fewer rows
    void SetDiagonal(KVOSrvMatrix const& source);

    /// Writes factor * source into the range that begins at (rowOffset, colOffset); of a diagonal `source` the zeros
    /// too. Between two diagonal matrices entry i goes to entry rowOffset + i. The range must lie in the matrix: this
    /// is not checked.
    /// `source` may be this matrix, at offset (0, 0).
    /// @throws KVOSrvMtxIllegalInput "SetSlice" if this matrix is diagonal and `source` full
    void SetSlice(double factor, KVOSrvMatrix const& source, int rowOffset, int colOffset);
    /// Adds factor * source to the range that begins at (rowOffset, colOffset), which must lie in the matrix: this is
    /// not checked. `source` may be this matrix, at offset (0, 0).
    /// @throws KVOSrvMtxIllegalInput "Assignment operator" if this matrix is diagonal
    void AddSlice(double factor, KVOSrvMatrix const& source, int rowOffset, int colOffset);
    /// @}

    /// @name Transposition and symmetry
    /// @{

    /// Transposes the matrix; does nothing if it is diagonal or declared symmetric. A wrapped array is rearranged where
    /// it is.
    /// @complexity one pass; a rectangular matrix takes an array of its own size, for a wrapped array until the return
    void Transpose();
    /// Copies one triangle of the leading square onto the other: the upper if there are fewer rows than columns, else
    /// the lower.
    void SetSymmetricResults();
    /// The same with each copy negated, 0 becoming -0; the diagonal stays as it is.
    void SetSkewSymmetricResults();
    /// Whether the matrix equals its transpose, exactly; a NaN off the diagonal gives false, a diagonal matrix true.
    bool IsSymmetricNumerically() const;
    /// @}

    /// @name Sums and scalings
    /// @{

    /// this := s * this, over the stored entries. A factor of 1 changes nothing, not even a NaN.
    void Multiply(double s);
    /// this := this + B. @throws KVOSrvMtxIllegalInput "*=" if B is this object, the shapes differ, or this matrix is
    /// diagonal and B full
    KVOSrvMatrix& operator+=(KVOSrvMatrix const& B);
    /// this := this + f * B; B may be this matrix. A factor of 0 does nothing, whatever the shapes.
    /// @throws KVOSrvMtxIllegalInput "Add" if the shapes differ, or this matrix is diagonal and B full
    void Add(double f, KVOSrvMatrix const& B);
    /// this := this + f * D, piece by piece of the stored matrix D, which may be smaller: the rows and columns behind
    /// it stay. A factor of 0 does nothing. A square matrix that is declared symmetric reads the upper triangle of D
    /// only, and its own upper triangle is then copied onto the lower one.
    /// @throws KVOSrvMtxIllegalInput "Add" if D has more rows or columns, "Assignment operator" if this matrix is
    /// diagonal
    /// @throws KVOSimException if the database fails; what was added by then stays
    void Add(double f, KVOSrvDenseMatrix const& D);
    /// this := (1 - t) * A + t * B; A and B may be this matrix. A NaN in `t` is let through.
    /// @throws KVOSrvMtxIllegalInput "Interpolate" if the shapes differ, t < 0, t > 1, or some of the three are
    /// diagonal but not all
    void Interpolate(double t, KVOSrvMatrix const& A, KVOSrvMatrix const& B);
    /// @}

    /// @name Products
    /// General products are DGEMM or DGEMV of the BLAS that is loaded.
    /// @{

    /// C := this * B, or C := C + this * B if `accumulate` is not 0, all three full.
    /// Nothing is checked: this matrix is m x k, B k x n and C m x n.
    /// @param option  not read
    void Multiply(KVOSrvMatrix const& B, KVOSrvMatrix& C, int option, int accumulate) const;
    /// this := A * B. Of two diagonal operands, a full matrix takes the diagonal of the product and clears its first
    /// column; what else it holds off the diagonal stays.
    /// @throws KVOSrvMtxIllegalInput "Multiply" if the shapes do not fit, if this matrix is diagonal and an operand is
    ///         not, or if a full product would overwrite an operand of its own
    void Multiply(KVOSrvMatrix const& A, KVOSrvMatrix const& B);
    /// Lower triangle of tiles of this := A * B, for a product known to be symmetric; complete it with
    /// SetSymmetricResults().
    /// The order is cut into tiles of 128, the first taking the remainder; the tiles above the diagonal ones are set to
    /// zero.
    /// @throws KVOSrvMtxIllegalInput "SymmetricMultiply" unless all three are full and square of one order and this one
    /// is no operand
    void SymmetricMultiply(KVOSrvMatrix const& A, KVOSrvMatrix const& B);
    /// C := this^T * B, or C := C + this^T * B if `accumulate` is not 0, all three full.
    /// Nothing is checked: this matrix is k x m, B k x n and C m x n.
    /// @param symmetricResult  not 0: only a triangle of the tiles of C is computed, the lower unless m < n, with both
    ///                         dimensions cut into tiles of 144, the last taking the remainder; the other tiles of C
    ///                         stay as they are
    void TransposeMultiply(KVOSrvMatrix const& B, KVOSrvMatrix& C, int symmetricResult, int accumulate) const;
    /// this := this * B for a square matrix or a diagonal B, but this := B * this for a single column (deliberate).
    /// @throws KVOSrvMtxIllegalInput "*=" if B is this object, NumberOfRows() is not B's number of columns, or B is
    /// diagonal and not square
    /// @throws KVOSrvMtxIllegalInput "Multiply" if B is full and not square, or this matrix is neither square nor a
    /// column, or diagonal
    KVOSrvMatrix& operator*=(KVOSrvMatrix const& B);
    /// @}

    /// Moves row i to row perm[i], column by column.
    /// @param perm  `n` row numbers, 0-based; one equal to `n` or below 0 is the caller's fault: its row goes nowhere
    /// @throws KVOSrvMtxIllegalInput "PermuteRowsInPlace" if `n` is not NumberOfRows() or the matrix is diagonal
    /// @throws KVOSrvMtxIllegalPermVect if an entry exceeds `n`; the column at hand, the first, is then partly written
    void PermuteRowsInPlace(int const* perm, int n);

    /// @name Linear systems and eigenproblems
    /// @{

    /// Replaces the matrix by its factors: L D L^T of its lower triangle (DSYTRF) if it is declared symmetric, else L U
    /// with row pivoting (DGETRF); a diagonal matrix by its inverse. A singular matrix is deliberately not reported:
    /// the caller finds out.
    ///
    /// @param[out] pivots  NumberOfRows() integers, LAPACK's 1-based pivots; not written for a diagonal matrix
    /// @throws KVOSrvMtxDivByZero at a zero entry of a diagonal matrix; the entries before it are inverted
    /// @throws KVOSrvMtxIllegalInput "Factorize" if a matrix declared symmetric has fewer columns than rows, or LAPACK
    /// refuses an argument
    void Factorize(int* pivots);
    /// Solves A X = rhs, or A^T X = rhs, with the factors of Factorize(); X overwrites `rhs`.
    ///
    /// @param pivots        those of Factorize(); not read for a diagonal matrix
    /// @param[in,out] rhs   full, as many rows as this matrix; its number of rows is not checked
    /// @param transposed    solve with A^T; without effect for a symmetric or diagonal matrix
    /// @throws KVOSrvMtxIllegalInput "ForwardBackwardPass" if this matrix has fewer columns than rows, `rhs` was
    ///         allocated as diagonal, or LAPACK refuses an argument
    void ForwardBackwardPass(int const* pivots, KVOSrvMatrix& rhs, bool transposed) const;
    /// Solves A x = lambda B x for all n eigenpairs (DSYGV), A being this matrix, B symmetric positive definite. A and
    /// B stay as they are.
    ///
    /// @param[out] eigenvalues   n rows, at least n stored entries; its array receives them in ascending order
    /// @param[out] eigenvectors  n x n, full; column i receives the vector of eigenvalue i, scaled to x^T B x = 1
    /// @throws KVOSrvMtxIllegalInput "SolveEigenproblemSymmetric" if the shapes do not fit, n is 0, or A or B is not
    /// symmetric exactly
    /// @throws KVOSrvMtxSolveNotConverge, KVOSrvMtxSolveNotPositive (B is not positive definite),
    ///         KVOSrvMtxSolveIllegalArg (LAPACK refuses an argument); the results are then whatever LAPACK left
    void SolveEigenproblemSymmetric(KVOSrvMatrix const& B, KVOSrvMatrix& eigenvalues, KVOSrvMatrix& eigenvectors) const;
    /// @}

private:
    std::int64_t StoredEntries() const noexcept;
    bool IsAllocatedAsDiagonal() const noexcept { return m_diagonal && m_ownsValues; }
    bool IsSquare() const noexcept { return m_rows == m_columns; }
    bool HasShapeOf(KVOSrvMatrix const& other) const noexcept
    {
        return m_rows == other.m_rows && m_columns == other.m_columns;
    }
    bool ContainsRange(int startRow, int endRow, int startCol, int endCol) const noexcept;
    double* Column(int column) noexcept { return m_values + std::ptrdiff_t{column} * m_rows; }
    double const* Column(int column) const noexcept { return m_values + std::ptrdiff_t{column} * m_rows; }
    std::ptrdiff_t DiagonalStride() const noexcept { return m_diagonal ? 1 : std::ptrdiff_t{m_rows} + 1; }
    void MirrorTriangle(bool negate);
    void MultiplyDiagonals(KVOSrvMatrix const& A, KVOSrvMatrix const& B);
    void MultiplyFromRight(KVOSrvMatrix const& B);
    void MultiplyFromLeft(KVOSrvMatrix const& B);
    void InvertDiagonal();

    // 1. Sizes are never negative. 2. The array has StoredEntries() doubles. 3. The flags are the creator's word: no
    // operation on values changes them, only the replacement of the array in operator=.
    double* m_values;
    int m_rows;
    int m_columns;
    bool m_ownsValues;
    bool m_symmetric;
    bool m_diagonal;
};
