#pragma once

/// @file
/// The dense matrix in the database, and how it may be read and written.

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimDistribution.h"
#include "KVOSimIdentifiers.h"
#include "KVOSimTransfer.h"
#include "KVOSrvBlockCut.h"
#include "mem_Allocator.h"

#include <memory>

class KVOSimCSet;
class KVOSrvMatrix;

/// How a matrix is about to be read and written.
enum KVOSrvAccessType : int {
    KVOSrvAccessDefault = 0,
    KVOSrvAccessRows = 1,
    KVOSrvAccessColumns = 2,
    KVOSrvAccessAll = 3
};

/// A dense matrix of doubles out of core: it lives in one distribution of the simulation database, one chunk of which
/// is one block.
///
/// Row, column and block numbers are 0-based; every range (first, last) is inclusive at both ends. A two-dimensional
/// distribution has dimension 0 over the columns and dimension 1 over the rows, rows varying fastest; a one-dimensional
/// one is a single column. In-memory operands are column-major; a transfer uses an operand's array as a flat buffer and
/// packs the range at its start, whatever the operand's own shape.
/// Failures of the database are KVOSimException and pass unchanged, unless an operation says otherwise.
class KVO_EXPORT KVOSrvDenseMatrix : public mem_AllocationOperators
{
public:
    /// The null matrix: no distribution, no rows, no columns.
    KVOSrvDenseMatrix();
    /// The matrix stored in the first drawer of a distribution; a null one gives the null matrix.
    /// @throws KVOSrvMtxIllegalInput "KVOSrvDenseMatrix" when that is no dense matrix of doubles with one or two
    /// dimensions
    explicit KVOSrvDenseMatrix(KVOSimDistributionID const& distribution);
    /// The same, of an open distribution.
    explicit KVOSrvDenseMatrix(KVOSimDistribution const& distribution);
    KVOSrvDenseMatrix(KVOSrvDenseMatrix const&) = delete;
    KVOSrvDenseMatrix& operator=(KVOSrvDenseMatrix const&) = delete;
    virtual ~KVOSrvDenseMatrix();

    /// The set that numbers the rows. A view answers a temporary set of its part of the members, which lives as long as
    /// the view, or as what uses it (a drawer, a scratch matrix made from it, a KVOSimCSet).
    virtual KVOSimCSetID RowCSetID() const;
    /// The set that numbers the columns, as RowCSetID(); a one-dimensional matrix has none.
    virtual KVOSimCSetID ColumnCSetID() const;

    /// A view of rows r0 to r1 and columns c0 to c1, which must lie inside this matrix; nothing is copied. It stays
    /// valid when this matrix is gone. The caller owns it and deletes it.
    virtual KVOSrvDenseMatrix* ConstSubmatrix(int r0, int r1, int c0, int c1) const;
    /// The same for a matrix that may be written through the view.
    virtual KVOSrvDenseMatrix* Submatrix(int r0, int r1, int c0, int c1);
    /// What ConstSubmatrix() makes, held; of a scratch matrix too.
    std::unique_ptr<KVOSrvDenseMatrix const> View(int r0, int r1, int c0, int c1) const
    {
        return std::unique_ptr<KVOSrvDenseMatrix const>(ConstSubmatrix(r0, r1, c0, c1));
    }
    /// What Submatrix() makes, held.
    std::unique_ptr<KVOSrvDenseMatrix> View(int r0, int r1, int c0, int c1)
    {
        return std::unique_ptr<KVOSrvDenseMatrix>(Submatrix(r0, r1, c0, c1));
    }

    /// @name Products
    /// Small slabs are multiplied in one call of DGEMM; slabs of more than 2 MiB may be cut, and sums are then formed
    /// block by block in order. Where the rows of a stored operand do not suffice, KVOSrvMtxInvalidGetRange or
    /// KVOSrvMtxInvalidSetRange is thrown as by the transfer, and KVOSrvMtxIllegalInput for other operands that do not
    /// fit; nothing is changed then.
    ///
    /// Where the host lends threads (KVOSrvParallel) slabs whose results lie apart, those of different rows of the
    /// result, are multiplied at once, one by a thread; the calling thread reads them before, one after the other. It
    /// takes the memory of a slab, and of its result where that is stored, for each thread, of at most 64. What is
    /// summed into the same rows, as C = A^T X slab of rows by slab of rows with more than 128 vectors or a symmetric
    /// result, stays with the calling thread.
    ///
    /// Within a limit that the caller sets: KVOSrvProductMemory. Products are formed tile by tile then, and the pieces
    /// of a tile's product multiplied at once.
    /// @{

