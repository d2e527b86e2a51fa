#include "HeldWrites.h"

#include <algorithm>
#include <cstring>

namespace simdb
{

namespace
{

std::uint64_t EndOf(HeldWrites::Pieces::value_type const& piece) noexcept
{
    return piece.first + piece.second.size();
}

// The first piece that ends behind `address`.
template<class Pieces>
auto FirstBehind(Pieces& pieces, std::uint64_t address) noexcept
{
    auto const next = pieces.upper_bound(address);
    if (next != pieces.begin() && EndOf(*std::prev(next)) > address)
        return std::prev(next);
    return next;
}

} // namespace

void HeldWrites::Put(std::uint64_t address, void const* data, std::size_t bytes)
{
    auto const* from = static_cast<std::byte const*>(data);
    std::uint64_t const end = address + bytes;
    auto next = FirstBehind(m_pieces, address);
    while (address < end) {
        if (next == m_pieces.end() || next->first > address) {
            // A gap: up to the next piece or the end. Pieces never grow or move, so that nothing is copied twice.
            std::uint64_t const gapEnd = next == m_pieces.end() ? end : std::min(end, next->first);
            m_pieces.emplace_hint(next, address, std::vector<std::byte>(from, from + (gapEnd - address)));
            from += gapEnd - address;
            address = gapEnd;
        } else {
            std::uint64_t const count = std::min(end, EndOf(*next)) - address;
            std::memcpy(next->second.data() + (address - next->first), from, count);
            from += count;
            address += count;
            ++next;
        }
    }
}

void HeldWrites::Overlay(std::uint64_t address, void* data, std::size_t bytes) const noexcept
{
    auto* const to = static_cast<std::byte*>(data);
    if (bytes == 0) // `data` may be null then
        return;
    for (auto piece = FirstBehind(m_pieces, address); piece != m_pieces.end() && piece->first < address + bytes; ++piece) {
        std::uint64_t const begin = std::max(address, piece->first);
        std::uint64_t const end = std::min(address + bytes, EndOf(*piece));
        std::memcpy(to + (begin - address), piece->second.data() + (begin - piece->first), end - begin);
    }
}

bool HeldWrites::Covers(std::uint64_t address, std::size_t bytes) const noexcept
{
    std::uint64_t const end = address + bytes;
    for (auto piece = FirstBehind(m_pieces, address); address < end; ++piece) {
        if (piece == m_pieces.end() || piece->first > address)
            return false;
        address = EndOf(*piece);
    }
    return true;
}

std::uint64_t HeldWrites::End() const noexcept
{
    return m_pieces.empty() ? 0 : EndOf(*m_pieces.rbegin());
}

} // namespace simdb
