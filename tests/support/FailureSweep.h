#pragma once

#include "KVOBasException.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>

/// A kind of call of which one can be made to fail.
struct FailingCalls {
    std::string name;
    std::function<void(std::int64_t)> failAfter;  ///< lets the call fail that follows so many successful ones; negative: none
    std::function<bool(std::int64_t)> wasReached; ///< whether one has failed since failAfter() was called with this number
};

/// Of calls that only tell their failure: it is still to come when one of the next calls has it.
template<class Call>
FailingCalls CallsThatTellNoCount(char const* name, void (*failAfter)(std::int64_t), Call const& succeeds)
{
    return {name, failAfter, [succeeds](std::int64_t successes) {
                for (; successes >= 0; --successes)
                    if (!succeeds())
                        return false;
                return true;
            }};
}

/// Allocations by the platform's allocator.
inline FailingCalls Allocations()
{
    return CallsThatTellNoCount("allocation", &mem_FailAllocationAfter, [] {
        void* const memory = mem_Malloc(1);
        mem_Free(memory);
        return memory != nullptr;
    });
}

/// Lets each of the calls that `run` makes fail in turn, and none at last, and gives `check` what came of it. `prepare` makes what they
/// work on, anew each time. A failure is an exception of the library's family or of memory that ran out.
/// @param run    run(target)
/// @param check  check(target, whether run threw); no call fails any more
/// @return how many of the calls made `run` throw
template<class Prepare, class Run, class Check>
int FailEach(FailingCalls const& calls, Prepare const& prepare, Run const& run, Check const& check)
{
    int failures = 0;
    for (int call = 0;; ++call) {
        SCOPED_TRACE(calls.name + " " + std::to_string(call) + " fails");
        auto target = prepare();
        bool threw = false;
        calls.failAfter(call);
        try {
            run(target);
        } catch (KVOBasException const&) {
            threw = true;
        } catch (std::bad_alloc const&) {
            threw = true;
        }
        bool const reached = calls.wasReached(call);
        calls.failAfter(-1);
        EXPECT_TRUE(reached || !threw) << "failed by itself";
        failures += threw;
        check(target, threw);
        if (!reached || testing::Test::HasFailure())
            return failures;
    }
}

/// The same where nothing need be prepared: run(), check(whether run threw).
template<class Run, class Check>
int FailEach(FailingCalls const& calls, Run const& run, Check const& check)
{
    return FailEach(
        calls, [] { return 0; }, [&](int) { run(); }, [&](int, bool threw) { check(threw); });
}