    /// y += A x for k vectors. @param x  columns x k @param y  rows x k, not cleared, deliberately: callers pass a
    /// prepared y
    virtual void Multiply(double const* x, int k, double* y) const;
    /// Y = A X. @param X  columns x p @param Y  rows x p
    virtual void Multiply(KVOSrvMatrix const& X, KVOSrvMatrix& Y) const;
    /// C = A B into the caller's rows x p array, column-major. @param B  stored, columns x p
    virtual void Multiply(KVOSrvDenseMatrix const* B, double* C) const;
    /// C = A B, all stored; C is not A or B.
    virtual void Multiply(KVOSrvDenseMatrix const& B, KVOSrvDenseMatrix& C) const;
    /// Y = alpha A X + beta Y, block row of Y by block row; beta 0 never reads Y. With a diagonal X alpha is not
    /// applied.
    virtual void Multiply(double alpha, KVOSrvMatrix const& X, double beta, KVOSrvDenseMatrix& Y) const;
    /// A = A X, in place. @param X  square, of order columns
    virtual void MultiplyAssign(KVOSrvMatrix const& X);
    /// y += A(0 .. r-1, :)^T x for k vectors. @param x  r x k @param y  columns x k
    virtual void TransposeMultiply(double const* x, int k, double* y, int r) const;
    /// Y = alpha (P A)^T X + beta Y, with the rows of A permuted by `perm`, or not at all when it is null.
    virtual void TransposeMultiply(int const* perm, KVOSrvMatrix const& X, KVOSrvMatrix& Y, double alpha, double beta);
    /// C = A^T X into the caller's array, columns x (columns of X), column-major. @param symmetric  as in the next one
    virtual void TransposeMultiply(KVOSrvMatrix const& X, double* C, int symmetric) const;
    /// C = A^T X; a non-zero `symmetric` says that the result is symmetric: half of it is computed and mirrored.
    virtual void TransposeMultiply(KVOSrvMatrix const& X, KVOSrvMatrix& C, int symmetric) const;
    /// C = A^T B, all stored; columns of C behind those of B stay. The product is formed in memory, so C may be A or B;
    /// under a limit of memory such a C is formed in a scratch matrix.
    /// @param symmetric  as in the product with X
    virtual void TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvDenseMatrix* C, int symmetric) const;
    /// C = A^T B into the caller's array, columns x (columns of B), column-major. @param symmetric  as in the product
    /// with X
    virtual void TransposeMultiply(KVOSrvDenseMatrix const* B, double* C, int symmetric) const;
    /// C = A^T B of a stored B. @param symmetric  as in the product with X
    virtual void TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvMatrix& C, int symmetric) const;
    /// Rows ranges[g] .. ranges[g + 1] - 1 of Y = rows rows[ranges[g]] .. of A, times X, for g = 0 .. nRanges - 1; the
    /// row numbers of a group are consecutive, as KVOSrvFindContiguousRanges makes them.
    virtual void IndexedMultiply(KVOSrvMatrix const& X, KVOSrvDenseMatrix& Y, int const* rows, int const* ranges,
                                 int nRanges) const;

    /// @}

    /// Whether it has no distribution.
    bool IsNull() const noexcept { return m_distribution.IsNull(); }
    /// Null for the null matrix.
    KVOSimDistributionID DistributionID() const { return m_distribution.ID(); }

    /// @name Blocks
    /// Numbers out of range get an answer too; the rules stand at KVOSrvBlockCut.
    /// @{

    /// Number of rows.
    int NumberOfRows() const noexcept { return m_rowCut.size; }
    /// Number of columns.
    int NumberOfColumns() const noexcept { return m_columnCut.size; }
    /// Number of blocks along the rows; 0 without rows.
    int NumberOfRowBlocks() const noexcept { return m_rowCut.blocks; }
    /// Number of blocks along the columns; 0 without columns.
    int NumberOfColumnBlocks() const noexcept { return m_columnCut.blocks; }
    /// Rows of the blocks in block row `b`.
    int NumberOfRowsInBlock(int b) const noexcept { return m_rowCut.NumberInBlock(b); }
    /// Columns of the blocks in block column `b`.
    int NumberOfColumnsInBlock(int b) const noexcept { return m_columnCut.NumberInBlock(b); }
    /// Rows of the highest block.
    int MaxNumberOfRowsInBlock() const noexcept { return m_rowCut.MaxNumberInBlock(); }
    /// Columns of the widest block.
    int MaxNumberOfColumnsInBlock() const noexcept { return m_columnCut.MaxNumberInBlock(); }
    /// Rows of the block rows `b0` to `b1`.
    int NumberOfRowsInBlockRange(int b0, int b1) const noexcept { return m_rowCut.NumberInBlocks(b0, b1); }
    /// Columns of the block columns `b0` to `b1`.
    int NumberOfColumnsInBlockRange(int b0, int b1) const noexcept { return m_columnCut.NumberInBlocks(b0, b1); }
    /// First row of block row `b`.
    int FirstRowInBlock(int b) const noexcept { return m_rowCut.FirstInBlock(b); }
    /// First column of block column `b`.
    int FirstColumnInBlock(int b) const noexcept { return m_columnCut.FirstInBlock(b); }
    /// The block row of row `r`.
    int BlockContainingRow(int r) const noexcept { return m_rowCut.BlockContaining(r); }
    /// The block column of column `c`.
    int BlockContainingColumn(int c) const noexcept { return m_columnCut.BlockContaining(c); }
    /// The same rows cut where the store is: what a walk over a matrix that may have been extended goes by.
    KVOSrvBlockCut StoredRowBlocks() const noexcept { return m_rowCut.Stored(); }
    /// The same columns cut where the store is.
    KVOSrvBlockCut StoredColumnBlocks() const noexcept { return m_columnCut.Stored(); }
    /// @}

    /// Whether some stored value belongs to both matrices, as with two views that overlap.
    bool Overlaps(KVOSrvDenseMatrix const& other) const noexcept;

    /// Whether the chunk that holds that block was ever written; block numbers as in this matrix. False for a block
    /// that is not there, and true for every block of a matrix that is stored without chunks.
    bool BlockAllocated(int blockRow, int blockColumn) const;

    /// -1 when the stored matrix can grow along no dimension, its number (0 columns, 1 rows) when along one, 2 when
    /// along both.
    int ExtendableDim() const;
    /// Appends `count` members with the given numbers to the columns (dim 0) or the rows (dim 1; of a one-dimensional
    /// matrix dim 0, too) of the stored matrix; the new values are zero. Views made before keep their size.
    /// @return 0 done; 1 this is a view; 2 there are no new members (count below 1, or null); 3 the matrix has no such
    ///         dimension; 4 a number is there already, or twice among the new ones. Nothing is changed but for 0, nor
    ///         when an exception leaves
    /// @throws KVOSimException if the database fails, or another object has extended the same stored matrix
    int ExtendDim(int dim, int count, int const* numbers);
    /// Tells the database how the matrix will be used, so that it can size its cache; the database caps the wish. Other
    /// values than the named ones change nothing.
    void SetAccess(KVOSrvAccessType access);

    /// @name Transfers
    /// One transfer of the database each. The array of `m` is full storage, whatever its flags; its shape plays no
    /// part.
    /// @{

    /// Writes rows r0 to r1, columns c0 to c1 from the start of m's array, packed by columns.
    /// @throws KVOSrvMtxInvalidSetRange when the range is empty or leaves this matrix; nothing is written then
    /// @throws KVOSimDebugOutString with the database's text when the database fails; also when m's array is smaller
    ///         than the range: nothing is written then
    void SetValues(int r0, int r1, int c0, int c1, KVOSrvMatrix const& m);
    /// Reads that range to the start of m's array, packed by columns.
    /// @throws KVOSrvMtxInvalidGetRange when the range is empty or leaves this matrix
    /// @throws KVOSimException also when m's array is smaller than the range; nothing is read then
    void GetValues(int r0, int r1, int c0, int c1, KVOSrvMatrix& m) const;
    /// SetValues() over all columns.
    void SetRows(int r0, int r1, KVOSrvMatrix const& m) { SetValues(r0, r1, 0, NumberOfColumns() - 1, m); }
    /// GetValues() over all columns.
    void GetRows(int r0, int r1, KVOSrvMatrix& m) const { GetValues(r0, r1, 0, NumberOfColumns() - 1, m); }
    /// SetValues() over all rows.
    void SetColumns(int c0, int c1, KVOSrvMatrix const& m) { SetValues(0, NumberOfRows() - 1, c0, c1, m); }
    /// GetValues() over all rows.
    void GetColumns(int c0, int c1, KVOSrvMatrix& m) const { GetValues(0, NumberOfRows() - 1, c0, c1, m); }
    /// Writes all of it as a dense file, format 7 of sparse matrices (docs/sparse-files.md), column by column. A file
    /// of that name is replaced.
    /// @throws KVOSrvMtxOpenFileException, KVOSrvMtxFileWriteFailure with the path; KVOSimException when the database
    /// fails
    void ExportDense(char const* path) const;
    /// The same as a Matrix Market file, "array real general".
    void ExportMatrixMarket(char const* path) const;
    /// The values of that range where the database keeps them, packed as GetValues() packs them, or null: it may be any
    /// range that is more than one block, or not at hand. For those that can do without a copy; they stay there until
    /// the next call for a matrix of the file.
    /// @throws KVOSimException when the database fails
    double const* ValuesInPlace(int r0, int r1, int c0, int c1) const;
    /// The same, also at the first use, and fetched from the disk where they have to be: for a walk through the matrix.
    double const* FetchInPlace(int r0, int r1, int c0, int c1) const;
    /// As ValuesInPlace(), to be changed there.
    double* ValuesInPlace(int r0, int r1, int c0, int c1);
    /// Starts reading that range into memory, for a GetValues that follows soon; does not wait. Ranges outside are
    /// ignored.
    void AnnounceRead(int r0, int r1, int c0, int c1) const noexcept;
    /// @}

    /// @name Whole matrices
    /// They work in pieces: the memory held is one block at most (two with a second matrix), where nothing else is
    /// said. Shapes and arguments are checked first; a refusal is KVOSrvMtxIllegalInput with the member's name. When
    /// the database fails on the way, what was written by then stays. Empty and null matrices have nothing to do. Under
    /// a limit of memory (KVOSrvProductMemory) pieces are smaller where they would exceed it.
    /// @{

    /// The whole matrix, column-major, rows x columns, in one transfer. @param out  not null, unless the matrix is
    /// empty
    void GetAllValues(double* out) const;
    /// The upper triangle, packed by columns: for column j rows 0 to j. At least as many rows as columns.
    void GetUpperValues(double* out) const;
    /// The lower triangle, packed by rows: for row i columns 0 to i. At least as many columns as rows.
    void GetLowerValues(double* out) const;
    /// (A + A^T) / 2 of a square matrix, packed as GetUpperValues; the diagonal is not touched by rounding.
    void GetSymmetricValues(double* out) const;
    /// Copies rows r0 to r1, columns c0 to c1 to the rows and columns of `dest` from 0 on, block of `dest` by block.
    /// @throws KVOSrvMtxInvalidGetRange when the range is empty or leaves this matrix, KVOSrvMtxInvalidSetRange when
    ///         `dest` has fewer columns; rows that `dest` lacks are left out
    void GetSubmatrix(KVOSrvDenseMatrix& dest, int r0, int r1, int c0, int c1) const;
    /// Clears the first n x columns values of out's array and places every row i of this matrix into its row rowMap[i],
    /// n being the leading dimension.
    /// @param rowMap  NumberOfRows() numbers, 0 to n - 1; of rows that go to one place the last one stays
    void CopyRowsToMemory(int const* rowMap, int n, KVOSrvMatrix& out) const;
    /// Copies a matrix of the same size into this one. Views of one matrix may overlap in rows (not in columns: unless
    /// these are the same, what is read may have been written before). Holds at most a block column of `src`.
    void CopyValues(KVOSrvDenseMatrix const* src);
    /// Copies the rows of src into the rows of this matrix that carry the same member numbers; others are skipped.
    /// `src` has no more columns than this matrix, and member numbers are not negative. Holds at most a block column of
    /// `src` and of this matrix.
    /// @param clear  rows without a source become zero; false: every row has one, deliberately not checked (such rows
    /// are zeroed too)
    void CopyMappedRows(KVOSrvDenseMatrix const* src, bool clear);
    /// this := this + other, of the same size; `other` may be this matrix.
    void AddAssign(KVOSrvDenseMatrix const& other);
    /// this := factor * this.
    void Scale(double factor);
    /// Whether the matrix is square and equals its transpose, exactly; a NaN off the diagonal gives false.
    bool IsSymmetric() const;
    /// @}

