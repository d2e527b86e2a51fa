#pragma once

#include "DRXUnicodeString.h"
#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimCheck.h"
#include "KVOSimIdentifiers.h"
#include "mem_Allocator.h"

#include <memory>

namespace simdb
{
class Session;
}

/// One simulation database file. One process may have it open for writing, or several for reading.
///
/// What Commit() of a transaction (or Close()) returned from survives the end of the process at any later moment; see
/// docs/database-format.md. Failures are KVOSimException and leave the file as it was.
class KVO_EXPORT KVOSimDatabase : public mem_AllocationOperators
{
public:
    KVOSimDatabase() noexcept;
    KVOSimDatabase(KVOSimDatabase const&) = delete;
    KVOSimDatabase& operator=(KVOSimDatabase const&) = delete;
    /// Closes what is open; a failure is lost here: call Close() to see it.
    virtual ~KVOSimDatabase();

    /// The database to be made is work space that needs not outlive the process: nothing is ever synced, and what is in
    /// the file after a kill is of no use. Only the user may read and write the file, and whoever made it removes it.
    /// To be called before CreateFile.
    void SetScratch() noexcept { m_scratch = true; }
    /// Removes the file `name` in `directory` when it is the file of a scratch database whose process is gone from this
    /// host, and nobody has it locked. Everything else stays. @param directory  a descriptor, or AT_FDCWD for the
    /// working directory
    static void RemoveLeftScratch(int directory, char const* name) noexcept;

    /// Makes a new, empty database and holds it open for writing. @param flags  0
    /// @throws KVOSimException when the file exists, cannot be made, or a database is open already
    void CreateFile(DRXUnicodeString const& path, int flags);
    /// Opens a database that exists. One that was not closed comes back as it was last committed, without a repair
    /// step.
    /// @throws KVOSimException when it is no database, is damaged, is open elsewhere for writing, or one is open
    /// already
    void OpenFile(DRXUnicodeString const& path, bool readOnly);
    /// Writes what is not in a transaction that is still open, and closes the file; a second call does nothing. The
    /// database is closed also when an exception leaves. What still refers to it (distributions, identifiers) fails
    /// with a KVOSimException from then on.
    void Close();
    /// Whether this object has a database open.
    bool IsOpen() const noexcept;

    /// A new context behind those there are. @throws KVOSimException when no database is open, or it is open for
    /// reading
    KVOSimContextID CreateContext();
    /// The context that was made first; null when there is none or no database is open.
    KVOSimContextID ContextID() const;
    /// All contexts, in the order in which they were made.
    KVOSimArray<KVOSimContextID> QueryContexts() const;

    /// Goes through all that the database holds: the catalogue and its checksums, the index that finds the values of
    /// each matrix and its checksum, whether every part of the file belongs to one thing and lies inside, the indices
    /// of sparse matrices, which rise in every row, and all values of matrices that have checksums of them. Damage that
    /// keeps a file from being opened is the exception of OpenFile().
    /// @throws KVOSimException unless a database is open for reading
    KVOSimCheckReport Check() const;

private:
    std::shared_ptr<simdb::Session> m_session;
    bool m_scratch = false;
};
