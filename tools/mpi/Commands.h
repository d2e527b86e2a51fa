#pragma once

#include "CommandLine.h"

#include <string>
#include <vector>

class Ranks;

/// Each adds a subcommand that leaves its work in `chosen`. What the arguments refer to lives as long as the program.
/// @param solverOptions  those of the command line that are PETSc's
void AddModesOnRanks(CLI::App& app, Command& chosen, Ranks const& ranks, std::vector<std::string> const& solverOptions);
void AddGemmOnRanks(CLI::App& app, Command& chosen, Ranks const& ranks);
