#pragma once

#include "FailureSweep.h"
#include "FileCalls.h"

#include <cerrno>

/// Reads and syncs fail with EIO, writes with ENOSPC, each once.
inline FailingCalls SystemCalls(SystemCall kind)
{
    constexpr char const* kNames[] = {"read", "write", "sync", "fstat", "change of a file"};
    int const error = kind == SystemCall::Write || kind == SystemCall::Change ? ENOSPC : EIO;
    return {kNames[static_cast<int>(kind)],
            [=](std::int64_t successes) {
                SetCallFault({kind, successes, error});
            },
            [](std::int64_t successes) { return CountedCalls() > successes; }};
}
