#pragma once

#include "FailureSweep.h"
#include "FileCalls.h"
#include "KVOSimException.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <initializer_list>
#include <string>

/// The text of the KVOSimException that `run` ends in.
template<class Run>
std::string FailureOf(Run const& run)
{
    try {
        run();
    } catch (KVOSimException const& failure) {
        return failure.AsString().c_str();
    }
    return "no failure";
}

/// Expects that `run` ends in a KVOSimException with `part` in its text.
template<class Run>
void ExpectFailure(std::string const& part, Run const& run)
{
    EXPECT_THAT(FailureOf(run), testing::HasSubstr(part));
}

struct Fault {
    int error;
    std::int64_t times;
    bool torn;
};

/// Calls by which a database changes its files; for programs with FailSystemCall.cpp among their sources.
inline FailingCalls FileChanges(Fault const& fault)
{
    return {std::string(std::strerror(fault.error)) + (fault.torn ? ", torn" : ""),
            [fault](std::int64_t successes) {
                SetCallFault({SystemCall::Change, successes, fault.error, fault.times, fault.torn});
            },
            [](std::int64_t successes) { return CountedCalls() > successes; }};
}

/// FailEach() with each of these faults; the text of a failure must say which. check(target, whether run threw, whether all goes on
/// failing)
template<class Prepare, class Run, class Check>
int FailEachCall(std::initializer_list<Fault> faults, Prepare const& prepare, Run const& run, Check const& check)
{
    int failures = 0;
    for (Fault const& fault : faults)
        failures += FailEach(
            FileChanges(fault), prepare,
            [&](auto& target) {
                try {
                    run(target);
                } catch (KVOSimException const& failure) {
                    EXPECT_THAT(failure.AsString().c_str(), testing::HasSubstr(std::strerror(fault.error)));
                    throw;
                }
            },
            [&](auto& target, bool threw) { check(target, threw, fault.times > 1); });
    return failures;
}
