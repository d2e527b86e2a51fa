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
