#include "Failures.h"

#include "Interrupt.h"
#include "PrivateFolder.h"

#include "KVOSimException.h"
#include "KVOSrvMtxExceptions.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>

namespace
{

int TellNoMemory(FailureReport report)
{
    return report(ExitCode::kCannot,
                  "the memory does not suffice for this; take a machine with more memory, a smaller matrix or, of modes, fewer");
}

char const* AdviceOnInput(KVOSimException::Kind kind)
{
    using enum KVOSimException::Kind;
    switch (kind) {
    case NotFound:
    case Foreign:
        return "; check the name";
    case Denied:
        return "; check its permissions";
    case InUse:
        return "; wait for the other program";
    case Damaged:
    case Hdf5:
        return "; make it again";
    default:
        return "";
    }
}

int TellDatabase(KVOSimException const& error, FailureReport report)
{
    std::string text = error.UserReport().c_str();
    if (text.ends_with('.'))
        text.pop_back();
    if (error.FailureKind() == KVOSimException::Kind::NoMemory)
        return TellNoMemory(report);
    if (*error.Path() != '\0' && !PrivateFolder::IsOurs(error.Path()))
        return report(ExitCode::kUnreadable, text + AdviceOnInput(error.FailureKind()));
    return report(ExitCode::kUnwritable, text + "; make room or write elsewhere"); // what is left are outputs and scratch files
}

} // namespace

int TellFailure(FailureReport report)
{
    try {
        throw;
    } catch (ToolError const& error) {
        return report(error.Code(), error.what());
    } catch (Interrupted const&) {
        return report(ExitCode::kInterrupted, "interrupted");
    } catch (KVOSimException const& error) {
        return TellDatabase(error, report);
    } catch (KVOSrvMtxOpenFileException const& error) {
        return report(ExitCode::kUnreadable, error.UserReport().c_str());
    } catch (KVOBasException const& error) {
        return report(ExitCode::kCannot, error.UserReport().c_str());
    } catch (std::bad_alloc const&) {
        return TellNoMemory(report);
    } catch (std::exception const& error) {
        return report(ExitCode::kCannot, error.what());
    } catch (...) {
        return report(ExitCode::kCannot, "ended by an unknown failure");
    }
}

// What a file or its name has put into the text may neither break the line nor command the terminal.
// Allocates nothing: it is what is left to do when the memory is exhausted.
int WriteFailure(std::string_view prefix, ExitCode code, std::string_view text) noexcept
{
    static char s_line[8192];
    std::size_t length = 0;
    for (char const c : prefix)
        s_line[length++] = c;
    for (char const c : text.substr(0, sizeof s_line - length - 1))
        s_line[length++] = c == '\n' ? ' ' : std::iscntrl(static_cast<unsigned char>(c)) != 0 ? '?' : c;
    s_line[length++] = '\n';
    std::fwrite(s_line, 1, length, stderr);
    return static_cast<int>(code);
}

// Results that nobody gets are no results. A write that failed before leaves nothing to flush, only its mark.
void RequirePrinted()
{
    errno = 0;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return;
    throw ToolError(ExitCode::kUnwritable, std::string("the standard output cannot be written") +
                                               (errno != 0 ? std::string(": ") + std::strerror(errno) : "") + "; send it elsewhere");
}
