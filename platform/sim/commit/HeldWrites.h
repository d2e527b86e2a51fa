#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace simdb
{

/// Writes to a file that are kept in memory, to the byte: what lies between them is left to the file.
class HeldWrites
{
public:
    /// By address; they do not overlap, and may touch.
    using Pieces = std::map<std::uint64_t, std::vector<std::byte>>;

    /// Bytes that are held already are replaced.
    void Put(std::uint64_t address, void const* data, std::size_t bytes);
    /// Replaces what is held of [address, address + bytes) in `data`, and leaves the rest of `data` alone.
    void Overlay(std::uint64_t address, void* data, std::size_t bytes) const noexcept;
    /// Whether all of [address, address + bytes) is held.
    bool Covers(std::uint64_t address, std::size_t bytes) const noexcept;
    /// One behind the last byte held; 0 when nothing is.
    std::uint64_t End() const noexcept;
    bool IsEmpty() const noexcept { return m_pieces.empty(); }
    void Clear() noexcept { m_pieces.clear(); }
    Pieces const& All() const noexcept { return m_pieces; }

private:
    Pieces m_pieces;
};

} // namespace simdb
