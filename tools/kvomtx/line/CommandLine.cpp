#include "CommandLine.h"

#include "Completion.h"
#include "Errors.h"
#include "Mistakes.h"
#include "OutputFile.h"
#include "Validators.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <type_traits>
#include <utility>

namespace
{

constexpr int kMostThreads = 256; // as many as count for the library

// The parser's own words for what is no number are those of a program.
template<class T>
std::string RequireNumber(std::string const& text)
{
    char* end = nullptr;
    errno = 0;
    if constexpr (std::is_same_v<T, int>) {
        long long const value = std::strtoll(text.c_str(), &end, 0); // as the parser reads it
        if (!text.empty() && *end == '\0')
            return errno == 0 && std::in_range<int>(value) ? "" : text + " is beyond what can be counted here, 2147483647";
    }
    std::strtod(text.c_str(), &end);
    bool const isNumber = !text.empty() && *end == '\0';
    return isNumber && std::is_same_v<T, double> ? "" : text + (isNumber ? " is not a whole number" : " is not a number");
}

template<class T>
CLI::Option& Add(CLI::App& command, std::string const& name, T& value, std::string const& description, ValueCheck check)
{
    CLI::Option* const option = command.add_option(name, value, description);
    if constexpr (std::is_same_v<T, int>)
        option->check(RequireNumber<int>);
    else if constexpr (!std::is_same_v<T, std::string>)
        option->check(RequireNumber<double>);
    if constexpr (std::is_same_v<T, std::string>)
        if (check == RequireName)
            option->type_name("FILE"); // which shells complete
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

// What who types the name alone is to see.
void PrintFirstPage(CLI::App const& app)
{
    std::string page = app.get_description() + "\n\nCommands:\n";
    for (CLI::App const* command : app.get_subcommands([](CLI::App const* each) { return !each->get_group().empty(); })) {
        std::string name = command->get_name();
        name.resize(std::max<std::size_t>(name.size(), 20), ' ');
        page += "  " + name + command->get_description() + "\n";
    }
    page += "\n" + app.get_name() + " COMMAND --help shows a command with an example, man " + app.get_name() + " all of them.\n";
    std::fputs(page.c_str(), stderr);
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
    Add(command, name, value, description, nullptr).check(CLI::Range(smallest, largest));
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
    Add(command, name, values, description, nullptr).expected(count);
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

void AddForce(CLI::App& command)
{
    command.add_flag_callback(
        "--force", [] { OutputFile::ReplaceOlder(); }, "Replace outputs that are there already");
}

void SetWork(CLI::App& command, Command& chosen, Command work)
{
    command.callback([&chosen, work = std::move(work)] { chosen = work; });
}

Command ParseCommandLine(int argc, char const* const* argv, std::string const& program, char const* description, char const* footer,
                         void (*addCommands)(CLI::App& app, Command& chosen), bool showsFirstPage)
{
    Command chosen;
    auto const app = std::make_shared<CLI::App>(description, program);
    app->footer(footer);
    app->set_version_flag("--version", program + " " KVO_VERSION);
    app->require_subcommand(1);
    AddThreads(*app);
    addCommands(*app, chosen);
    std::string shell;
    CLI::App& completion = AddCommand(*app, "completion", "What completes a command line in a shell: bash, zsh or fish", "");
    completion.group(""); // for installers
    completion.add_option("SHELL", shell)->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
    completion.callback([&] { chosen = [app, shell] { std::fputs(CompletionScript(*app, shell).c_str(), stdout); }; });
    if (argc < 2 && showsFirstPage)
        PrintFirstPage(*app);
    try {
        app->parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() == 0) // help and version
            return [app, error] { app->exit(error); };
        throw ToolError(ExitCode::kUsage,
                        ExplainMistake(*app, error, argv + 1) + "; " + program + " --help, or --help after the command, shows how");
    }
    return chosen;
}
