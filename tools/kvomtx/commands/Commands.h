#pragma once

#include "CommandLine.h"

/// Each adds a subcommand that leaves its work in `chosen`.
void AddModesCommand(CLI::App& app, Command& chosen);
void AddBrickCommand(CLI::App& app, Command& chosen);
void AddInfoCommand(CLI::App& app, Command& chosen);
void AddConvertCommand(CLI::App& app, Command& chosen);
void AddShapeCommand(CLI::App& app, Command& chosen);
void AddSpyCommand(CLI::App& app, Command& chosen);
void AddDatabaseCommands(CLI::App& app, Command& chosen);
void AddProductCommands(CLI::App& app, Command& chosen);
