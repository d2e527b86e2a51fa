#include "CommandLine.h"

#include "Errors.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <utility>

namespace
{

constexpr int kMostThreads = 256; // as many as count for the library

template<class T>
CLI::Option& Add(CLI::App& command, std::string const& name, T& value, std::string const& description, ValueCheck check)
{
    CLI::Option* const option = command.add_option(name, value, description);
    if (check != nullptr)
        option->check(check);
    return *option;
}

int g_threads = 1;

// Every command takes it, also in front of its name.
void AddThreads(CLI::App& app)
{
    AddOption(app, "--threads", g_threads, "threads that share long steps in memory (1)", 1, kMostThreads);
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

} // namespace

CLI::App& AddCommand(CLI::App& parent, std::string const& name, std::string const& description, std::string const& footer)
{
    CLI::App& command = *parent.add_subcommand(name, description);
    command.footer(footer);
    AddThreads(command);
    return command;
}

int ThreadsForTasks() noexcept
{
    return g_threads;
}

CLI::App& AddGroup(CLI::App& parent, std::string const& name, std::string const& description)
{
    CLI::App& group = *parent.add_subcommand(name, description);
    group.require_subcommand(1);
    return group;
}

void AddOption(CLI::App& command, std::string const& name, std::string& value, std::string const& description, ValueCheck check)
{
    Add(command, name, value, description, check);
}

void AddOption(CLI::App& command, std::string const& name, int& value, std::string const& description, ValueCheck check)
{
    Add(command, name, value, description, check);
}

void AddOption(CLI::App& command, std::string const& name, int& value, std::string const& description, int smallest, int largest)
{
    command.add_option(name, value, description)->check(CLI::Range(smallest, largest));
}

void AddOption(CLI::App& command, std::string const& name, double& value, std::string const& description, ValueCheck check)
{
    Add(command, name, value, description, check);
}

void AddOption(CLI::App& command, std::string const& name, std::optional<double>& value, std::string const& description)
{
    Add(command, name, value, description, nullptr);
}

void AddOption(CLI::App& command, std::string const& name, std::vector<double>& values, int count, std::string const& description)
{
    command.add_option(name, values, description)->expected(count);
}

void AddOption(CLI::App& command, std::string const& name, std::array<double, 3>& values, std::string const& description, ValueCheck check)
{
    Add(command, name, values, description, check);
}

void AddRequired(CLI::App& command, std::string const& name, std::string& value, std::string const& description, ValueCheck check)
{
    Add(command, name, value, description, check).required();
}

void AddRequired(CLI::App& command, std::string const& name, int& value, std::string const& description, ValueCheck check)
{
    Add(command, name, value, description, check).required();
}

void AddFlag(CLI::App& command, std::string const& name, bool& value, std::string const& description)
{
    command.add_flag(name, value, description);
}

void SetWork(CLI::App& command, Command& chosen, Command work)
{
    command.callback([&chosen, work = std::move(work)] { chosen = work; });
}

Command ParseCommandLine(int argc, char const* const* argv, std::string const& program, char const* description, char const* footer,
                         void (*addCommands)(CLI::App& app, Command& chosen))
{
    Command chosen;
    auto const app = std::make_shared<CLI::App>(description, program);
    app->footer(footer);
    app->set_version_flag("--version", program + " " KVO_VERSION);
    app->require_subcommand(1);
    AddThreads(*app);
    addCommands(*app, chosen);
    try {
        app->parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() == 0) // help and version
            return [app, error] { app->exit(error); };
        throw ToolError(ExitCode::kUsage,
                        Explain(*app, error, argv + 1) + "; " + program + " --help, or --help after the command, shows how");
    }
    return chosen;
}