protected:
    /// The view of P's rows r0 to r1 and columns c0 to c1; not checked.
    KVOSrvDenseMatrix(KVOSrvDenseMatrix const& parent, int r0, int r1, int c0, int c1);

    /// Binds a null matrix to a distribution.
    void Bind(KVOSimDistribution const& distribution);

private:
    int ExtendDim(KVOSimCSetID const& newMembers);
    void RequireStoredSize() const;
    KVOSimCSetID PartOfMembers(KVOSimCSetID const& stored, KVOSrvBlockCut const& cut,
                               std::unique_ptr<KVOSimCSet const>& part) const;
    bool Contains(int r0, int r1, int c0, int c1) const noexcept;
    KVOSimTransfer TransferOf(int r0, int r1, int c0, int c1) const;

    // 1. m_distribution is null and everything else as it is here, or m_transfer is set and stands on it. 2. m_transfer
    // has no view: what is transferred goes through a copy of it.
    KVOSimDistribution m_distribution;
    bool m_isView = false;
    KVOSrvBlockCut m_rowCut;
    KVOSrvBlockCut m_columnCut;
    std::unique_ptr<KVOSimTransfer> m_transfer;
    KVOSimCSetID m_rowCSetID; // the sets of the whole stored matrix, in a view too
    KVOSimCSetID m_columnCSetID;
    bool m_isExtended = false;                           // or seen through an object that is
    mutable std::unique_ptr<KVOSimCSet const> m_rowPart; // of a view: its sets, once they were asked for
    mutable std::unique_ptr<KVOSimCSet const> m_columnPart;
};
