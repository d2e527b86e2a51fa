#pragma once

#include <cstddef>
#include <cstdint>

/// @file
/// The system calls on files of a program that has FailSystemCall.cpp among its sources, those of its libraries included, or into which
/// that is preloaded: they can fail, end the process, and be watched. Calls for standard streams go through.

/// Read: read, pread. Write: write, pwrite. Sync: fsync, fdatasync. Look: fstat. Lock: flock. Change: all by which a database changes its
/// files, which are pwrite, fsync, fdatasync, ftruncate, fallocate, unlink, and open with O_CREAT.
enum class SystemCall : int { Read, Write, Sync, Look, Change, Lock };

/// What becomes of the call that follows `successes` further ones of its kind, and of the `times` - 1 calls after it.
struct CallFault {
    SystemCall kind = SystemCall::Change;
    std::int64_t successes = -1; ///< negative: no call fails
    int error = 0;               ///< errno; 0: the process is killed (SIGKILL)
    std::int64_t times = 1;
    bool torn = false; ///< half of a pwrite is done by then
};

extern "C" void SetCallFault(CallFault const& fault) noexcept;
/// Calls of the fault's kind since it was set.
extern "C" std::int64_t CountedCalls() noexcept;

/// The process is killed at the call that follows so many further ones that change a file.
inline void KillAtChange(std::int64_t successes, bool torn = false) noexcept
{
    SetCallFault({SystemCall::Change, successes, 0, 1, torn});
}

/// Told of each call that changes a file, but for its making, before it is made.
struct FileObserver {
    virtual ~FileObserver() = default;
    virtual void OnWrite(int descriptor, void const* data, std::size_t bytes, std::uint64_t offset) = 0;
    virtual void OnSync(int descriptor) = 0;
    virtual void OnLength(int descriptor, std::uint64_t length) = 0;
    virtual void OnRemove(char const* path) = 0;
};
extern FileObserver* fileObserver; ///< null: nobody watches
