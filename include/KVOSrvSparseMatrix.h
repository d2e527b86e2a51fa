#pragma once

#include "KVOExport.h"
#include "KVOSimIdentifiers.h"
#include "KVOSrvSparseRows.h"
#include "cow_List.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

class KVOFsmSystemDofDefinition;
class KVOSrvDenseMatrix;
class KVOSrvSparsePlaces;
namespace KVOSrvSparseSupport
{
struct CompressedRows;
struct HalfRows;
} // namespace KVOSrvSparseSupport

/// One coordinate entry; row and column are 0-based.
struct KVOSrvSparseMatrixEntry {
    unsigned row;    ///< 0-based
    unsigned column; ///< 0-based
    double value;    ///< what is added at that place
};

/// Sparse matrix of doubles in compressed rows.
///
/// A caller fills it entry by entry, BeginAssembly(), AddData() ..., EndAssembly(), or reads it from a file; every
/// other operation works on the assembled form. All indices are 0-based; lists that an operation returns belong to the
/// caller and are released with delete[].
///
/// A matrix whose added entries are not assembled refuses what would not see them, by KVOSrvMtxNotAssembled, a
/// KVOSrvMtxIllegalInput: products, Scale(), Subtract() as an operand, restructuring, GetEntries() and exports; it is
/// as it was then. Entries added to an assembled matrix wait for the next BeginAssembly(), and nothing is refused.
///
/// Two kinds of storage: full, every entry stored; half, for a symmetric matrix: each off-diagonal pair once, in one
/// triangle, and the diagonal in an array of its own. Half storage comes from Symmetrized(), from arrays, from files of
/// formats 0, 1 and 6 and from the database.
///
/// Used by one thread at a time.
class KVO_EXPORT KVOSrvSparseMatrix : public mem_AllocationOperators
{
public:
    /// An empty, not yet assembled matrix of rows x columns; AddData() enlarges it as needed.
    /// @throws KVOSrvMtxIllegalInput "KVOSrvSparseMatrix" when a size is negative
    KVOSrvSparseMatrix(int rows, int columns);
    /// The assembled matrix of these arrays, which it takes over: each was made by mem_Malloc() or is null where it has
    /// nothing to hold.
    ///
    /// @param rowStart       rows + 1 offsets, ascending from 0: row i has the entries rowStart[i] to rowStart[i + 1] -
    /// 1
    /// @param columnIndices  column of each entry, 0-based, ascending strictly within a row
    /// @param values         value of each entry
    /// @param diagonal       null for full storage; for half storage of a square matrix its `rows` diagonal entries:
    /// the others then lie in one triangle, above the diagonal or below it
    /// @throws KVOSrvMtxIllegalInput "KVOSrvSparseMatrix" unless all that is so, mem_OutOfMemory; the arrays stay the
    /// caller's then
    /// @complexity O(entries + rows), no copy
    KVOSrvSparseMatrix(int rows, int columns, unsigned* rowStart, int* columnIndices, double* values, double* diagonal);
    /// The matrix stored in a distribution, as Import() reads it; a null one gives an empty matrix.
    explicit KVOSrvSparseMatrix(KVOSimDistributionID const& distribution);
    ~KVOSrvSparseMatrix();
    KVOSrvSparseMatrix(KVOSrvSparseMatrix const&) = delete;
    KVOSrvSparseMatrix& operator=(KVOSrvSparseMatrix const&) = delete;

    // ---- queries

    /// Stored entries. A half-stored matrix counts its triangle without the diagonal, except after an import of format
    /// 6, which counts the diagonal in.
    int NumberOfNonzeros() const noexcept;
    /// Number of rows.
    int NumberOfRows() const noexcept { return m_rowCount; }
    /// Number of columns.
    int NumberOfColumns() const noexcept { return m_columnCount; }

    /// True when no stored value differs from 0 (a NaN does), and for a matrix without rows.
    bool IsNull() const;

