// The program: its commands, and how what goes wrong becomes one line and an exit code.

#include "Commands.h"
#include "Errors.h"
#include "Failures.h"
#include "Interrupt.h"
#include "ProviderMemory.h"

#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvParallel.h"
#include "ParallelThreads.h"

#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr char kDescription[] =
    "Natural frequencies and matrix files of finite-element models.\n\n"
    "  kvomtx make-brick 40 4 4 k.mtx m.mtx    a model to play with\n"
    "  kvomtx modes k.mtx m.mtx --count 10     its ten lowest natural frequencies\n"
    "  kvomtx info k.mtx                       what a matrix is like\n\n"
    "A matrix is named by its file; the file's ending tells its format (see kvomtx convert --help). FILE.sim:ID is the\n"
    "matrix of that number in a database (see kvomtx db ls --help).";
constexpr char kFooter[] =
    "\nExit codes: 0 done, 1 the data cannot give what was asked for, 2 wrong command line, 3 an input cannot be read,\n"
    "4 an output cannot be written, 130 interrupted. kvomtx COMMAND --help shows each command with an example.";

int Report(ExitCode code, std::string_view text) noexcept
{
    return WriteFailure("kvomtx: ", code, text);
}

// What no handler sees: failures before main() and in other threads.
[[noreturn]] void EndUnhandled() noexcept
{
    int code = static_cast<int>(ExitCode::kCannot);
    try {
        if (std::current_exception())
            throw;
        Report(ExitCode::kCannot, "ended by an internal failure");
    } catch (...) {
        code = TellFailure(Report);
    }
    std::_Exit(code);
}

__attribute__((no_sanitize("address"))) void HandleUnhandled()
{
    std::set_terminate(EndUnhandled);
}

// Called before any library is initialised: their own first allocations may fail.
__attribute__((section(".preinit_array"), used)) void (*g_atLoad)() = HandleUnhandled;

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
    Command const command = ParseCommandLine(argc, argv, "kvomtx", kDescription, kFooter, [](CLI::App& app, Command& chosen) {
        AddModesCommand(app, chosen);
        AddBrickCommand(app, chosen);
        AddInfoCommand(app, chosen);
        AddConvertCommand(app, chosen);
        AddSpyCommand(app, chosen);
        AddShapeCommand(app, chosen);
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
    try {
        return Main(argc, argv);
    } catch (...) {
        return TellFailure(Report);
    }
}
