#pragma once

/// @file
/// What every room shares of HDF5: the way into it, owners of its identifiers, and failures as exceptions.

#include "Hdf5Guard.h"
#include "KVOSimException.h"

#include <string>

#include <hdf5.h>

namespace simdb
{

/// Throws KVOSimException("<doing>", path, "<HDF5's innermost reasons>"), of kind Hdf5 unless a system call of ours failed beneath. Clears
/// HDF5's error stack. Within a guard, that of the failed call.
[[noreturn]] void ThrowHdf5(char const* doing, std::string const& path, int line = __builtin_LINE(), char const* file = __builtin_FILE());
/// The same for a failed system call: the reason is strerror(error), the kind what the number says.
[[noreturn]] void ThrowErrno(char const* doing, std::string const& path, int error, int line = __builtin_LINE(),
                             char const* file = __builtin_FILE());
/// The same with a reason in words. Without a kind it is misuse: what the program asked for cannot be.
[[noreturn]] void ThrowReason(char const* doing, std::string const& path, std::string const& why, int line = __builtin_LINE(),
                              char const* file = __builtin_FILE());
[[noreturn]] void ThrowReason(KVOSimException::Kind kind, char const* doing, std::string const& path, std::string const& why,
                              int line = __builtin_LINE(), char const* file = __builtin_FILE());
/// The kind of failure that an error number of the system stands for.
KVOSimException::Kind KindOf(int error) noexcept;

/// The source file that our file driver's records on HDF5's error stack name; their line is the system's error number.
inline constexpr char kDriverErrors[] = "SimFileDriver";

/// Releases an identifier; failures are ignored (the file was closed, and its objects with it).
void ReleaseHid(hid_t id) noexcept;

/// Owner of an HDF5 identifier of any kind.
class Hid
{
public:
    Hid() noexcept = default;
    explicit Hid(hid_t id) noexcept : m_id(id) {}
    Hid(Hid&& other) noexcept : m_id(other.m_id) { other.m_id = H5I_INVALID_HID; }
    Hid& operator=(Hid&& other) noexcept
    {
        if (this != &other) {
            Reset();
            m_id = other.m_id;
            other.m_id = H5I_INVALID_HID;
        }
        return *this;
    }
    Hid(Hid const&) = delete;
    Hid& operator=(Hid const&) = delete;
    ~Hid() { Reset(); }

    operator hid_t() const noexcept { return m_id; }
    bool IsValid() const noexcept { return m_id >= 0; }
    void Reset() noexcept
    {
        if (m_id >= 0)
            ReleaseHid(m_id);
        m_id = H5I_INVALID_HID;
    }

private:
    hid_t m_id = H5I_INVALID_HID;
};

/// `id` when HDF5 succeeded, else ThrowHdf5.
inline hid_t Checked(hid_t id, char const* doing, std::string const& path, int line = __builtin_LINE(), char const* file = __builtin_FILE())
{
    if (id < 0)
        ThrowHdf5(doing, path, line, file);
    return id;
}

} // namespace simdb