    /// True when the matrix equals its transpose: as many entries above as below the diagonal, and for every entry b
    /// below it an entry a at the mirrored place with |(a - b) / a| <= 1e-16 (|a - b| where a is 0). Column indices
    /// must ascend within the rows.
    ///
    /// The verdict is kept until entries are added, moved or replaced: by AddData(), Subtract(), a permutation or an
    /// import. Setting columns to zero and dropping trivial ones keeps it, and so do BeginAssembly() and EndAssembly():
    /// a matrix that is asked between AddData() and EndAssembly() answers for the entries it had stored, and goes on
    /// with that answer. It changes no storage: full storage stays full.
    bool IsSymmetric() const;

    /// All entries of the matrix, a half-stored one in full: for each row i first (i, i, diagonal), then for each
    /// stored entry (i, c) its mirror (c, i) and itself. Null when the matrix has no rows.
    /// @param[out] count  length of the list
    /// @throws KVOSrvMtxIllegalInput "GetEntries" when the list would have more than INT_MAX entries, mem_OutOfMemory
    KVOSrvSparseMatrixEntry* GetEntries(int& count) const;

    /// The stored rows, to be read where they lie: valid until this matrix changes. A matrix that is not assembled
    /// shows none of its entries, its rows being empty.
    /// @throws KVOSrvMtxNotAssembled "Rows", a KVOSrvMtxIllegalInput, when added entries wait for EndAssembly();
    /// mem_OutOfMemory for the row starts of a matrix that is not assembled
    /// @complexity O(1); O(rows) where they are made
    KVOSrvSparseRows Rows() const;

    // ---- assembly

    /// Drops the stored entries; sizes, pending entries and the kept verdict on symmetry stay.
    void BeginAssembly();

    /// Adds an entry; entries of equal place are summed by EndAssembly(). Enlarges the matrix to hold it. Amortised
    /// O(1).
    /// Call BeginAssembly() first on an assembled matrix: EndAssembly() does nothing there.
    /// Under a KVOSrvProductMemory the added entries go to a scratch file when they outgrow a third of it.
    /// @throws KVOSrvMtxIllegalInput "AddData" when an index exceeds INT_MAX - 1, or a limit of memory is too small,
    /// with the least that would do
    /// @throws KVOSimException when a scratch file cannot be made or written, mem_OutOfMemory; nothing is changed then
    void AddData(unsigned row, unsigned column, double value)
    {
        bool const inside = row < static_cast<unsigned>(m_rowCount) && column < static_cast<unsigned>(m_columnCount);
        if (!inside || m_symmetry != Symmetry::kUnknown || !m_pendingEntries.AppendInRoom({row, column, value}))
            [[unlikely]]
            AddWithChanges(row, column, value);
    }

    /// Builds compressed rows from the entries added since the last EndAssembly(); entries of equal place are summed in
    /// the order in which they were added. Does nothing on an assembled matrix.
    /// @throws KVOSrvMtxIllegalInput "EndAssembly" when more than INT_MAX entries are stored, or a limit of memory is
    /// too small, with the least that would do
    /// @throws KVOSimException when a scratch file fails, mem_OutOfMemory
    /// After any of them the matrix is as it was, the pending entries included.
    /// @complexity O(entries + rows + columns). Memory at its peak: 32 bytes an added entry, the 16 of the pending one
    /// included, and 4 bytes a row for the row starts, which stay; a matrix as wide as it has entries, or of a few rows
    /// only, takes up to 40 bytes an entry. What stays is 12 bytes a stored entry and the row starts.
    /// Where the host lends threads (KVOSrvParallel) the entries are sorted in parts, one for each, and the pending
    /// entries stay to the end; each thread takes the memory of a bucket and, where the matrix has fewer columns than
    /// entries, 8 bytes a column
    /// Under a KVOSrvProductMemory that the added entries outgrow they are sorted on a scratch file without a name in
    /// KVOSrvUtilities::GetTempDirectory(), 16 bytes an entry there: beside the result no more memory is taken than
    /// that, and the sums are the same to the bit. On this thread alone.
    void EndAssembly();

