#pragma once

#include "KVOExport.h"
#include "KVOSimDatabase.h"
#include "KVOSimIdentifiers.h"
#include "KVOSrvDenseMatrix.h"
#include "cow_Btree.h"
#include "cow_String.h"

#include <sys/types.h>

/// A registry of database matrices by id, on a scratch database of its own. Fortran reaches it through
/// KVOSRVMATRIXCONTAINER* in KVOFortran.h.
///
/// The file lies in the directory that is the working one when the container is made, and goes with the container,
/// wherever the process works by then. It is named "KVOSrvMatrixContainer", the container's address in 16 upper-case
/// hexadecimal digits, and ".sim"; only the user may read and write it. A file of that name that a killed process has
/// left is replaced (docs/database-advice.md, "Scratch files", says what counts as left). Any other one stays: "-" and
/// the process id are then added to the address (and a number, should that name be in use, too).
///
/// Ids are the caller's, no two of them more than 2^31 - 1 apart: not negative, say. The container owns its matrices;
/// views of them, and whatever else refers to the database, answer with KVOSimException when it is gone. Used by one
/// thread at a time.
class KVO_EXPORT KVOSrvMatrixContainer : public KVOSimDatabase
{
public:
    /// An empty container. @throws KVOSimException when its file cannot be made, also when the working directory is
    /// gone; nothing is left of the file when an exception leaves
    KVOSrvMatrixContainer();
    KVOSrvMatrixContainer(KVOSrvMatrixContainer const&) = delete;
    KVOSrvMatrixContainer& operator=(KVOSrvMatrixContainer const&) = delete;
    /// Deletes the matrices and removes the file. In a child of fork() the file stays: it is the parent's.
    ~KVOSrvMatrixContainer() override;

    /// A new matrix of zeros, registered under `id`, in blocks of blockRows x blockCols, which are lowered to the
    /// matrix's size and to 2 GiB; -1: all of that dimension. Rows and columns are numbered from 0 on.
    ///
    /// An id stays taken for ever, also after Remove(). On a taken id the registered matrix stays, and the new one is
    /// returned nevertheless: nobody owns it. It works like the others while the container lives; its memory is lost
    /// unless the caller deletes it.
    /// @throws KVOSrvMtxRefusedInput when numRows or numCols is not positive, or so many that 2 GiB do not hold one
    /// column or row
    /// @throws KVOSimException also for block sizes that are no sizes. Nothing is registered when an exception leaves
    KVOSrvDenseMatrix& Create(int id, int numRows, int numCols, int blockRows, int blockCols);
    /// The same with member numbers. @param rowIds,colIds  numRows and numCols numbers; null: from 0 on
    KVOSrvDenseMatrix& Create(int id, int numRows, int numCols, int const* rowIds, int const* colIds, int blockRows,
                              int blockCols);

    /// The registered matrix. The id of a matrix that is there only: an unknown one gives the reference behind a null
    /// pointer, a removed one that to a deleted matrix. Find() is for asking.
    KVOSrvDenseMatrix& Get(int id) { return *m_matrices.ConstLookup(id); }
    /// The registered matrix, null when the id is unknown or its matrix was removed. The container owns it.
    KVOSrvDenseMatrix* Find(int id) const noexcept
    {
        return m_removed.IsMember(id) ? nullptr : m_matrices.ConstLookup(id);
    }
    /// Whether the id was ever registered: that of a removed matrix counts.
    bool IsMember(int id) const noexcept { return m_matrices.IsMember(id); }
    /// Number of ids that were ever registered: those of removed matrices count.
    int Size() const noexcept { return m_matrices.Size(); }

    /// Deletes the matrix of `id`; the id stays registered. An unknown id, or one removed before, changes nothing.
    /// @throws mem_OutOfMemory, the matrix is there still
    void Remove(int id);

private:
    using Matrices = cow_Btree<int, KVOSrvDenseMatrix*>;

    void MakeFile();
    void RemoveFile() noexcept;
    void DeleteMatrices() noexcept;
    void DeleteBelow(Matrices::Handle const* subtree) noexcept;
    KVOSrvDenseMatrix& CreateMatrix(int id, int numRows, int numCols, int const* rowIds, int const* colIds,
                                    int blockRows, int blockCols);

    KVOSimContextID m_contextID;
    cow_String m_fileName; // an absolute path
    KVOSimCollectionID m_rowCollection;
    KVOSimCollectionID m_colCollection;
    Matrices m_matrices;
    Matrices m_removed; // those of m_matrices that are deleted already
    pid_t m_process;    // a child of fork() leaves the file to its parent
};
