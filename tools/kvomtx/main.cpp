// The program: its commands, and how what goes wrong becomes one line and an exit code.

#include "CommandLine.h"
#include "Errors.h"
#include "Interrupt.h"
#include "PrivateFolder.h"
#include "ProviderMemory.h"

#include "KVOMtxLinearAlgebra.h"
#include "KVOSimException.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvParallel.h"
#include "ParallelThreads.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <new>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr char kDescription[] =
    "Natural frequencies and matrix files of finite-element models.\n\n"
    "  kvomtx make-brick 40 4 4 k.mtx m.mtx    a model to play with\n"
    "  kvomtx modes k.mtx m.mtx --count 10     its ten lowest natural frequencies\n\n"
    "A matrix is named by its file; the file's ending tells its format (see kvomtx convert --help). FILE.sim:ID is the\n"
    "matrix of that number in a database (see kvomtx db ls --help).";
constexpr char kFooter[] =
    "\nExit codes: 0 done, 1 the data cannot give what was asked for, 2 wrong command line, 3 an input cannot be read,\n"
    "4 an output cannot be written, 130 interrupted. kvomtx COMMAND --help shows each command with an example.";

// What a file or its name has put into the text may neither break the line nor command the terminal.
// Allocates nothing: it is what is left to do when the memory is exhausted.
int Report(ExitCode code, std::string_view text) noexcept
{
    static char s_line[8192] = "kvomtx: ";
    std::size_t length = std::strlen("kvomtx: ");
    for (char const c : text.substr(0, sizeof s_line - length - 1))
        s_line[length++] = c == '\n' ? ' ' : std::iscntrl(static_cast<unsigned char>(c)) != 0 ? '?' : c;
    s_line[length++] = '\n';
    std::fwrite(s_line, 1, length, stderr);
    return static_cast<int>(code);
}

int ReportNoMemory() noexcept
{
    return Report(ExitCode::kCannot,
                  "the memory does not suffice for this; take a machine with more memory, a smaller matrix or, of modes, fewer");
}

// What no handler sees: failures before main() and in other threads.
[[noreturn]] void EndUnhandled() noexcept
{
    int code = static_cast<int>(ExitCode::kCannot);
    try {
        if (std::current_exception())
            throw;
        Report(ExitCode::kCannot, "ended by an internal failure");
    } catch (std::bad_alloc const&) {
        code = ReportNoMemory();
    } catch (std::exception const& error) {
        Report(ExitCode::kCannot, error.what());
    } catch (...) {
        Report(ExitCode::kCannot, "ended by an unknown failure");
    }
    std::_Exit(code);
}

__attribute__((no_sanitize("address"))) void HandleUnhandled()
{
    std::set_terminate(EndUnhandled);
}

// Called before any library is initialised: their own first allocations may fail.
__attribute__((section(".preinit_array"), used)) void (*g_atLoad)() = HandleUnhandled;

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

int ReportDatabase(KVOSimException const& error)
{
    std::string text = error.UserReport().c_str();
    if (text.ends_with('.'))
        text.pop_back();
    if (error.FailureKind() == KVOSimException::Kind::NoMemory)
        return ReportNoMemory();
    if (*error.Path() != '\0' && !PrivateFolder::IsOurs(error.Path()))
        return Report(ExitCode::kUnreadable, text + AdviceOnInput(error.FailureKind()));
    return Report(ExitCode::kUnwritable, text + "; make room or write elsewhere"); // what is left are outputs and scratch files
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

void RunWithLibrary(Command const& command)
{
    struct Library {
        Library() { KVOMtxLinearAlgebra_initialize(tally); }
        ~Library() { KVOMtxLinearAlgebra_finalize(tally); }
        int tally = 0;
    } const library;
    ParallelThreads threads(ThreadsForTasks());
    KVOSrvParallel const parallel(ParallelThreads::Run, &threads, threads.Count());
    command();
    RequirePrinted();
}

template<class Work>
int Guarded(Work const& work)
{
    try {
        return work();
    } catch (ToolError const& error) {
        return Report(error.Code(), error.what());
    } catch (Interrupted const&) {
        return Report(ExitCode::kInterrupted, "interrupted");
    } catch (KVOSimException const& error) {
        return ReportDatabase(error);
    } catch (KVOSrvMtxOpenFileException const& error) {
        return Report(ExitCode::kUnreadable, error.UserReport().c_str());
    } catch (KVOBasException const& error) {
        return Report(ExitCode::kCannot, error.UserReport().c_str());
    } catch (std::bad_alloc const&) {
        return ReportNoMemory();
    } catch (std::exception const& error) {
        return Report(ExitCode::kCannot, error.what());
    }
}

// A file that is opened later must not become a standard stream that the caller has closed: what is printed would go into it.
void OccupyStandardStreams()
{
    for (int const stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // its use fails as if it were closed
}

int Main(int argc, char** argv)
{
    WatchSignals();
    Command const command = ParseCommandLine(argc, argv, kDescription, kFooter, [](CLI::App& app, Command& chosen) {
        AddModesCommand(app, chosen);
        AddBrickCommand(app, chosen);
        AddInfoCommand(app, chosen);
        AddConvertCommand(app, chosen);
        AddSpyCommand(app, chosen);
        AddDatabaseCommands(app, chosen);
        AddProductCommands(app, chosen);
    });
    RunWithLibrary(command);
    return static_cast<int>(ExitCode::kDone);
}

} // namespace

int main(int argc, char** argv)
{
    OccupyStandardStreams();
    FitProviderThreads(argv);
    return Guarded([&] { return Main(argc, argv); });
}
