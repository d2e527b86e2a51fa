#pragma once

#include "DriverFile.h"
#include "SimJournal.h"

#include <cstdint>
#include <memory>
#include <string>

namespace simdb
{

/// Commits of one persistent file, and what is left of an earlier process's.
///
/// Invariants:
/// 1. Below m_committedEnd the file holds what the last commit left, but for values and while m_unfinished; changes of it go through the
///    journal. From there on it holds nothing that counts, and is written directly.
/// 2. Before the first journal of a session is begun, the mark in the file was renewed and synced: the journal fits no copy that was made
///    of the file before.
/// 3. While m_unfinished, the journal on the disk is complete and the file can be made whole from it only; what is held still has all of
/// it.
class Persistence
{
public:
    /// @param path      for texts
    /// @param realPath  absolute and without symbolic links, so that whatever name a file is opened by leads to its journal
    Persistence(std::string path, std::string const& realPath, std::shared_ptr<DriverFile> file);

    /// A new file: marks it, and removes a journal that a file of the name before it has left.
    void Begin();
    /// An existing file, before HDF5 looks at it: completes the commit in its journal, for a reader in memory only.
    void Recover(bool readOnly);
    /// The same file, after HDF5 has found its end: what lies behind that is left from a session without a commit.
    void BeginChanges();
    /// The mark of the file as it is now, by which other processes know it; on the disk when this returns. Another session has another
    /// one from its beginning on, and the next commit that counts changes it.
    FileMark MarkForWriters();
    /// Makes what is held, and all values, durable. A failure leaves the last commit in the file and all of this in memory.
    void Commit();
    /// After the last commit: removes the journal.
    void Finish();

private:
    static constexpr char const* kCommitting = "Cannot commit to the database";

    FileMark MarkAt(std::uint64_t offset) const;
    bool IsToBeApplied(Journal const& journal, bool readOnly);
    [[noreturn]] void RefuseJournal(std::string const& why) const;
    void CompleteUnfinished();
    void RenewMark(bool forWriters, char const* doing);
    void BeginJournals();
    void Write();
    bool IsInFile(std::uint64_t address, std::span<std::byte const> bytes) const;
    std::vector<Journal::Piece> Changes() const;
    void WriteAdditions();
    void RequireSuccess(int error, char const* doing = kCommitting) const;

    std::string m_path;
    std::shared_ptr<DriverFile> m_file;
    JournalFile m_journal;
    FileMark m_mark; ///< of what the last commit left
    bool m_journalsBegun = false;
    std::uint64_t m_committedEnd = FileMark::kEnd;
    bool m_unfinished = false;
};

} // namespace simdb
