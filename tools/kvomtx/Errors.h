#pragma once

#include <stdexcept>
#include <string>

/// How the program ends; scripts rely on the numbers.
enum class ExitCode : int {
    kDone = 0,
    kCannot = 1,       ///< the data or the computation cannot give what was asked for
    kUsage = 2,        ///< the command line is wrong
    kUnreadable = 3,   ///< an input cannot be read or is malformed
    kUnwritable = 4,   ///< an output or scratch file cannot be written
    kInterrupted = 130 ///< by Ctrl-C or another request to end
};

/// What goes wrong for a reason the user can understand: one line that says what, why and what to do.
class ToolError : public std::runtime_error
{
public:
    ToolError(ExitCode code, std::string const& text) : std::runtime_error(text), m_code(code) {}
    ExitCode Code() const noexcept { return m_code; }

private:
    ExitCode m_code;
};
