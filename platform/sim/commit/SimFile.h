#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <hdf5.h>

namespace simdb
{

struct FileMark;

/// The open file: the HDF5 handle, the descriptor for the data path, the lock, and the commit.
///
/// HDF5 runs on a driver of ours that sends values to the file and holds everything else back in memory. Persistent files: Commit()
/// flushes, syncs the values, writes a checksummed journal beside the file, syncs it, applies it, syncs, and drops it. Opening replays a
/// complete journal and ignores a torn one (a reader overlays it in memory and writes nothing); beside one of another file or of another
/// state of this one it is refused, but for reading. Scratch files: what is held is never written, nothing is synced, and what is left on
/// closing is no database.
///
/// Invariants:
/// 1. A descriptor with flock() is held from before the first byte is read or written: exclusive for writing, shared for reading. It is the
///    only descriptor of the file, HDF5's too: HDF5 takes no lock itself, whatever HDF5_USE_FILE_LOCKING says.
/// 2. Space in a persistent file is never given back to be used again within a session: what the last commit refers to stays as it is.
///
/// In a child that fork() made, a file of the parent can be read, and is forgotten then: all that would change it is refused, closing it
/// there writes nothing and keeps the parent's lock.
class File
{
public:
    enum class Kind { Persistent, Scratch };

    /// Nothing is committed yet: a file whose maker dies before its first Commit() is refused by Open() with a text that says so.
    /// @throws KVOSimException when the file exists or cannot be made; none is left behind then
    static std::shared_ptr<File> Create(std::string const& path, Kind kind);
    /// @throws KVOSimException when it cannot be opened or locked, is no HDF5 file, or was cut short
    static std::shared_ptr<File> Open(std::string const& path, bool readOnly);
    File(File const&) = delete;
    File& operator=(File const&) = delete;
    /// Closes without a commit, silently.
    ~File();

    /// All that HDF5 was given and all values written are on the disk when this returns (a scratch file: nothing happens). When it throws,
    /// the last commit is still what the file holds, and all that was to be committed is still in memory: it may be tried again. A disk
    /// that fails after the journal is complete is not reported here, as nothing is lost by it, but by the next commit or Close() if it
    /// still fails then.
    void Commit();
    /// Commits and closes; closed also when an exception leaves. HDF5 objects of the file that are open are closed, too.
    void Close();

    /// By which other processes know a persistent file's state, on the disk; until the next commit, and in this session only.
    FileMark MarkForWriters();

    bool IsOpen() const noexcept;
    bool IsReadOnly() const noexcept;
    /// It was opened for writing, by this process.
    bool IsWritable() const noexcept;
    /// @throws KVOSimException "<doing> <path>: ..." when it is not writable
    void RequireWritable(char const* doing) const;
    bool IsScratch() const noexcept;
    std::string const& Path() const noexcept;
    hid_t Hdf5() const noexcept;
    /// For pread, pwrite and mmap of values at addresses that HDF5 gave.
    int Descriptor() const noexcept;
    /// One behind the last byte that HDF5 has allocated.
    std::uint64_t End() const noexcept;
    /// The bytes at `address` as HDF5 has last flushed them; zeros behind the end.
    void ReadMetadata(std::uint64_t address, void* data, std::size_t bytes) const;
    /// While it is set, HDF5's reading of values moves none: it only finds them. ValuesAddress() then says where.
    void SetFinding(bool finding) noexcept;
    /// While it is set, the values that HDF5 writes are zeros, which are left to the file system where it has none but these.
    void SetLeavingZeros(bool leaving) noexcept;
    /// Where HDF5 last read or wrote values; UINT64_MAX when it has not since SetFinding(true).
    std::uint64_t ValuesAddress() const noexcept;

private:
    struct State;
    explicit File(std::unique_ptr<State> state) noexcept;
    void Release() noexcept;

    std::unique_ptr<State> m_state;
};

} // namespace simdb
