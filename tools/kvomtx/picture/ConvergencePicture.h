#pragma once

#include <vector>

class OutputFile;

/// Of every step of a search: the residuals of the wanted modes that are known by then.
using ConvergenceHistory = std::vector<std::vector<double>>;

/// Draws the residual of every mode over the steps, logarithmic, as a PNG file under its temporary name.
/// @throws ToolError kUnwritable
void DrawConvergence(ConvergenceHistory const& history, OutputFile const& file);
