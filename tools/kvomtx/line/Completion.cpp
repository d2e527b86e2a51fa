#include "Completion.h"

#include <CLI/CLI.hpp>

#include <string_view>
#include <vector>

namespace
{

/// An option or, without names, an argument.
struct Word {
    std::vector<std::string> names; // with their hyphens
    std::string description;
    bool takesValue = false;
    bool takesFile = false; // other values, typed mostly, are typed
};

/// A command: one that has others, or one that does something.
struct Node {
    std::vector<std::string> path; // without the program
    std::string description;
    std::vector<Word> options;
    std::vector<Node> commands;

    std::string Joined(char const* separator) const { return CLI::detail::join(path, separator); }
};

Node Describe(CLI::App const& app, std::vector<std::string> const& path)
{
    Node node{path, app.get_description(), {}, {}};
    for (CLI::Option const* option : app.get_options()) {
        Word word{{}, option->get_description(), option->get_items_expected_max() > 0, option->get_type_name().starts_with("FILE")};
        for (std::string const& name : option->get_snames())
            word.names.push_back("-" + name);
        for (std::string const& name : option->get_lnames())
            word.names.push_back("--" + name);
        if (!word.names.empty())
            node.options.push_back(word);
    }
    for (CLI::App const* command : app.get_subcommands([](CLI::App const* each) { return !each->get_group().empty(); })) {
        std::vector<std::string> further = path;
        further.push_back(command->get_name());
        node.commands.push_back(Describe(*command, further));
    }
    return node;
}

/// The node and all below it, commands before their own.
void Flatten(Node const& node, std::vector<Node const*>& all)
{
    all.push_back(&node);
    for (Node const& command : node.commands)
        Flatten(command, all);
}

std::string Escaped(std::string_view text, std::string_view special)
{
    std::string escaped;
    for (char const c : text) {
        if (special.find(c) != std::string_view::npos)
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// In single quotes, as all shells read it.
std::string Quoted(std::string_view text)
{
    std::string quoted = "'";
    for (char const c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string NamesWhere(Node const& node, bool (*holds)(Word const& word))
{
    std::string names;
    for (Word const& word : node.options)
        for (std::string const& name : word.names)
            if (holds(word))
                names += " " + name;
    return names.empty() ? names : names.substr(1);
}

// The words before the cursor tell the command; the one in front of it, whether an option's value is typed.
std::string Bash(std::string const& program, std::vector<Node const*> const& nodes)
{
    std::string paths, cases;
    for (Node const* node : nodes) {
        std::string const path = node->Joined(" ");
        paths += (paths.empty() ? "" : " | ") + Quoted(path);
        std::string commands;
        for (Node const& command : node->commands)
            commands += " " + command.path.back();
        cases += "    " + Quoted(path) + ") commands=" + Quoted(commands) +
                 "\n        options=" + Quoted(NamesWhere(*node, [](Word const&) { return true; })) +
                 "\n        files=" + Quoted(NamesWhere(*node, [](Word const& word) { return word.takesFile; })) +
                 "\n        typed=" + Quoted(NamesWhere(*node, [](Word const& word) { return word.takesValue && !word.takesFile; })) +
                 " ;;\n";
    }
    std::string const function = "_" + program;
    return "# Completes " + program + " in bash; made by \"" + program + " completion bash\".\n" + function +
           "()\n{\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} path= i next\n"
           "    local commands options files typed\n"
           "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "        next=${path:+$path }${COMP_WORDS[i]}\n"
           "        case $next in\n        " +
           paths + ") path=$next ;;\n        esac\n    done\n    case $path in\n" + cases +
           "    esac\n"
           "    if [[ \" $typed \" == *\" $before \"* ]]; then\n"
           "        COMPREPLY=()\n"
           "    elif [[ $word == -* && \" $files \" != *\" $before \"* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n"
           "    elif [[ -n $commands ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$commands\" -- \"$word\"))\n"
           "    else\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
           "    fi\n"
           "}\ncomplete -F " +
           function + " " + program + "\n";
}

std::string ZshOption(Word const& word)
{
    std::string const all = CLI::detail::join(word.names, " ");
    std::string line = Quoted("(" + all + ")");
    line += word.names.size() > 1 ? "{" + CLI::detail::join(word.names, ",") + "}" : word.names[0];
    std::string value = word.takesFile ? ":file:_files" : word.takesValue ? ":number: " : "";
    return line + Quoted("[" + Escaped(word.description, "[]:\\") + "]" + value);
}

std::string Zsh(std::string const& program, std::vector<Node const*> const& nodes)
{
    std::string text = "#compdef " + program + "\n# Completes " + program + " in zsh; made by \"" + program + " completion zsh\".\n";
    for (Node const* node : nodes) {
        std::string const function = "_" + program + (node->path.empty() ? "" : "_" + node->Joined("_"));
        text += function + "()\n{\n    local state line\n    local -a commands\n    _arguments -C";
        for (Word const& word : node->options)
            text += " \\\n        " + ZshOption(word);
        if (node->commands.empty()) {
            text += " \\\n        '*:file:_files'\n}\n";
            continue;
        }
        text += " \\\n        '1: :->command' '*:: :->rest'\n    case $state in\n    command)\n        commands=(";
        std::string further;
        for (Node const& command : node->commands) {
            text += "\n            " + Quoted(command.path.back() + ":" + Escaped(command.description, ":\\"));
            further += "        " + command.path.back() + ") _" + program + "_" + command.Joined("_") + " ;;\n";
        }
        text +=
            ")\n        _describe command commands ;;\n    rest)\n        case $line[1] in\n" + further + "        esac ;;\n    esac\n}\n";
    }
    return text + "_" + program + " \"$@\"\n";
}

// Whether the words before the cursor name this command and none of its own.
std::string FishCondition(Node const& node)
{
    std::string condition;
    for (std::string const& name : node.path)
        condition += (condition.empty() ? "" : "; and ") + ("__fish_seen_subcommand_from " + name);
    if (node.commands.empty())
        return condition;
    std::string further;
    for (Node const& command : node.commands)
        further += " " + command.path.back();
    return condition + (condition.empty() ? "" : "; and ") + "not __fish_seen_subcommand_from" + further;
}

std::string Fish(std::string const& program, std::vector<Node const*> const& nodes)
{
    std::string text = "# Completes " + program + " in fish; made by \"" + program + " completion fish\".\n";
    for (Node const* node : nodes) {
        std::string const begin = "complete -c " + program + " -n " + Quoted(FishCondition(*node));
        for (Node const& command : node->commands)
            text += begin + " -f -a " + command.path.back() + " -d " + Quoted(Escaped(command.description, "\\")) + "\n";
        for (Word const& word : node->options) {
            text += begin;
            for (std::string const& name : word.names)
                text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            text += std::string(word.takesFile    ? " -r"
                                : word.takesValue ? " -x"
                                                  : "") +
                    " -d " + Quoted(Escaped(word.description, "\\")) + "\n";
        }
    }
    return text;
}

} // namespace

std::string CompletionScript(CLI::App const& app, std::string const& shell)
{
    Node const root = Describe(app, {});
    std::vector<Node const*> nodes;
    Flatten(root, nodes);
    return (shell == "bash" ? Bash : shell == "zsh" ? Zsh : Fish)(app.get_name(), nodes);
}
