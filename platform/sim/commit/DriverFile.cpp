#include "DriverFile.h"

#include "SimIo.h"
#include "SimJournal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/stat.h>

namespace simdb
{

namespace
{

// Large pieces begin at a page, so that values are moved and mapped whole; those of the size of a large page at one, so that the system
// can keep and map them as such, unless they would take an eighth more room by it. Small ones would waste what they use.
std::uint64_t AlignmentOf(std::uint64_t bytes) noexcept
{
    constexpr std::uint64_t kLarge = 16384, kPage = 4096, kLargePage = std::uint64_t(2) << 20;
    if (bytes < kLarge)
        return 1;
    return bytes >= kLargePage && (0 - bytes) % kLargePage <= bytes / 8 ? kLargePage : kPage;
}

int ReadOrZero(int descriptor, std::uint64_t address, void* data, std::size_t bytes) noexcept
{
    std::size_t read = 0;
    if (int const error = io::Read(descriptor, data, bytes, address, read))
        return error;
    std::memset(static_cast<std::byte*>(data) + read, 0, bytes - read);
    return 0;
}

} // namespace

void DriverFile::Close() noexcept
{
    m_file.Close();
    m_held.Clear();
}

void DriverFile::SetEnd(std::uint64_t end) noexcept
{
    // The first piece of a new file is the superblock; the mark comes behind it.
    if (m_phase == Phase::Begin && m_end == 0)
        end = std::max(end, FileMark::kEnd);
    m_end = end;
}

bool DriverFile::Allocate(std::uint64_t bytes, std::uint64_t& address) noexcept
{
    std::uint64_t const alignment = AlignmentOf(bytes);
    address = (m_end + alignment - 1) / alignment * alignment;
    if (address < m_end || address + bytes < address || address + bytes > INT64_MAX)
        return false;
    SetEnd(address + bytes);
    return true;
}

// HDF5 takes a length of 0 for a file that it has to begin, and refuses a file that ends before its superblock says.
int DriverFile::FindLength(std::uint64_t& length) const noexcept
{
    struct stat status;
    if (m_phase == Phase::Begin) {
        length = m_end;
        return 0;
    }
    if (fstat(m_file.Number(), &status) != 0)
        return errno;
    length = std::max(static_cast<std::uint64_t>(status.st_size), m_held.End());
    return 0;
}

int DriverFile::ReadValues(std::uint64_t address, void* data, std::size_t bytes) noexcept
{
    m_valuesAt = address;
    return m_finding ? 0 : ReadOrZero(m_file.Number(), address, data, bytes);
}

int DriverFile::ReadCatalogue(std::uint64_t address, void* data, std::size_t bytes) const noexcept
{
    if (!m_held.Covers(address, bytes))
        if (int const error = ReadOrZero(m_file.Number(), address, data, bytes))
            return error;
    m_held.Overlay(address, data, bytes);
    return 0;
}

int DriverFile::WriteValues(std::uint64_t address, void const* data, std::size_t bytes) noexcept
{
    if (m_phase == Phase::Discard)
        return 0;
    m_valuesAt = address;
    return Failed(m_leavingZeros ? LeaveZeros(address, data, bytes) : io::Write(m_file.Number(), data, bytes, address));
}

int DriverFile::LeaveZeros(std::uint64_t address, void const* zeros, std::size_t bytes) const noexcept
{
    struct stat status;
    if (fstat(m_file.Number(), &status) != 0)
        return errno;
    bool const isBehindEnd = static_cast<std::uint64_t>(status.st_size) <= address;
    return isBehindEnd ? io::SetLength(m_file.Number(), address + bytes) : io::Write(m_file.Number(), zeros, bytes, address);
}

int DriverFile::WriteCatalogue(std::uint64_t address, void const* data, std::size_t bytes) noexcept
{
    if (m_phase == Phase::Discard)
        return 0;
    try {
        m_held.Put(address, data, bytes);
        return 0;
    } catch (std::bad_alloc const&) {
        return Failed(ENOMEM);
    }
}

int DriverFile::Failed(int error) noexcept
{
    if (error == 0 || m_phase != Phase::Close)
        return error;
    m_closingError = error;
    return 0;
}

void DriverFile::SetFinding(bool finding) noexcept
{
    m_finding = finding;
    if (finding)
        m_valuesAt = UINT64_MAX;
}

} // namespace simdb
