#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

/// Owner of a file descriptor; -1: of none.
class Descriptor
{
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        Descriptor const former(std::exchange(m_number, std::exchange(other.m_number, -1)));
        return *this;
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    /// Closes it, and leaves errno as it is.
    ~Descriptor()
    {
        int const error = errno;
        Close();
        errno = error;
    }

    int Number() const noexcept { return m_number; }
    bool IsOpen() const noexcept { return m_number >= 0; }
    /// Whether it was closed without a failure; it is closed in any case.
    bool Close() noexcept
    {
        int const number = std::exchange(m_number, -1);
        return number < 0 || close(number) == 0;
    }

private:
    int m_number = -1;
};
