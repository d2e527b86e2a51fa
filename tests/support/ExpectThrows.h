#pragma once

#include "KVOBasException.h"

#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

/// What `run` throws of the class Exception, or derived from it, says in `report`; an exception of another class passes.
template<class Exception, class Run>
std::string ReportOf(Run const& run, atr_String (KVOBasException::*report)() const = &KVOBasException::DeveloperReport)
{
    try {
        run();
    } catch (Exception const& exception) {
        return (exception.*report)().c_str();
    }
    return "nothing was thrown";
}

/// Expects an exception of the class Exception, or derived from it, with this message.
template<class Exception, class Run>
void ExpectThrows(std::string const& message, Run const& run)
{
    EXPECT_EQ(ReportOf<Exception>(run, &KVOBasException::AsString), message);
}

using Calls = std::initializer_list<std::function<void()>>;

/// Expects of each of the calls an exception of the class Exception, or derived from it.
template<class Exception>
void ExpectEachThrows(Calls const& calls)
{
    for (auto const& call : calls)
        EXPECT_THROW(call(), Exception) << "call " << &call - calls.begin();
}
