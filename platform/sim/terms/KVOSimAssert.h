#pragma once

#include "KVOExport.h"

/// The assertion stop of the database interface: for misuse that only a wrong program can cause.
class KVO_EXPORT KVOSimAssert
{
public:
    KVOSimAssert() = delete;

    /// Writes "Assertion failed: <expression>" and, unless `file` is null, "File <file>, line <line>" to the error
    /// stream and ends the process with abort().
    [[noreturn]] static void ReportValidationFailure(char const* expression, char const* file, int line);
};
