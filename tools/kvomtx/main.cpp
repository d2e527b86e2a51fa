#include "Commands.h"
#include "Database.h"
#include "Errors.h"
#include "Interrupt.h"

#include "KVOMtxLinearAlgebra.h"
#include "KVOSimException.h"
#include "KVOSrvMtxExceptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string>
#include <unistd.h>
#include <utility>

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

constexpr char kMemoryAdvice[] = "; take a machine with more memory, a smaller matrix or, of modes, fewer";

// What a file or its name has put into the text may neither break the line nor command the terminal.
int Report(ExitCode code, std::string text)
{
    std::ranges::replace(text, '\n', ' ');
    std::ranges::replace_if(
        text, [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }, '?');
    std::fprintf(stderr, "kvomtx: %s\n", text.c_str());
    return static_cast<int>(code);
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

int ReportDatabase(KVOSimException const& error)
{
    std::string text = error.UserReport().c_str();
    if (text.ends_with('.'))
        text.pop_back();
    if (error.FailureKind() == KVOSimException::Kind::NoMemory)
        return Report(ExitCode::kCannot, text + kMemoryAdvice);
    if (IsInput(error))
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
    command();
    RequirePrinted();
}

int Run(Command const& command)
{
    try {
        RunWithLibrary(command);
        return static_cast<int>(ExitCode::kDone);
    } catch (ToolError const& error) {
        return Report(error.Code(), error.what());
    } catch (Interrupted const&) {
        return Report(ExitCode::kInterrupted, "interrupted");
    } catch (KVOSimException const& error) {
        return ReportDatabase(error);
    } catch (KVOSrvMtxFileWriteFailure const& error) {
        return Report(ExitCode::kUnwritable, std::string(error.UserReport().c_str()) + "; make room or write elsewhere");
    } catch (KVOSrvMtxOpenFileException const& error) {
        return Report(ExitCode::kUnreadable, error.UserReport().c_str());
    } catch (KVOBasException const& error) {
        return Report(ExitCode::kCannot, error.UserReport().c_str());
    } catch (std::bad_alloc const&) {
        return Report(ExitCode::kCannot, std::string("the memory does not suffice for this") + kMemoryAdvice);
    } catch (std::exception const& error) {
        return Report(ExitCode::kCannot, error.what());
    }
}

// A misspelt command is an argument too many for the parser, and a missing command.
std::string Explain(CLI::App const& app, CLI::ParseError const& error, char const* const* words)
{
    CLI::App const* last = &app;
    for (; !last->get_subcommands().empty(); last = last->get_subcommands().front())
        ++words;
    if (last->get_require_subcommand_min() > 0 && *words != nullptr && **words != '-' && **words != '\0')
        return std::string("\"") + *words + "\" is no command" + (last == &app ? "" : " of " + last->get_name());
    return error.what();
}

// A file that is opened later must not become a standard stream that the caller has closed: what is printed would go into it.
void OccupyStandardStreams()
{
    for (int const stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // its use fails as if it were closed
}

} // namespace

int main(int argc, char** argv)
{
    OccupyStandardStreams();
    WatchSignals();
    Command command;
    CLI::App app(kDescription, "kvomtx");
    app.footer(kFooter);
    app.set_version_flag("--version", "kvomtx " KVO_VERSION);
    app.require_subcommand(1);
    AddModesCommand(app, command);
    AddBrickCommand(app, command);
    AddInfoCommand(app, command);
    AddConvertCommand(app, command);
    AddSpyCommand(app, command);
    AddDatabaseCommands(app, command);
    AddProductCommands(app, command);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() == 0) // help and version
            return Run([&] { app.exit(error); });
        return Report(ExitCode::kUsage, Explain(app, error, argv + 1) + "; kvomtx --help, or --help after the command, shows how");
    }
    return Run(command);
}
