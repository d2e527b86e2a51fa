#pragma once

#include "KVOExport.h"
#include "atr_String.h"
#include "mem_Allocator.h"

#include <cstdint>

/// Root of every exception of the platform and of the libraries above it.
///
/// A throw site builds the exception and calls Throw(), which records the position and ends in Raise(). A handler
/// catches the class itself, KVOBasException or mem_AllocationOperators. One that nobody catches ends the process by
/// the host's terminate handler, which is never touched; docs/errors.md shows one that tells number and report.
class KVO_EXPORT KVOBasException : public mem_AllocationOperators
{
public:
    KVOBasException() noexcept = default;
    KVOBasException(KVOBasException const&) noexcept = default;
    KVOBasException& operator=(KVOBasException const&) noexcept = default;
    virtual ~KVOBasException();

    /// The message, a newline and "File <source>, line <n>"; the message alone when the exception was never thrown by
    /// Throw().
    virtual atr_String DeveloperReport() const;

    /// The message.
    virtual atr_String UserReport() const;

    /// The class's message, translated.
    virtual atr_String AsString() const = 0;

    /// Throws a copy of this object as its most-derived class.
    [[noreturn]] virtual void Raise() const = 0;

    /// The class's fixed number.
    virtual int ErrorNumber() const = 0;

    /// Records the position and calls Raise().
    /// @param file  source path without its ending; it is not copied and must live as long as the exception, as a
    /// literal does
    [[noreturn]] void Throw(char const* file, int line);

private:
    char const* m_file = nullptr;
    std::int64_t m_line = 0;
};
