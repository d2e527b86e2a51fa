#pragma once

#include "FailureSweep.h"
#include "FileCalls.h"

#include <cerrno>
#include <cstring>

/// Calls of the fault's kind fail so, one after another.
inline FailingCalls SystemCalls(CallFault fault)
{
    return {"call of kind " + std::to_string(static_cast<int>(fault.kind)) + ", " + std::strerror(fault.error) +
                (fault.torn ? ", torn" : ""),
            [fault](std::int64_t successes) mutable {
                fault.successes = successes;
                SetCallFault(fault);
            },
            [](std::int64_t successes) { return CountedCalls() > successes; }};
}
/// Reads and syncs fail with EIO, writes with ENOSPC, each once.
inline FailingCalls SystemCalls(SystemCall kind)
{
    return SystemCalls({kind, -1, kind == SystemCall::Write || kind == SystemCall::Change ? ENOSPC : EIO});
}
