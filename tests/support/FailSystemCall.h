#pragma once

#include "FailureSweep.h"

#include <cstdint>

/// The system calls on files that can be made to fail: read and pread with EIO, write and pwrite with ENOSPC, fsync and fdatasync with EIO.
enum class SystemCall : int { Read, Write, Sync };

/// Makes the call of a kind that follows `successes` further ones fail, once; a negative number: none does. It reaches every library of a
/// program that has FailSystemCall.cpp among its sources, and every program that the same source is preloaded into: the variable
/// KVO_FAIL_CALL, "1 20 FILE", lets call 20 (from 0) of kind 1 fail and makes FILE when it has. Standard streams are left alone.
extern "C" void FailSystemCallAfter(int kind, std::int64_t successes) noexcept;
/// Whether one has failed since.
extern "C" bool SystemCallHasFailed() noexcept;

inline FailingCalls SystemCalls(SystemCall kind)
{
    constexpr char const* kNames[] = {"read", "write", "sync"};
    return {kNames[static_cast<int>(kind)], [kind](std::int64_t successes) { FailSystemCallAfter(static_cast<int>(kind), successes); },
            [](std::int64_t) { return SystemCallHasFailed(); }};
}
