#pragma once

#include "KVOExport.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

class KVOSrvBlaMatrix;
struct cow_Counter;

/// Deleter for a unique_ptr that holds a KVOSrvBlaMatrix, and no object of a class derived from it.
struct KVOSrvBlaMatrixDeleter {
    /// Deletes it.
    inline void operator()(KVOSrvBlaMatrix* matrix) const noexcept;
};
/// What View() and its like return.
using KVOSrvBlaMatrixPointer = std::unique_ptr<KVOSrvBlaMatrix, KVOSrvBlaMatrixDeleter>;

// The destructor is deliberately not virtual: whole programs know the class by its table, which has the one slot of
// Submatrix().
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"

/// A small dense matrix of doubles in memory, laid out as BLAS and LAPACK take it, whose array is shared with its
/// views.
///
/// Element (r, c), 0-based, stands c * m_offset + r places after the first: by columns, `m_offset` being the leading
/// dimension. Ranges (first, last) are inclusive at both ends. Views and their parent are equal partners in the array,
/// which lives as long as one of them; a view of a view shares it too. Products take views as operands and targets
/// without copying.
///
/// A matrix is general or structured: symmetric, or skew-symmetric, that is the negative of its transpose. Of a
/// structured one a triangle with the diagonal counts as stored, the upper if the matrix was made with fewer rows than
/// columns, else the lower. Scaling, sums and products work on that one and then overwrite the other with its mirror
/// image; everything else takes the values as they stand.
///
/// A broken precondition is the program's fault and ends the process: what a member asserts is reported on the error
/// stream with the text of the condition. Every member that allocates throws mem_OutOfMemory when the memory cannot be
/// had, with nothing changed unless it says otherwise. Arrays of two operands may overlap only where a member says so;
/// that is not checked. One array is used by one thread at a time.
class KVO_EXPORT KVOSrvBlaMatrix : public mem_AllocationOperators
{
public:
    /// What is promised about the values.
    enum KVOSrvMtxProperty : std::int32_t {
        KVOSrvMtxGeneral = 0,
        KVOSrvMtxSymmetric = 1,
        KVOSrvMtxSkewSymmetric =
            2, ///< the other triangle is the negated mirror image of the stored one; the diagonal is not looked at
        KVOSrvMtxSecondSymmetric = 3 ///< treated exactly like KVOSrvMtxSymmetric
    };

    /// @param dim1,dim2  rows and columns
    /// @param values     dim1 * dim2 consecutive doubles, by columns, which are copied; null: the matrix is zero
    /// @param property   taken at its word: the values are not looked at
    /// @throws mem_OutOfMemory  also if dim1 * dim2 is negative or exceeds the largest `int`
    KVOSrvBlaMatrix(int dim1, int dim2, double const* values, KVOSrvMtxProperty property);

    KVOSrvBlaMatrix(KVOSrvBlaMatrix const&) = delete;

    /// Frees the array if nothing else refers to it.
    ~KVOSrvBlaMatrix();

    /// @name Shape and structure
    /// @{

    /// Number of rows.
    int NumberOfRows() const noexcept { return m_dim1; }
    /// Number of columns.
    int NumberOfColumns() const noexcept { return m_dim2; }
    /// Whether the property is one of the symmetric ones.
    bool IsSymmetric() const noexcept
    {
        return m_property == KVOSrvMtxSymmetric || m_property == KVOSrvMtxSecondSymmetric;
    }
    /// Whether the property is the skew-symmetric one.
    bool IsSkewSymmetric() const noexcept { return m_property == KVOSrvMtxSkewSymmetric; }
    /// @}

    /// A view of the rows startRow to endRow of the columns startCol to endCol: general, whatever this matrix is.
    ///
    /// Products into a structured target fetch the tiles of their operands through this member, in the order that
    /// Multiply() states, and delete each. A class that overrides it returns null or an object that is a
    /// KVOSrvBlaMatrix and nothing more, since the destructor is not virtual; its values are taken with the leading
    /// dimension of this matrix.
    /// @return the view; the caller deletes it, before or after this matrix
    /// Asserts that the range is not empty and lies in the matrix.
    virtual KVOSrvBlaMatrix* Submatrix(int startRow, int endRow, int startCol, int endCol) const;
    /// What Submatrix() makes, held.
    KVOSrvBlaMatrixPointer View(int startRow, int endRow, int startCol, int endCol) const
    {
        return KVOSrvBlaMatrixPointer(Submatrix(startRow, endRow, startCol, endCol));
    }

    /// @name Values
    /// Copies of the rows startRow to lastRow of the columns startCol to lastCol. Source and target may overlap only if
    /// they are the same. They assert that the range is not empty and lies in the matrix.
    /// @{

    /// Copies the packed `array`, whose columns follow one another without gaps; null is not checked for, unlike in
    /// GetValues().
    void SetValues(int startRow, int lastRow, int startCol, int lastCol, double const* array);
    /// Copies the whole of `dimMatrix`. Asserts that it has the shape of the range.
    void SetValues(int startRow, int lastRow, int startCol, int lastCol, KVOSrvBlaMatrix const& dimMatrix);
    /// Copies the range into `array`, packed. Asserts that it is not null.
    void GetValues(int startRow, int lastRow, int startCol, int lastCol, double* array) const;
    /// Copies the range into the whole of `dimMatrix`. Asserts that it has the shape of the range.
    void GetValues(int startRow, int lastRow, int startCol, int lastCol, KVOSrvBlaMatrix& dimMatrix) const;