    /// Sets every stored value to -0.0, the number that changes none that is added to it, for a second assembly of the
    /// same pattern: ClearValues(), then AddValues() for all its lists. The verdict on symmetry is forgotten.
    /// @throws KVOSrvMtxNoSymmetricTrue "ClearValues" on half storage
    /// @throws KVOSrvMtxNotAssembled "ClearValues" when added entries wait for EndAssembly()
    void ClearValues();

    /// Adds values[k] to the stored value at the k-th of the places, by ascending k, and forgets the verdict on
    /// symmetry. After ClearValues() the values are, to the bit, those that AddData() in the same order and
    /// EndAssembly() give; a stored entry to which nothing is added stays -0.0.
    /// @param values  as many as the places
    /// @throws KVOSrvMtxIllegalInput "AddValues" unless the places are for this matrix (KVOSrvSparsePlaces::IsFor()).
    /// Nothing is changed then, nor after the following
    /// @throws KVOSrvMtxNoSymmetricTrue "AddValues" on half storage
    /// @throws KVOSrvMtxNotAssembled "AddValues" when added entries wait for EndAssembly()
    /// @complexity one addition for each of the places, no memory; on the calling thread, also where the host lends
    /// more
    void AddValues(KVOSrvSparsePlaces const& places, double const* values);

    // ---- products

    /// y = A x, or y = A^T x when `transpose`, for `nvec` vectors; 0 or fewer leave y untouched. Half storage
    /// multiplies as the full matrix.
    ///
    /// @param x  column-major, leading dimension the columns of A (the rows when `transpose`)
    /// @param y  column-major, leading dimension the rows of A (the columns when `transpose`); overwritten. Must not
    /// overlap x
    ///
    /// Where the host lends threads (KVOSrvParallel) A X is cut by rows; the transposed product by vectors or by
    /// columns of A, that of half storage by rows of Y, with 8 bytes (16) for each 64 rows beside them, and not cut
    /// where these cannot be had.
    void Multiply(double const* x, int nvec, double* y, bool transpose) const;

    /// Y = A X, or Y = A^T X when `transpose`, for stored matrices, block column of X by block column. Rows of Y behind
    /// those of the product become zero. Y may be X itself, but overlap it in no other way. Under a limit of memory
    /// (KVOSrvProductMemory) fewer columns at a time, where a block column exceeds it.
    /// @param X  at least as many rows as the product takes @param Y  at least the product's rows and X's columns
    /// @throws KVOSrvMtxIllegalInput "MultiplyDense" when the sizes do not fit; nothing is changed then
    /// @throws KVOSimException when the database fails; Y keeps the block columns written by then
    void MultiplyDense(KVOSrvDenseMatrix const& X, KVOSrvDenseMatrix& Y, bool transpose) const;
    /// y = A^T X into memory, reading only those rows of X that meet an entry.
    /// @param y          column-major, the columns of A x the columns of X; overwritten
    /// @param transpose  true; anything else ends in KVOSrvMtxNoTranspose when the first block of X was read
    /// @throws KVOSrvMtxNoSymmetricTrue "MultiplyDense" on half storage
    /// @throws KVOSrvMtxIllegalInput "MultiplyDense" when X has too few rows, KVOSimException when the database fails
    void MultiplyDense(KVOSrvDenseMatrix const& X, double* y, bool transpose) const;

    /// Multiplies every stored value by s. The verdict on symmetry stays.
    void Scale(double s);

    /// this = A - B, assembled anew in full storage. Places that cancel stay stored with value 0; the sizes only grow.
    /// A and B may be this matrix.
    void Subtract(KVOSrvSparseMatrix const& A, KVOSrvSparseMatrix const& B);

    // ---- restructuring

