#pragma once

#include "Catalogue.h"
#include "KVOSimIdentifiers.h"
#include "SimFile.h"
#include "Titles.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace simdb
{

class FileAccess;

/// An open database: its file, its contexts and its open transactions. Identifiers find it by its serial number, which is never given
/// again in the process.
class Session : public std::enable_shared_from_this<Session>
{
public:
    static std::shared_ptr<Session> Create(std::string const& path, File::Kind kind);
    static std::shared_ptr<Session> Open(std::string const& path, bool readOnly);
    /// The open database of that number; null when it was closed or never was.
    static std::shared_ptr<Session> Find(std::uint64_t serial) noexcept;
    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;
    /// Closes what is open, without keeping anything.
    ~Session();

    /// Keeps what waits for no open transaction and closes; closed also when an exception leaves.
    void Close();

    std::uint64_t Serial() const noexcept { return m_serial; }
    std::shared_ptr<File> const& GetFile() const noexcept { return m_file; }
    /// The way to the bytes of values, for all drawers of the file.
    std::shared_ptr<FileAccess> const& GetAccess() const noexcept { return m_access; }
    Titles& GetTitles() noexcept { return m_titles; }
    bool IsOpen() const noexcept { return m_file != nullptr; }
    std::string const& Path() const noexcept { return m_path; }
    bool IsScratch() const noexcept { return m_file->IsScratch(); }
    /// Whether its catalogue has checksums: files of format version 1 and scratch files have none.
    bool HasChecksums() const noexcept { return !IsScratch() && m_version > 1; }
    /// What checksums of places in the file are good for: another number says that the file was written anew by another program. 0: none
    /// are.
    std::uint32_t FileIdentity() const noexcept { return m_identity; }
    /// @throws KVOSimException when the database is open for reading only, or was opened by another process
    void RequireWritable(char const* doing) const;

    std::shared_ptr<Context> CreateContext();
    /// Null when there is none of that number.
    std::shared_ptr<Context> ContextAt(int index) const noexcept;
    int ContextCount() const noexcept { return static_cast<int>(m_contexts.size()); }

    Owner BeginTransaction();
    /// The transaction that was begun last of those that are open: what is made belongs to it.
    Owner CurrentTransaction() const noexcept { return m_transactions.empty() ? kNoOwner : m_transactions.back(); }
    /// Keeps what waits for `owner` and for none.
    void Commit(Owner owner);
    /// Drops what waits for `owner`.
    void EndTransaction(Owner owner);

    /// Grants of the shared cache budget, a quarter of the physical memory: what there is of `wish` after `held`, granted before, was given
    /// back. At most half of the budget for one.
    std::uint64_t GrantCache(std::uint64_t wish, std::uint64_t held) noexcept;

private:
    Session(std::shared_ptr<File> file, std::string const& path);
    void Register();
    void WriteHeader();
    int ReadHeader();
    void LoadContexts();
    void Keep(Owner owner);
    void Detach() noexcept;

    std::uint64_t m_serial;
    std::string m_path;
    std::shared_ptr<File> m_file;
    std::shared_ptr<FileAccess> m_access; ///< gone before the file is closed
    Titles m_titles;
    std::int32_t m_version;
    std::uint32_t m_identity = 0;
    std::vector<std::shared_ptr<Context>> m_contexts;
    std::vector<Owner> m_transactions; ///< open ones, in the order of their beginning
    Owner m_lastTransaction = kNoOwner;
    std::uint64_t m_cacheGranted = 0;
    int m_contextsInFile = 0;
};

/// The context that an identifier of any kind lies in, in an open database. @throws KVOSimException for a null identifier, one of a closed
/// database and one of a context that does not exist
std::shared_ptr<Context> FindContext(KVOSimContextID const& id, char const* doing);

} // namespace simdb
