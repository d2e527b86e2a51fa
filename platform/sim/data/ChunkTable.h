#pragma once

#include "ChunkGrid.h"

#include <cstdint>
#include <unordered_map>

namespace simdb
{

/// Where a chunk lies in the file.
struct ChunkPlace {
    enum class State {
        Unknown,   ///< HDF5 must be asked
        Unwritten, ///< takes no space, reads as the initial value
        Written    ///< at `address`
    };
    /// Whether its bytes take space on the disk. Where they may not, a full disk would turn a write through the mapping into a signal.
    enum class Solid { Unknown, Yes, No };

    State state = State::Unknown;
    Solid solid = Solid::Unknown;
    std::uint64_t address = 0;
};

/// The chunks' places in the file, kept because asking HDF5 takes microseconds, more with every chunk. Memory: the chunks that were
/// touched.
class ChunkTable
{
public:
    /// @param isNew  no chunk is written yet; else HDF5 knows
    explicit ChunkTable(bool isNew) noexcept : m_missing(isNew ? ChunkPlace::State::Unwritten : ChunkPlace::State::Unknown) {}

    ChunkPlace Find(std::int64_t chunk) const noexcept
    {
        auto const found = m_places.find(chunk);
        return found != m_places.end() ? found->second : ChunkPlace{m_missing, ChunkPlace::Solid::Unknown, 0};
    }

    void Set(std::int64_t chunk, ChunkPlace const& place) { m_places[chunk] = place; }

    /// The numbers of the chunks change with the sizes; those outside the new ones are gone.
    void Renumber(ChunkGrid const& from, ChunkGrid const& to)
    {
        std::unordered_map<std::int64_t, ChunkPlace> places;
        for (auto const& [chunk, place] : m_places) {
            Extents const at = from.Place(chunk);
            bool inside = true;
            for (std::size_t d = 0; d < to.Rank(); ++d)
                inside = inside && at[d] < to.ChunkCounts()[d];
            if (inside)
                places.emplace(to.Number(at), place);
        }
        m_places.swap(places);
    }

private:
    std::unordered_map<std::int64_t, ChunkPlace> m_places;
    ChunkPlace::State m_missing;
};

} // namespace simdb
