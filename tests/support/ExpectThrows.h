#pragma once

#include <gtest/gtest.h>
#include <string>

/// Expects an exception of the class Exception, or derived from it, with this message.
template<class Exception, class Run>
void ExpectThrows(std::string const& message, Run const& run)
{
    try {
        run();
        ADD_FAILURE() << "instead of \"" << message << "\" nothing was thrown";
    } catch (Exception const& exception) {
        EXPECT_EQ(exception.AsString().View(), message);
    }
}

/// What the exception of a class that `run` throws says of itself and of its place.
template<class Exception, class Run>
std::string ReportOf(Run const& run)
{
    try {
        run();
    } catch (Exception const& exception) {
        return exception.DeveloperReport().c_str();
    }
    return "nothing was thrown";
}