    /// The transposed matrix, a new one that the caller deletes; half storage stays half storage.
    KVOSrvSparseMatrix* Transpose() const;
    /// What Transpose() makes, held.
    std::unique_ptr<KVOSrvSparseMatrix> Transposed() const { return std::unique_ptr<KVOSrvSparseMatrix>(Transpose()); }

    /// The matrix with rows and columns permuted, a new one that the caller deletes. perm[k] is the old number of new
    /// row and column k, for every row of this square matrix.
    /// @throws KVOSrvMtxIllegalInput "Permute" when the matrix is not square
    /// @throws KVOSrvMtxIllegalPermVect unless perm holds each row number once
    KVOSrvSparseMatrix* Permute(int const* perm) const;
    /// What Permute() makes, held.
    std::unique_ptr<KVOSrvSparseMatrix> Permuted(int const* perm) const
    {
        return std::unique_ptr<KVOSrvSparseMatrix>(Permute(perm));
    }

    /// The same permutation applied to this matrix, with the same errors in its own name; nothing is changed after one.
    void PermuteInPlace(int const* perm);

    /// Permutes the rows of this matrix; here perm[i] is the new number of old row i (the other way round than in
    /// Permute, on purpose).
    /// @throws KVOSrvMtxNoSymmetricTrue "PermuteRows" on half storage
    /// @throws KVOSrvMtxIllegalPermVect unless perm holds each row number once
    /// Nothing is changed after an error.
    void PermuteRows(int const* perm);

    /// The rows that hold a stored entry, ascending; a stored zero counts.
    /// @param[out] count  length of the list
    unsigned* FindNontrivialRows(int& count) const;
    /// What FindNontrivialRows() lists, held.
    std::unique_ptr<unsigned[]> NontrivialRows(int& count) const
    {
        return std::unique_ptr<unsigned[]>(FindNontrivialRows(count));
    }
    /// The columns that hold a stored entry, alike.
    /// @param[out] count  length of the list
    unsigned* FindNontrivialColumns(int& count) const;
    /// What FindNontrivialColumns() lists, held.
    std::unique_ptr<unsigned[]> NontrivialColumns(int& count) const
    {
        return std::unique_ptr<unsigned[]>(FindNontrivialColumns(count));
    }

    /// Drops the columns without a stored entry and renumbers the others.
    /// @param[out] count  the new number of columns
    /// @return for each new column its old number
    /// @throws KVOSrvMtxNoSymmetricTrue "EliminateTrivialColumns" on half storage: its columns are its rows too, and a
    /// matrix without some of them would not be symmetric
    unsigned* EliminateTrivialColumns(int& count);

    /// Sets the stored values of n columns to 0; the entries stay stored.
    /// @throws KVOSrvMtxNoSymmetricTrue "SetcolumnsToZero" on half storage
    /// @throws KVOSrvMtxIllegalInput "SetColumnsToZero" when n is negative or a column lies outside; nothing is changed
    /// then
    void SetColumnsToZero(int const* columns, int n);

    // ---- full and half storage

    /// The same matrix in half storage, which takes half the memory: of a full symmetric one what lies above the
    /// diagonal, and the diagonal, 0 where it has no entry; of one in half storage a copy. A new one that the caller
    /// deletes.
    /// @throws KVOSrvMtxIllegalInput "Symmetrized" unless the matrix is square and its entries are symmetric in the
    /// sense of IsSymmetric(), whatever verdict is kept, mem_OutOfMemory
    /// @complexity O(entries + rows)
    KVOSrvSparseMatrix* Symmetrized() const;
    /// What Symmetrized() makes, held.
    std::unique_ptr<KVOSrvSparseMatrix> InHalfStorage() const
    {
        return std::unique_ptr<KVOSrvSparseMatrix>(Symmetrized());
    }

