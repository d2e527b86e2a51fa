#pragma once

#include "Errors.h"

#include <string_view>

/// How what goes wrong becomes one line and an exit code.
using FailureReport = int (*)(ExitCode code, std::string_view text);

/// To be called in a handler: tells `report` what the exception at hand says to a user, and returns what that does. Allocates nothing where
/// the memory is exhausted.
int TellFailure(FailureReport report);

/// Writes the line to the error stream. Allocates nothing. @return the code @param prefix  at its front
int WriteFailure(std::string_view prefix, ExitCode code, std::string_view text) noexcept;

/// Everything printed has reached its place.
/// @throws ToolError kUnwritable
void RequirePrinted();
