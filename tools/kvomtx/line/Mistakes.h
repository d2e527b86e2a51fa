#pragma once

#include <string>

namespace CLI
{
class App;
class ParseError;
} // namespace CLI

/// What is wrong with the command line, in the user's words: the command or option that is not known, with the nearest that is, where the
/// parser would speak of what else is missing.
/// @param words  of the command line, behind the program's name
std::string ExplainMistake(CLI::App const& app, CLI::ParseError const& error, char const* const* words);
