#include "Mistakes.h"

#include "NearestWord.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace
{

std::vector<std::string> CommandsOf(CLI::App const& app)
{
    std::vector<std::string> names;
    for (CLI::App const* command : app.get_subcommands([](CLI::App const* each) { return !each->get_group().empty(); }))
        names.push_back(command->get_name());
    return names;
}

std::vector<std::string> OptionsOf(CLI::App const& app)
{
    std::vector<std::string> names;
    for (CLI::Option const* option : app.get_options())
        for (std::string const& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

std::string Suggest(std::string const& word, std::vector<std::string> const& known)
{
    std::string const nearest = NearestWord(word, known);
    return nearest.empty() ? "" : ", the nearest is " + nearest;
}

std::string UnknownOption(std::string const& word, CLI::App const& parser, CLI::App const& command)
{
    std::string const option = word.substr(0, word.find('='));
    bool const isProgram = parser.get_parent() == nullptr;
    if (&parser != &command)
        if (std::vector<std::string> const later = OptionsOf(command); std::ranges::find(later, option) != later.end())
            return option + " goes behind the command, " + command.get_name();
    return option + " is no option of " + parser.get_name() + (isProgram ? " itself" : "") + Suggest(option, OptionsOf(parser));
}

// The first word that nothing takes; its parser is `command` or one that this is a command of.
std::string UnknownWord(CLI::App const& parser, CLI::App const& command)
{
    std::vector<std::string> const words = parser.remaining();
    auto const option = std::ranges::find_if(words, [](std::string const& word) { return word.size() > 1 && word[0] == '-'; });
    if (option != words.end())
        return UnknownOption(*option, parser, command);
    return words.empty() || parser.get_require_subcommand_min() > 0 ? "" : "\"" + words[0] + "\" is an argument too many";
}

std::string NoCommand(CLI::App const& app)
{
    if (app.get_parent() == nullptr)
        return "no command is given";
    std::string text;
    for (std::string const& name : CommandsOf(app))
        text += (text.empty() ? "" : ", ") + name;
    return "a command is missing behind " + app.get_name() + ", one of " + text;
}

} // namespace

std::string ExplainMistake(CLI::App const& app, CLI::ParseError const& error, char const* const* words)
{
    CLI::App const* last = &app;
    std::vector<CLI::App const*> parsers{last};
    for (; !last->get_subcommands().empty(); parsers.push_back(last)) {
        last = last->get_subcommands().front();
        ++words;
    }
    bool const isUnfinished = dynamic_cast<CLI::RequiredError const*>(&error) != nullptr;
    if (!isUnfinished && dynamic_cast<CLI::ExtrasError const*>(&error) == nullptr)
        return error.what();
    for (CLI::App const* parser : parsers)
        if (std::string const text = UnknownWord(*parser, *last); !text.empty())
            return text;
    // A misspelt command is an argument too many for the parser, and a missing command.
    if (last->get_require_subcommand_min() > 0) {
        if (*words == nullptr || **words == '\0')
            return NoCommand(*last);
        if (**words != '-')
            return std::string("\"") + *words + "\" is no command" + (last == &app ? "" : " of " + last->get_name()) +
                   Suggest(*words, CommandsOf(*last));
        return NoCommand(*last);
    }
    return error.what();
}
