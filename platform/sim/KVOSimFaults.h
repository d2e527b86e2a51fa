#pragma once

#include "KVOExport.h"

#include <cstdint>

/// Faults on request, for tests of what a full disk, a broken one or the end of the process leaves behind.
///
/// Counted is every call with which a database changes its files: writes of values and of the catalogue, syncs, changes of length, and
/// the making and removal of a journal. One fault is armed at a time, for the whole process.
class KVO_EXPORT KVOSimFaults
{
public:
    KVOSimFaults() = delete;

    /// The call that follows `successes` further ones fails with `error` (an errno), and so do the `times` - 1 calls after it.
    /// @param torn  a write has written half of its bytes by then
    static void FailAfter(std::int64_t successes, int error, std::int64_t times = 1, bool torn = false) noexcept;
    /// The process is killed (SIGKILL) at the call that follows `successes` further ones, before anything of it is done.
    /// @param torn  a write has written half of its bytes by then
    static void KillAfter(std::int64_t successes, bool torn = false) noexcept;
    /// No fault from here on: the state at load time.
    static void Disarm() noexcept;
    /// Calls counted since one of the above.
    static std::int64_t Calls() noexcept;
};
