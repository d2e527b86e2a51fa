#pragma once

#include "DenseDrawer.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace simdb
{

/// Checksums of the values of a chunked dense drawer, CRC-32C of the bytes of each chunk: a dataset beside the drawer's, and what has
/// changed since the last commit.
///
/// Before a chunk changes first, the dataset is told so. A process that dies then leaves no checksum that whole values do not fit.
class ValueSums
{
public:
    /// A chunk: its number in every dimension.
    using Place = std::vector<std::int64_t>;

    /// What stands for a checksum: none was ever made, so the chunk holds the initial value; the values are being changed.
    static constexpr std::uint32_t kInitial = 0, kChanging = 1;
    /// A checksum as it is stored.
    static constexpr std::uint32_t Of(std::uint32_t crc) noexcept { return crc <= kChanging ? crc + 2 : crc; }

    /// A new dataset without a name. @param counts  chunks per dimension
    ValueSums(std::shared_ptr<FileAccess> const& access, std::span<std::int64_t const> counts);
    /// The dataset `name` below `group`. @throws KVOSimException when it is not one of checksums of that many dimensions
    ValueSums(std::shared_ptr<FileAccess> const& access, hid_t group, char const* name, std::size_t rank);

    DenseDrawer& Stored() noexcept { return *m_stored; }

    /// Values of a chunk are about to be changed. @param exists  the chunk is stored
    void BeginChange(Place const& place, bool exists);
    /// All of its values are known.
    void EndChange(Place const& place, std::uint32_t crc);
    /// Something beside its values may have changed.
    void Doubt(Place const& place);
    bool HasChanges() const noexcept { return !m_changes.empty(); }

    /// What the chunk must have, or kInitial, or kChanging; none where this process has changed it since the last commit.
    std::optional<std::uint32_t> Expected(Place const& place);

    /// Stores what has changed. @param makeSum  the CRC-32C of a chunk; none where it is not stored
    void Write(std::function<std::optional<std::uint32_t>(Place const&)> const& makeSum);
    /// A commit has kept it.
    void Accept() noexcept { m_changes.clear(); }

private:
    struct Change {
        std::optional<std::uint32_t> crc; ///< none: the chunk must be read
        bool isTold = false;              ///< the dataset says so
    };
    void Put(Place const& place, std::uint32_t sum);

    std::shared_ptr<DenseDrawer> m_stored;
    std::map<Place, Change> m_changes;
};

} // namespace simdb
