#pragma once

#include "FailSystemCall.h"
#include "KVOSimException.h"

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

/// Of the calls by which a database changes its files; for programs with FailSystemCall.cpp among their sources.
struct Fault {
    int error;
    std::int64_t times;
    bool torn;
};

/// FailEach() with each of these faults; the text of a failure must say which. check(target, whether run threw, whether all goes on
/// failing)
template<class Prepare, class Run, class Check>
int FailEachCall(std::initializer_list<Fault> faults, Prepare const& prepare, Run const& run, Check const& check)
{
    int failures = 0;
    for (Fault const& fault : faults)
        failures += FailEach(
            SystemCalls({SystemCall::Change, -1, fault.error, fault.times, fault.torn}), prepare,
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
