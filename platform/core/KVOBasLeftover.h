#pragma once

/// @file
/// Tells what a killed process has left in the file system from what is in use.

#include "KVOExport.h"

#include <cstdint>

/// A process, to be written into what it makes, so that others know later whose it is.
struct KVO_EXPORT KVOBasMaker {
    std::uint64_t host;   ///< from the name of the host
    std::int32_t process; ///< its id there

    /// This process.
    static KVOBasMaker Own() noexcept;
    /// Whether it is known to have ended. Never known of processes of other hosts. What bears the id of the asking
    /// process itself was left by an earlier one of that id, unless it is locked; so this process counts as ended, too.
    bool IsGone() const noexcept;
};

/// A file or folder that nobody else uses while this lives: whoever uses it holds its lock (flock).
class KVO_EXPORT KVOBasUnusedFile
{
public:
    /// Opens `name` in `directory` and takes the lock, without waiting. Links are not followed.
    /// @param directory  a descriptor, or AT_FDCWD for the working directory
    KVOBasUnusedFile(int directory, char const* name) noexcept;
    KVOBasUnusedFile(KVOBasUnusedFile const&) = delete;
    KVOBasUnusedFile& operator=(KVOBasUnusedFile const&) = delete;
    /// Gives the lock back.
    ~KVOBasUnusedFile();

    /// False when there is none, it can't be opened for writing, it is neither a regular file nor a folder, or somebody
    /// has it locked.
    bool IsHeld() const noexcept { return m_descriptor >= 0; }
    /// Of the open file; -1 when it is not held.
    int Descriptor() const noexcept { return m_descriptor; }
    /// Removes the file, or the folder if it is empty. Until now the name may have passed to another file: that stays.
    /// @return whether it was removed
    bool Remove() noexcept;

private:
    int m_directory;
    char const* m_name;
    int m_descriptor;
};

/// What tells whose a folder is: a file in it, of 8 bytes of the kind of folder and its KVOBasMaker.
struct KVO_EXPORT KVOBasFolderMark {
    char const* name; ///< of the file in the folder
    char kind[8];     ///< first bytes of the file

    /// Marks an open folder as this process's.
    /// @return false with errno when that cannot be done
    bool Write(int folder) const noexcept;
    /// Whether an open folder belongs to this user and bears this mark of a process that is known to have ended.
    bool IsLeftBehind(int folder) const noexcept;
};
