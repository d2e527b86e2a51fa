#pragma once

/// @file
/// The error stream of the platform.

#include "KVOExport.h"

/// A text stream on the process's standard error; it can be used before and after the life of static objects.
class KVO_EXPORT aio_ostream
{
public:
    constexpr aio_ostream() noexcept = default;
    aio_ostream(aio_ostream const&) = delete;
    aio_ostream& operator=(aio_ostream const&) = delete;

    /// Writes `text`; null writes nothing.
    aio_ostream& operator<<(char const* text);
    /// Writes one character.
    aio_ostream& put(char character);
    /// Writes `number` in decimal.
    aio_ostream& print_int(long long number);
    /// Hands on what is still held back.
    aio_ostream& flush();
};

/// The platform's error stream.
extern KVO_EXPORT aio_ostream aio_cerr;
