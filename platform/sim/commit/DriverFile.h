#pragma once

#include "Descriptor.h"
#include "HeldWrites.h"

#include <cstddef>
#include <cstdint>

namespace simdb
{

/// The bytes of one open database file, for HDF5's driver and for the commit.
///
/// Values go straight to the file. All else that HDF5 writes, the catalogue, is held here until the commit, and read from here.
///
/// Invariant: freed space is not used again, and the end never moves back: what the last commit refers to stays as it is.
class DriverFile
{
public:
    /// What HDF5 is about to do with the file.
    enum class Phase {
        Use,
        Begin,  ///< begin an empty file, whatever is in it
        Close,  ///< close it: it would keep a broken identifier of a file that it cannot write, so failures are kept for ClosingError()
        Discard ///< nothing that is written from here on is of use
    };

    explicit DriverFile(Descriptor file) noexcept : m_file(std::move(file)) {}
    DriverFile(DriverFile const&) = delete;
    DriverFile& operator=(DriverFile const&) = delete;
    ~DriverFile() = default;

    /// -1 once it is closed.
    int Number() const noexcept { return m_file.Number(); }
    /// Closes the file and forgets what is held. HDF5, which may outlive it, finds nothing any more.
    void Close() noexcept;
    void Enter(Phase phase) noexcept { m_phase = phase; }
    /// Why a write failed in Phase::Close; 0: none did.
    int ClosingError() const noexcept { return m_closingError; }

    /// One behind the last byte that HDF5 has allocated.
    std::uint64_t End() const noexcept { return m_end; }
    void SetEnd(std::uint64_t end) noexcept;
    /// Takes space behind the end, which begins where it suits its size. False when there are no addresses left.
    bool Allocate(std::uint64_t bytes, std::uint64_t& address) noexcept;
    /// How long the file is, or will be. @return 0 or an errno
    int FindLength(std::uint64_t& length) const noexcept;

    /// Read and write as HDF5 asks for it, zeros being behind the end. @return 0 or an errno
    int ReadValues(std::uint64_t address, void* data, std::size_t bytes) noexcept;
    int WriteValues(std::uint64_t address, void const* data, std::size_t bytes) noexcept;
    int ReadCatalogue(std::uint64_t address, void* data, std::size_t bytes) const noexcept;
    int WriteCatalogue(std::uint64_t address, void const* data, std::size_t bytes) noexcept;

    /// While it is set, reading values moves none: HDF5 only finds them. ValuesAddress() then says where.
    void SetFinding(bool finding) noexcept;
    /// Where values were last read or written; UINT64_MAX when none were since SetFinding(true).
    std::uint64_t ValuesAddress() const noexcept { return m_valuesAt; }

    /// While it is set, the values that are written are zeros. Behind the file's end they are not written, but the file is lengthened.
    void SetLeavingZeros(bool leaving) noexcept { m_leavingZeros = leaving; }

    HeldWrites& Held() noexcept { return m_held; }
    HeldWrites const& Held() const noexcept { return m_held; }

private:
    int Failed(int error) noexcept;
    int LeaveZeros(std::uint64_t address, void const* zeros, std::size_t bytes) const noexcept;

    Descriptor m_file;
    Phase m_phase = Phase::Use;
    int m_closingError = 0;
    bool m_finding = false;
    bool m_leavingZeros = false;
    std::uint64_t m_end = 0;
    std::uint64_t m_valuesAt = UINT64_MAX;
    HeldWrites m_held;
};

} // namespace simdb
