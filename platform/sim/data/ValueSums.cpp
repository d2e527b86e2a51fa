#include "ValueSums.h"

#include "FileAccess.h"
#include "Hdf5.h"
#include "KVOSimTypeKey.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace simdb
{

namespace
{

// Of about 4 KiB, so that those of a small matrix take no more.
DenseShape ShapeOf(std::span<std::int64_t const> counts)
{
    constexpr double kValuesPerChunk = 1024.0;
    auto const size = static_cast<std::int64_t>(std::pow(kValuesPerChunk, 1.0 / static_cast<double>(counts.size())) + 1e-6);
    DenseShape shape;
    shape.sizes.assign(counts.begin(), counts.end());
    shape.chunkSizes.assign(counts.size(), size);
    shape.typeKey = KVOSimUInt32;
    return shape;
}

std::vector<Range> At(ValueSums::Place const& place)
{
    std::vector<Range> ranges;
    for (std::int64_t const at : place)
        ranges.push_back({at, at});
    return ranges;
}

} // namespace

ValueSums::ValueSums(std::shared_ptr<FileAccess> const& access, std::span<std::int64_t const> counts)
    : m_stored(DenseDrawer::Create(access, ShapeOf(counts)))
{
}

ValueSums::ValueSums(std::shared_ptr<FileAccess> const& access, hid_t group, char const* name, std::size_t rank)
    : m_stored(DenseDrawer::Open(access, group, name))
{
    DenseShape const& shape = m_stored->Shape();
    if (shape.typeKey != KVOSimUInt32 || shape.sizes.size() != rank || shape.chunkSizes.empty())
        ThrowReason(KVOSimException::Kind::Damaged, "Cannot open checksums of the database", access->GetFile()->Path(),
                    std::string("the dataset ") + name + " holds none: the file is damaged");
}

void ValueSums::BeginChange(Place const& place, bool exists)
{
    Change& change = m_changes[place];
    change.crc.reset();
    if (exists && !change.isTold)
        Put(place, kChanging);
    change.isTold = true; // what a commit has not stored is gone with the process
}

void ValueSums::EndChange(Place const& place, std::uint32_t crc)
{
    m_changes[place].crc = crc;
}

void ValueSums::Doubt(Place const& place)
{
    m_changes[place].crc.reset();
}

std::optional<std::uint32_t> ValueSums::Expected(Place const& place)
{
    if (auto const found = m_changes.find(place); found != m_changes.end())
        return found->second.crc ? std::optional(Of(*found->second.crc)) : std::nullopt;
    for (std::size_t d = 0; d < place.size(); ++d)
        if (place[d] >= m_stored->Shape().sizes[d])
            return kInitial;
    std::uint32_t sum = kInitial;
    m_stored->Read(At(place), &sum);
    return sum;
}

void ValueSums::Write(std::function<std::optional<std::uint32_t>(Place const&)> const& makeSum)
{
    for (auto& [place, change] : m_changes) {
        if (!change.crc)
            change.crc = makeSum(place);
        if (!change.crc)
            continue;
        Put(place, Of(*change.crc));
        change.isTold = false; // should the commit fail, and the chunk change again
    }
}

// The drawer may have grown since.
void ValueSums::Put(Place const& place, std::uint32_t sum)
{
    for (std::size_t d = 0; d < place.size(); ++d)
        if (place[d] >= m_stored->Shape().sizes[d])
            m_stored->Resize(static_cast<int>(d), place[d] + 1);
    m_stored->Write(At(place), &sum);
}

} // namespace simdb
