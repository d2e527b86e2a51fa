#pragma once

#include "KVOExport.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvSimFileHandle.h"

#include <memory>

/// A database matrix on a scratch file of its own, which goes with the matrix and the last view made from it.
///
/// The file is made in KVOSrvUtilities::GetTempDirectory() (empty: the working directory) and named
/// "KVOSrvScratchDenseMatrix", the address of the object, "-", the process id, and ".sim"; another number follows the
/// process id where that name is taken. The process id keeps processes with equal addresses apart. Before a process
/// makes its first scratch file in a directory it removes those there that killed processes have left: see
/// docs/database-advice.md, "Scratch files".
class KVO_EXPORT KVOSrvScratchDenseMatrix : public KVOSrvDenseMatrix
{
public:
    /// A null matrix without a file.
    KVOSrvScratchDenseMatrix();
    /// A matrix of zeros, in chunks of rowChunk x columnChunk, which are lowered to the matrix's size and to 2 GiB; -1:
    /// all of that dimension.
    /// @throws KVOSrvMtxRefusedInput when rows or columns is not positive, or so many that 2 GiB do not hold one column
    /// or row
    /// @throws KVOSimException when the file cannot be made, also when its directory is missing; nothing is left of it
    /// then
    KVOSrvScratchDenseMatrix(int rows, int columns, int rowChunk, int columnChunk);
    /// The same with member numbers for the rows and the columns, `rows` and `columns` of them. @param
    /// rowNumbers,columnNumbers  null: from 0 on
    KVOSrvScratchDenseMatrix(int rows, int columns, int const* rowNumbers, int const* columnNumbers, int rowChunk,
                             int columnChunk);
    /// The same with the sizes and member numbers of two sets, of any database, which the matrix answers as its own.
    KVOSrvScratchDenseMatrix(KVOSimCSetID const& rowSet, KVOSimCSetID const& columnSet, int rowChunk, int columnChunk);
    KVOSrvScratchDenseMatrix(KVOSrvScratchDenseMatrix const&) = delete;
    KVOSrvScratchDenseMatrix& operator=(KVOSrvScratchDenseMatrix const&) = delete;
    ~KVOSrvScratchDenseMatrix() override;

    /// The caller's set of the rows, if the matrix was made from one; else, and for views, as for every database
    /// matrix.
    KVOSimCSetID RowCSetID() const override;
    /// The caller's set of the columns, alike.
    KVOSimCSetID ColumnCSetID() const override;

    /// The view keeps the file.
    KVOSrvScratchDenseMatrix* ConstSubmatrix(int r0, int r1, int c0, int c1) const override;
    /// The same for a matrix that may be written through the view.
    KVOSrvScratchDenseMatrix* Submatrix(int r0, int r1, int c0, int c1) override;

protected:
    /// The view of rows r0 to r1 and columns c0 to c1; not checked.
    KVOSrvScratchDenseMatrix(KVOSrvScratchDenseMatrix const& parent, int r0, int r1, int c0, int c1);

private:
    void CreateDatabase(int rows, int columns, int const* rowNumbers, int const* columnNumbers, int rowChunk,
                        int columnChunk);

    KVOSrvSimFileHandle m_fileHandle;
    std::unique_ptr<KVOSimCSet const> m_sourceRows; // null unless the matrix was made from sets
    std::unique_ptr<KVOSimCSet const> m_sourceColumns;
};