    /// The same matrix in full storage: of half storage with every mirrored and every diagonal entry, of full storage a
    /// copy. A new one that the caller deletes.
    /// @throws KVOSrvMtxIllegalInput "Full" when it would have more than INT_MAX entries, mem_OutOfMemory
    /// @complexity O(entries + rows), where the columns of half storage ascend, as those of a file need not
    KVOSrvSparseMatrix* Full() const;
    /// What Full() makes, held.
    std::unique_ptr<KVOSrvSparseMatrix> InFullStorage() const { return std::unique_ptr<KVOSrvSparseMatrix>(Full()); }

    // ---- files, see docs/sparse-files.md; KVOSrvMatrixFile reads more formats and tells which one a file is of

    /// Reads a file of format 0, 1, 2, 3, 6 or 7 into this matrix.
    /// @throws KVOSrvMtxUnsupportedImpFmt for another format (the matrix is then marked assembled)
    /// @throws KVOSrvMtxMalformedFile, a KVOSrvMtxUnsupportedImpFmt, with the place for malformed content
    /// @throws KVOSrvMtxOpenFileException with the path
    /// After any but the first the matrix is as it was.
    /// Where the host lends threads (KVOSrvParallel) format 3 is read in parts, cut at ends of lines; anew in one part
    /// where that cuts a record, which may stand on several lines.
    /// Under a KVOSrvProductMemory formats 2, 3 and 7 are assembled within it, as AddData() and EndAssembly() are, with
    /// their errors.
    void Import(char const* path, int format);

    /// Writes a file of format 3, 4, 5, 6 or 7.
    /// @param dofs  node and degree of freedom of each row, needed by format 4 only
    /// @throws KVOSrvMtxUnsupportedExpFmt for another format, and for format 4 without `dofs` or where they do not
    /// number a row that holds an entry or, in a square matrix, the column of one
    /// @throws KVOSrvMtxNoUnsymmetric for format 6 when the matrix is not half-stored
    /// @throws KVOSrvMtxOpenFileException, KVOSrvMtxFileWriteFailure with the path
    void Export(char const* path, int format, KVOFsmSystemDofDefinition const* dofs = nullptr) const;

    /// Writes text triplets as format 3 does, but each value by the shortest digits that read back as the same double;
    /// the sign of a NaN and of 0 too. The 16 digits of format 3 do not always give back the last bit.
    /// @throws KVOSrvMtxOpenFileException, KVOSrvMtxFileWriteFailure with the path
    void ExportTriplets(char const* path) const;

    /// The matrix in a Matrix Market file: coordinate or array; real, integer or pattern, whose entries are 1; general,
    /// symmetric or skew-symmetric; in full storage. A new one that the caller deletes. Entries of equal place are
    /// summed, zeros of an array are not stored.
    /// @throws KVOSrvMtxMalformedFile with the line, also for a complex matrix, whose parts KVOSrvMatrixFile::Read()
    /// reads
    /// @throws KVOSrvMtxOpenFileException with the path
    /// @throws KVOSrvMtxIllegalInput "EndAssembly" when more than INT_MAX entries would be stored, mem_OutOfMemory
    static KVOSrvSparseMatrix* ImportMatrixMarket(char const* path);
    /// The same, owned.
    static std::unique_ptr<KVOSrvSparseMatrix> ReadMatrixMarket(char const* path);

    /// Writes a Matrix Market file, "coordinate real": the lower triangle as "symmetric" when the matrix equals its
    /// transpose exactly, else all of it as "general". Values have the shortest form that reads back as the same
    /// double. A file of that name is replaced.
    /// @throws KVOSrvMtxOpenFileException, KVOSrvMtxFileWriteFailure with the path
    /// @throws KVOSrvMtxIllegalInput when half storage would have more than INT_MAX entries in full, mem_OutOfMemory
    void ExportMatrixMarket(char const* path) const;

    // ---- database

