#pragma once

#include "DRXUnicodeString.h"
#include "KVOExport.h"
#include "KVOSimBlockPlaces.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

/// Writes blocks of a matrix that another process makes in a transaction of a database, on this or on another machine:
///
/// 1. One process has the database open for writing, begins a transaction, makes the matrix, calls
///    KVOSimTransfer::AllocateBlocks() and sends KVOSimTransfer::BlockPlaces() to the others.
/// 2. Any number of processes write blocks, each with a writer of its own, and call Sync(). That process may be one.
/// 3. When all have told it that Sync() returned, the first one commits. Where one has failed, it drops the
///    transaction: nothing is kept.
///
/// Nothing that was committed refers to the blocks before, so the death of any process at any moment loses nothing that
/// was committed. The file is written by calls of the system, never through HDF5, and takes no lock: its lock is with
/// the process that has the transaction, and that it is held is checked.
///
/// All members throw KVOSimException.
class KVO_EXPORT KVOSrvBlockWriter : public mem_AllocationOperators
{
public:
    /// Opens the file. @param path  of the database, as this machine names it
    /// @throws KVOSimException when the file is another one than that of the places, is in another state (of an earlier
    /// or a later commit, or of another session), does not reach the places, or no process has it open for writing, or
    /// none whose lock is seen here
    KVOSrvBlockWriter(DRXUnicodeString const& path, KVOSimBlockPlaces const& places);
    KVOSrvBlockWriter(KVOSrvBlockWriter const&) = delete;
    KVOSrvBlockWriter& operator=(KVOSrvBlockWriter const&) = delete;
    /// Closes the file. What was written since the last Sync() may not reach the disk.
    virtual ~KVOSrvBlockWriter();

    /// Writes rows firstRow to lastRow of columns firstColumn to lastColumn, in the matrix, 0-based, both inclusive. The
    /// range may lie in several blocks.
    /// @param values  value (i, j) of the range, counted from its corner, is values[i + j * lda]; the caller's
    /// @param lda     the range's rows or more
    /// @throws KVOSimException when the range leaves the blocks that this writer has places of, or the state of the file
    /// has changed: nothing is written then; and when the disk is full or fails: the range then holds anything
    void Write(int firstRow, int lastRow, int firstColumn, int lastColumn, double const* values, std::int64_t lda);
    /// All that was written is on the disk, or, on a network file system, with its server, when this returns, and the
    /// transaction was still open: the commit may follow.
    void Sync();

private:
    struct State;
    std::unique_ptr<State> m_state;
};
