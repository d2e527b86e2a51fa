#pragma once

#include "KVOBasException.h"

#include <exception>

/// What entry points with a status answer where C++ throws. The text is kept for KVOSRVLASTERROR, one for each thread.
namespace FortranStatus
{

constexpr int kOk = 0, kOutOfMemory = -1, kNotThere = -2;

/// Keeps the text. @return the status
int Failed(int status, char const* text) noexcept;
int Failed(KVOBasException const& exception) noexcept;
int Failed(std::exception const& exception) noexcept;

/// What `run` returns, or the status of what it throws.
template<class Run>
int Of(Run const& run) noexcept
{
    try {
        return run();
    } catch (KVOBasException const& exception) {
        return Failed(exception);
    } catch (std::exception const& exception) {
        return Failed(exception);
    }
}

} // namespace FortranStatus
