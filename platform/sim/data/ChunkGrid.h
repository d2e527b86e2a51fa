#pragma once

#include "DenseShape.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace simdb
{

/// One number a dimension.
using Extents = std::array<std::int64_t, kMaxRank>;

/// The part of a range that lies in one chunk.
struct ChunkPiece {
    std::int64_t chunk;        ///< its number, the last dimension counting fastest
    Extents origin;            ///< the chunk's first value, in the drawer
    Extents counts;            ///< the piece's values per dimension
    std::int64_t chunkOffset;  ///< of the piece's first value, in values, in the chunk
    std::int64_t bufferOffset; ///< likewise in the packed buffer of the range
};

/// How a drawer is cut into chunks; a contiguous drawer is one chunk. Chunks at the edge are stored whole.
class ChunkGrid
{
public:
    ChunkGrid(std::span<std::int64_t const> sizes, std::span<std::int64_t const> chunkSizes) noexcept : m_rank(sizes.size())
    {
        std::copy(sizes.begin(), sizes.end(), m_sizes.begin());
        std::span<std::int64_t const> const chunks = chunkSizes.empty() ? sizes : chunkSizes;
        for (std::size_t d = 0; d < m_rank; ++d) {
            m_chunkSizes[d] = std::max<std::int64_t>(chunks[d], 1);
            m_chunkCounts[d] = sizes[d] / m_chunkSizes[d] + (sizes[d] % m_chunkSizes[d] != 0 ? 1 : 0);
        }
    }

    std::size_t Rank() const noexcept { return m_rank; }
    std::span<std::int64_t const> Sizes() const noexcept { return {m_sizes.data(), m_rank}; }
    std::span<std::int64_t const> ChunkSizes() const noexcept { return {m_chunkSizes.data(), m_rank}; }
    /// Chunks per dimension.
    std::span<std::int64_t const> ChunkCounts() const noexcept { return {m_chunkCounts.data(), m_rank}; }

    std::int64_t ValuesPerChunk() const noexcept
    {
        std::int64_t values = 1;
        for (std::size_t d = 0; d < m_rank; ++d)
            values *= m_chunkSizes[d];
        return values;
    }

    /// Number of the chunk at `at` chunks per dimension.
    std::int64_t Number(Extents const& at) const noexcept
    {
        std::int64_t number = 0;
        for (std::size_t d = 0; d < m_rank; ++d)
            number = number * m_chunkCounts[d] + at[d];
        return number;
    }

    /// The inverse of Number().
    Extents Place(std::int64_t number) const noexcept
    {
        Extents at{};
        for (std::size_t d = m_rank; d-- > 0; number /= m_chunkCounts[d])
            at[d] = number % m_chunkCounts[d];
        return at;
    }

    /// The chunks that `ranges` touches, per dimension.
    std::array<Range, kMaxRank> Chunks(std::span<Range const> ranges) const noexcept
    {
        std::array<Range, kMaxRank> chunks;
        for (std::size_t d = 0; d < m_rank; ++d)
            chunks[d] = {ranges[d].first / m_chunkSizes[d], ranges[d].last / m_chunkSizes[d]};
        return chunks;
    }

    /// Calls visit(ChunkPiece const&) for the pieces of `ranges`, which lies inside the sizes, in the order of the chunks' numbers.
    template<class Visit>
    void ForEachPiece(std::span<Range const> ranges, Visit visit) const
    {
        std::array<Range, kMaxRank> const chunks = Chunks(ranges);
        ForEachPlace({chunks.data(), m_rank}, [&](Extents const& at) {
            visit(Piece(ranges, at));
            return true;
        });
    }

    /// Calls visit(Extents const&) for every place of `chunks` until it returns false. @return whether it never did
    template<class Visit>
    static bool ForEachPlace(std::span<Range const> chunks, Visit visit)
    {
        Extents at;
        for (std::size_t d = 0; d < chunks.size(); ++d)
            at[d] = chunks[d].first;
        for (;;) {
            if (!visit(static_cast<Extents const&>(at)))
                return false;
            std::size_t d = chunks.size();
            for (; d > 0 && ++at[d - 1] > chunks[d - 1].last; --d)
                at[d - 1] = chunks[d - 1].first;
            if (d == 0)
                return true;
        }
    }

private:
    ChunkPiece Piece(std::span<Range const> ranges, Extents const& at) const noexcept
    {
        ChunkPiece piece;
        piece.chunk = Number(at);
        piece.chunkOffset = piece.bufferOffset = 0;
        for (std::size_t d = 0; d < m_rank; ++d) {
            piece.origin[d] = at[d] * m_chunkSizes[d];
            std::int64_t const first = std::max(ranges[d].first, piece.origin[d]);
            // Written so that an edge chunk's end, which may lie beyond the largest number, is never formed.
            std::int64_t const inChunk = first - piece.origin[d];
            piece.counts[d] = std::min(ranges[d].last - first, m_chunkSizes[d] - inChunk - 1) + 1;
            piece.chunkOffset = piece.chunkOffset * m_chunkSizes[d] + inChunk;
            piece.bufferOffset = piece.bufferOffset * ranges[d].Count() + (first - ranges[d].first);
        }
        return piece;
    }

    std::size_t m_rank;
    Extents m_sizes;
    Extents m_chunkSizes;
    Extents m_chunkCounts;
};

} // namespace simdb