    /// Replaces this matrix by drawer 0 of a distribution, in half storage when that is symmetric; pending entries are
    /// dropped.
    /// @throws KVOSrvMtxIllegalInput "Import" when that is no sparse matrix of doubles, or a row of full storage does
    /// not ascend strictly by column
    /// @throws KVOSimException when the database fails, mem_OutOfMemory
    /// After any of them the matrix is as it was.
    void Import(KVOSimDistributionID const& distribution);
    /// The same of another drawer: `drawer` counts the exports into the distribution from 0.
    void Import(KVOSimDistributionID const& distribution, int drawer);

    /// Writes this matrix as a new drawer of a distribution, see KVOSrvUtilities::CreateSparseDistribution(): in half
    /// storage as a symmetric one. Export into a distribution of its own: Import(distribution), the constructor and the
    /// other programs read drawer 0, the first export, for good. A later one is read by its number only, with
    /// Import(distribution, drawer).
    /// @param rows,columns  the sets that number them: as many members as this matrix has rows, and at least as many as
    /// columns
    /// @throws KVOSrvMtxIllegalInput "Export" when they have not
    /// @throws KVOSimException when the database fails; there is no new drawer then
    void Export(KVOSimCSetID const& rows, KVOSimCSetID const& columns, KVOSimDistributionID const& distribution) const;
    /// The same. @param valueChecksums  as KVOSimTransfer::SetValueChecksums()
    void Export(KVOSimCSetID const& rows, KVOSimCSetID const& columns, KVOSimDistributionID const& distribution,
                bool valueChecksums) const;

    /// The set that numbers the rows in the database; null but after an import from there.
    KVOSimCSetID RowCSetID() const;
    /// The set that numbers the columns in the database; null but after an import from there.
    KVOSimCSetID ColumnCSetID() const;

private:
    friend class KVOSrvSparsePlaces;

    enum class Symmetry { kUnknown, kSymmetric, kNot };
    struct Content;

    /// The assembled matrix of these rows. @param nonzeroCount  NumberOfNonzeros()
    KVOSrvSparseMatrix(KVOSrvSparseSupport::CompressedRows&& rows, int nonzeroCount);
    KVOSrvSparseMatrix(KVOSrvSparseSupport::HalfRows&& rows, int nonzeroCount);

    /// Replaces all but the sets by these rows. The pending entries are dropped.
    /// @param othersCounted  what NumberOfNonzeros() counts beside the entries
    void Take(KVOSrvSparseSupport::CompressedRows&& rows, Symmetry symmetry = Symmetry::kUnknown) noexcept;
    void Take(KVOSrvSparseSupport::HalfRows&& rows, int othersCounted = 0) noexcept;
    /// Ends an assembly without its entries, which stay pending.
    void MarkAssembled();

    /// Also from BeginAssembly(), which drops the entries, to what follows it.
    bool IsHalfStored() const noexcept;
    /// @throws KVOSrvMtxNotAssembled when entries wait for EndAssembly()
    void RequireAssembled(char const* operation, int line = __builtin_LINE()) const;
    /// @throws KVOSrvMtxNoSymmetricTrue for half storage
    void RequireFull(char const* operation, int line = __builtin_LINE()) const;
    /// Rows() of a matrix for which that was asked.
    KVOSrvSparseRows View() const;

    /// AddData() of an entry that enlarges the matrix or ends a verdict on symmetry, and half storage with it, or for
    /// which the list of entries has to grow.
    void AddWithChanges(unsigned row, unsigned column, double value);
    /// Import() of a format whose entries are in no order or not all kept.
    void ImportWithinLimit(char const* path, int format);
    /// Moves the pending entries in memory to the scratch file.
    void SpillPendingEntries(std::int64_t limit, char const* operation);

    // What AddData() needs stands here: called, it takes 1.3 times as long as inlined. All else is in the content.
    cow_List<KVOSrvSparseMatrixEntry> m_pendingEntries;
    int m_rowCount; // as in the content
    int m_columnCount;
    mutable Symmetry m_symmetry = Symmetry::kUnknown; // the verdict of IsSymmetric(); kSymmetric for half storage
    std::unique_ptr<Content> m_content;
};
