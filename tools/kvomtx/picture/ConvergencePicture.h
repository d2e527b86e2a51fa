#pragma once

class OutputFile;
struct SubspaceResult;

/// Draws the relative change of every eigenvalue over the iterations, logarithmic, as a PNG file under its temporary name.
/// @throws ToolError kUnwritable
void DrawConvergence(SubspaceResult const& result, OutputFile const& file);
