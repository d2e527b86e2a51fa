#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

/// What the command line asked for, to be run when all of it is understood.
using Command = std::function<void()>;

/// What the commands need of the parser, whose templates are instantiated in CommandLine.cpp alone: each file of commands that did so
/// would take ten times as long to compile as its own lines need.

/// Of a value's text: empty when it is sound, else the complaint.
using ValueCheck = std::string (*)(std::string const&);

/// How many threads are to share the work, as the command line says; 1 unless it does.
int ThreadsForTasks() noexcept;

/// Adds the subcommand `name` to `parent`. `footer` follows the options in its help.
CLI::App& AddCommand(CLI::App& parent, std::string const& name, std::string const& description, std::string const& footer);
/// Adds the subcommand `name`, which has subcommands of its own, one of which must be given.
CLI::App& AddGroup(CLI::App& parent, std::string const& name, std::string const& description);

/// Adds an option or, if `name` has no hyphens, an argument. `value` is what it sets, as it stands when it is not given; it belongs to the
/// caller and lives as long as the parser. A value that is no number or not passed by `check` is a wrong command line.
void AddOption(CLI::App& command, std::string const& name, std::string& value, std::string const& description, ValueCheck check = nullptr);
void AddOption(CLI::App& command, std::string const& name, int& value, std::string const& description, ValueCheck check = nullptr);
void AddOption(CLI::App& command, std::string const& name, int& value, std::string const& description, int smallest, int largest);
void AddOption(CLI::App& command, std::string const& name, double& value, std::string const& description, ValueCheck check = nullptr);
void AddOption(CLI::App& command, std::string const& name, std::optional<double>& value, std::string const& description);
/// So many numbers, or none of them.
void AddOption(CLI::App& command, std::string const& name, std::vector<double>& values, int count, std::string const& description);
void AddOption(CLI::App& command, std::string const& name, std::array<double, 3>& values, std::string const& description,
               ValueCheck check = nullptr);
/// The same of what must be given.
void AddRequired(CLI::App& command, std::string const& name, std::string& value, std::string const& description,
                 ValueCheck check = nullptr);
void AddRequired(CLI::App& command, std::string const& name, int& value, std::string const& description, ValueCheck check = nullptr);
/// Adds an option without a value.
void AddFlag(CLI::App& command, std::string const& name, bool& value, std::string const& description);

/// Adds --force, which every command takes that writes files: without it an OutputFile that is there is refused.
void AddForce(CLI::App& command);

/// What the command does: it is left in `chosen` when the command line names it, and its options are set then.
void SetWork(CLI::App& command, Command& chosen, Command work);

/// What the command line asks for, which may be to print the help or the version.
/// @param program  its name, for the texts
/// @param addCommands  called once with the parser and the place where the commands leave their work
/// @param showsFirstPage  without any argument the commands are shown on the error stream, before the exception
/// @throws ToolError kUsage  a wrong command line
Command ParseCommandLine(int argc, char const* const* argv, std::string const& program, char const* description, char const* footer,
                         void (*addCommands)(CLI::App& app, Command& chosen), bool showsFirstPage = true);
