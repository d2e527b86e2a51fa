#pragma once

#include <string>
#include <vector>

class PictureFile;

/// Of every step of a search: the residuals of the wanted modes that are known by then.
using ConvergenceHistory = std::vector<std::vector<double>>;

/// Draws the residual of every mode over the steps, logarithmic: a line with the number of its mode, told apart in grey by dashes and
/// marks.
/// @param title  above it
/// @throws ToolError kUnwritable
void DrawConvergence(ConvergenceHistory const& history, std::string const& title, PictureFile const& file);