    /// Sets the main diagonal to the min(rows, columns) doubles of `values`. Nothing is checked.
    void SetDiagonal(double const* values);
    /// Copies values and property of `rhs` into this matrix's own array. Asserts that the shapes are equal, unless
    /// `rhs` is this object.
    KVOSrvBlaMatrix& operator=(KVOSrvBlaMatrix const& rhs);
    /// Sets every element to `value`; the property stays.
    KVOSrvBlaMatrix& operator=(double value);
    /// @}

    /// Transposes the matrix in place. Asserts that it is square or that its columns follow one another without gaps.
    ///
    /// A matrix that is not square takes a new array and deliberately keeps its leading dimension and its stored
    /// triangle: its elements are then by columns without gaps, and are no longer found by a member that goes by the
    /// leading dimension. It may not have views, nor be one: the array is replaced under them.
    /// @complexity one pass; a matrix that is not square allocates an array of its own size
    void Transpose();

    /// @name Scaling and sums
    /// @{

    /// this := alpha * this. A factor of 1 changes nothing, not even a triangle that is not the mirror image of the
    /// other.
    void Multiply(double alpha);
    /// this := this + alpha * rhs, exactly the sum or the difference for a factor of 1 or -1; `rhs` may be this matrix,
    /// and its property plays no part. A factor of 0 does nothing. Asserts that the shapes are equal.
    void Add(double alpha, KVOSrvBlaMatrix const& rhs);
    /// @}

    /// @name Products
    /// op(X) is X, or its transpose if the flag is set. The work is DGEMM of the BLAS that is loaded.
    /// @{

    /// this := alpha * op(A) * op(B) + beta * this; with a beta of 0 the old values are not read. Asserts that the
    /// shapes fit.
    ///
    /// Into a structured target only the tiles of 144 x 144 on and beside the diagonal are computed, on the side of the
    /// stored triangle and whole, about half of the work; a product of more than one tile is completed by mirroring.
    /// Tiles are fetched so: lower triangle, for each column block of op(B) that block, then each row block of op(A)
    /// from the diagonal on; upper triangle, for each row block of op(A) that block, then each column block of op(B)
    /// from the diagonal on. The inner ones are deleted one by one. Asserts that none is null; the inner dimension may
    /// not be 0, since a tile has elements.
    void Multiply(KVOSrvBlaMatrix const& A, KVOSrvBlaMatrix const& B, double alpha, double beta, bool transA,
                  bool transB);
    /// this := alpha * op(A) * this; like Multiply(), but the second factor is a copy of the first rows * columns
    /// doubles from the first element of this matrix on. Deliberate: of a view whose leading dimension is larger than
    /// its rows that is another matrix.
    void LeftMultiply(KVOSrvBlaMatrix const& A, double alpha, bool transA);
    /// this := alpha * this * op(B), with the same copy as the first factor.
    void RightMultiply(KVOSrvBlaMatrix const& B, double alpha, bool transB);
    /// @}

    /// Solves this * x = lambda * B * x for all n eigenpairs (DSYGV), both symmetric, B positive definite; their lower
    /// triangles are used.
    ///
    /// @param[out] Lambda  n doubles: the eigenvalues in ascending order
    /// @param[out] X       n x n; column i receives the vector of eigenvalue i, scaled to x^T B x = 1. It may be this
    ///                     matrix or B, which otherwise stay as they are.
    /// Asserts that both are declared symmetric, that the shapes fit, that n is not 0, that `Lambda` is not null, and
    /// that LAPACK succeeds: also a B that is not positive definite ends the process.
    void SolveEigenproblemSymmetric(KVOSrvBlaMatrix const& B, double* Lambda, KVOSrvBlaMatrix& X);

private:
    class Product;

    struct Rows {
        int first;
        int end; // one past the last
    };

    KVOSrvBlaMatrix(double* values, cow_Counter* counter, int offset, int dim1, int dim2);

    bool IsStructured() const noexcept { return IsSymmetric() || IsSkewSymmetric(); }
    double* Element(int row, int column) noexcept { return m_values + std::int64_t{column} * m_offset + row; }
    double const* Element(int row, int column) const noexcept
    {
        return m_values + std::int64_t{column} * m_offset + row;
    }
    void RequireRange(int startRow, int lastRow, int startCol, int lastCol, int line) const;
    Rows StoredRows(int column) const noexcept;
    void CompleteOtherTriangle();

    // 1. m_counter counts the objects that refer to the array and knows where that begins; it is never freed. 2.
    // m_offset >= m_dim1, but for a matrix that was transposed and is not square. 3. m_lowerStored is decided when the
    // object is made.
    double* m_values;
    int m_offset;
    int m_dim1;
    int m_dim2;
    KVOSrvMtxProperty m_property;
    bool m_lowerStored;
    cow_Counter* m_counter;
};

inline void KVOSrvBlaMatrixDeleter::operator()(KVOSrvBlaMatrix* matrix) const noexcept
{
    delete matrix;
}

#pragma GCC diagnostic pop
