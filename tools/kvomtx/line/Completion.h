#pragma once

#include <string>

namespace CLI
{
class App;
}

/// The script by which a shell completes the program's commands, options and files, made from the command line's definition.
/// @param shell  "bash", "zsh" or "fish"
std::string CompletionScript(CLI::App const& app, std::string const& shell);
