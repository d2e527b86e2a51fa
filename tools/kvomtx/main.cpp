#include "Commands.h"
#include "Errors.h"
#include "Interrupt.h"

#include "KVOMtxLinearAlgebra.h"
#include "KVOSimException.h"
#include "KVOSrvMtxExceptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

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

int Report(ExitCode code, std::string text)
{
    std::ranges::replace(text, '\n', ' ');
    std::fprintf(stderr, "kvomtx: %s\n", text.c_str());
    return static_cast<int>(code);
}

void RunWithLibrary(Command const& command)
{
    struct Library {
        Library() { KVOMtxLinearAlgebra_initialize(tally); }
        ~Library() { KVOMtxLinearAlgebra_finalize(tally); }
        int tally = 0;
    } const library;
    command();
    // Results that nobody gets are no results.
    if (std::fflush(stdout) != 0)
        throw ToolError(ExitCode::kUnwritable, std::string("the standard output cannot be written: ") + std::strerror(errno));
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
    } catch (KVOSimException const& error) { // inputs are opened by InputDatabase: what is left are outputs and scratch files
        return Report(ExitCode::kUnwritable, std::string(error.UserReport().c_str()) + " Is the disk full?");
    } catch (KVOSrvMtxFileWriteFailure const& error) {
        return Report(ExitCode::kUnwritable, std::string(error.UserReport().c_str()) + "; is the disk full?");
    } catch (KVOSrvMtxOpenFileException const& error) {
        return Report(ExitCode::kUnreadable, error.UserReport().c_str());
    } catch (KVOBasException const& error) {
        return Report(ExitCode::kCannot, error.UserReport().c_str());
    } catch (std::bad_alloc const&) {
        return Report(ExitCode::kCannot, "the memory does not suffice for this; take a smaller model or fewer modes");
    } catch (std::exception const& error) {
        return Report(ExitCode::kCannot, error.what());
    }
}

// A misspelt command is an argument too many of the program for the parser, and a missing command.
std::string Explain(CLI::App const& app, CLI::ParseError const& error, std::string const& first)
{
    if (app.get_subcommands().empty() && !first.empty() && first[0] != '-')
        return "\"" + first + "\" is no command";
    return error.what();
}

} // namespace

int main(int argc, char** argv)
{
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
            return app.exit(error);
        return Report(ExitCode::kUsage,
                      Explain(app, error, argc > 1 ? argv[1] : "") + "; kvomtx --help, or --help after the command, shows how");
    }
    return Run(command);
}
