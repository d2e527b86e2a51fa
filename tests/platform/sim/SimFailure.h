#pragma once

#include "KVOSimException.h"
#include "KVOSimFaults.h"

#include <cerrno>
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

/// Lets each call of `run` that changes a file fail in turn, after `prepare` made what it works on, and gives `check` what came of it.
/// @return how many made it throw
template<class Prepare, class Run, class Check>
int FailEachCall(std::initializer_list<Fault> faults, Prepare const& prepare, Run const& run, Check const& check)
{
    int failures = 0;
    for (Fault const& fault : faults)
        for (int call = 0;; ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + (fault.torn ? ", torn: " : ": ") + std::strerror(fault.error));
            auto target = prepare();
            KVOSimFaults::FailAfter(call, fault.error, fault.times, fault.torn);
            std::string const failure = FailureOf([&] { run(target); });
            bool const reached = KVOSimFaults::Calls() > call, threw = failure != "no failure";
            KVOSimFaults::Disarm();
            EXPECT_THAT(failure, testing::AnyOf("no failure", testing::HasSubstr(std::strerror(fault.error))));
            failures += threw;
            check(target, threw, fault.times > 1);
            if (!reached || testing::Test::HasFailure())
                break;
        }
    return failures;
}
