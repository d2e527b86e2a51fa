#include "KVOSimTransfer.h"

#include "Context.h"
#include "Distribution.h"
#include "Hdf5.h"
#include "KVOSimTypeKey.h"
#include "Session.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{

constexpr char const* kSetting = "Cannot set up a transfer";

template<class T>
bool PutInteger(double value, std::array<std::byte, 8>& bytes)
{
    // The upper limit + 1 is a power of two, which a double holds exactly.
    if (value != std::trunc(value) || value < static_cast<double>(std::numeric_limits<T>::min()) ||
        value >= static_cast<double>(std::numeric_limits<T>::max()) + 1.0)
        return false;
    T const converted = static_cast<T>(value);
    std::memcpy(bytes.data(), &converted, sizeof converted);
    return true;
}

// False when a value of that type cannot be `value`; a float is the nearest one.
bool PutValue(double value, int typeKey, std::array<std::byte, 8>& bytes)
{
    switch (typeKey) {
    case KVOSimInt8:
        return PutInteger<std::int8_t>(value, bytes);
    case KVOSimUInt8:
        return PutInteger<std::uint8_t>(value, bytes);
    case KVOSimInt32:
    case KVOSimEnum32:
        return PutInteger<std::int32_t>(value, bytes);
    case KVOSimUInt32:
    case KVOSimReference32:
        return PutInteger<std::uint32_t>(value, bytes);
    case KVOSimFloat: {
        if (std::isfinite(value) && std::abs(value) > std::numeric_limits<float>::max())
            return false;
        float const converted = static_cast<float>(value);
        std::memcpy(bytes.data(), &converted, sizeof converted);
        return true;
    }
    default:
        std::memcpy(bytes.data(), &value, sizeof value);
        return true;
    }
}

} // namespace

KVOSimTransfer::KVOSimTransfer(KVOSimDistribution const& distribution) : m_distribution(distribution.m_distribution)
{
    m_dims.resize(static_cast<std::size_t>(RequireDistribution(kSetting).Rank()));
}

simdb::Distribution& KVOSimTransfer::RequireDistribution(char const* doing) const
{
    if (m_distribution == nullptr)
        simdb::ThrowReason(doing, "", "the distribution is null");
    m_distribution->RequireOpen(doing);
    return *m_distribution;
}

void KVOSimTransfer::Refuse(char const* doing, std::string const& why) const
{
    simdb::ThrowReason(doing, m_distribution->Path(), why);
}

void KVOSimTransfer::SetMakeNewDrawer()
{
    RequireDistribution(kSetting);
    m_newDrawer = NewDrawer::Plain;
    m_chunkSizes.clear();
}

void KVOSimTransfer::SetMakeNewDrawerChunked(KVOSimArray<int> const& chunkSizes)
{
    if (chunkSizes.Size() != RequireDistribution(kSetting).Rank())
        Refuse(kSetting, "there must be one chunk size per dimension, not " + std::to_string(chunkSizes.Size()));
    std::int64_t bytes = KVOSimTypeKeySize(m_distribution->RangeType());
    for (int const size : chunkSizes) {
        if (size < 1)
            Refuse(kSetting, "the chunk size " + std::to_string(size) + " is not 1 or greater");
        if (__builtin_mul_overflow(bytes, size, &bytes) || bytes > std::numeric_limits<std::uint32_t>::max())
            Refuse(kSetting, "a chunk must stay below 4 GiB");
    }
    m_newDrawer = NewDrawer::Chunked;
    m_chunkSizes.assign(chunkSizes.begin(), chunkSizes.end());
}

void KVOSimTransfer::SetBufferPadding(int bytes)
{
    if (bytes != 0)
        Refuse(kSetting, "buffers have no padding: the only choice is 0");
}

void KVOSimTransfer::SetSparseNNonzero(std::int64_t count)
{
    if (count < 0)
        Refuse(kSetting, "the number of stored values is negative");
    m_nonzeros = count;
}

void KVOSimTransfer::SetInitializationValue(double value, int typeKey)
{
    if (typeKey != RequireDistribution(kSetting).RangeType())
        Refuse(kSetting, "the initialization value is of type " + std::to_string(typeKey) + ", the distribution's values of type " +
                             std::to_string(m_distribution->RangeType()));
    std::array<std::byte, 8> bytes{};
    if (!PutValue(value, typeKey, bytes))
        Refuse(kSetting, "the initialization value " + std::to_string(value) + " is none of the distribution's type");
    m_initialValue = bytes;
}

// The dimension `dim`, when sets of that collection can number it: colours differ in name only.
KVOSimTransfer::Dim& KVOSimTransfer::DimAt(int dim, KVOSimCollectionID const& collection, char const* doing)
{
    simdb::Distribution const& distribution = RequireDistribution(doing);
    if (dim < 0 || dim >= distribution.Rank())
        Refuse(doing, "there is no dimension " + std::to_string(dim));
    if (collection.IsNull())
        Refuse(doing, "the collection of dimension " + std::to_string(dim) + " is null");
    if (collection.ContextID() != distribution.ID().ContextID() ||
        collection.Index() != distribution.Grid()[static_cast<std::size_t>(dim)].collection)
        Refuse(doing, "dimension " + std::to_string(dim) + " is over another collection");
    return m_dims[static_cast<std::size_t>(dim)];
}

void KVOSimTransfer::SetDim(int dim, KVOSimCSetID const& set)
{
    Dim& target = DimAt(dim, set.CollectionID(), kSetting);
    m_distribution->RequireOpen(kSetting).SetOf(set, kSetting);
    target.set = set;
    target.isSet = true;
}

void KVOSimTransfer::SetDimOrdinalRange(int dim, KVOSimCollectionID const& collection, int first, int last)
{
    Dim& target = DimAt(dim, collection, kSetting);
    if (first < 0 || last < first)
        Refuse(kSetting, "the positions " + std::to_string(first) + " to " + std::to_string(last) + " of dimension " + std::to_string(dim) +
                             " are no range");
    target.set = KVOSimCSetID();
    target.first = first;
    target.last = last;
    target.isSet = true;
}

void KVOSimTransfer::SetDimExtension(int dim, KVOSimCSetID const& set)
{
    Dim& target = DimAt(dim, set.CollectionID(), kSetting);
    m_distribution->RequireOpen(kSetting).SetOf(set, kSetting);
    target.extension = set;
}

void KVOSimTransfer::SetBufferOf(int slot, void* memory, std::size_t bytes, bool writable)
{
    if (slot < 0 || slot >= static_cast<int>(m_buffers.size()))
        Refuse(kSetting, "there is no buffer slot " + std::to_string(slot));
    if (memory == nullptr && bytes > 0)
        Refuse(kSetting, "the buffer of slot " + std::to_string(slot) + " is null");
    m_buffers[static_cast<std::size_t>(slot)] = {memory, bytes, true, writable};
}

void KVOSimTransfer::SetBuffer(int slot, void* memory, std::size_t bytes)
{
    SetBufferOf(slot, memory, bytes, true);
}

void KVOSimTransfer::SetBuffer(int slot, void const* memory, std::size_t bytes)
{
    SetBufferOf(slot, const_cast<void*>(memory), bytes, false); // read from only: ExecRead refuses it
}

void KVOSimTransfer::RelinquishBuffers() noexcept
{
    m_buffers = {};
}

void KVOSimTransfer::SetDimMembers(int dim, KVOSimCSetID const& set)
{
    constexpr char const* kNumbering = "Cannot number a dimension of a drawer";
    DimAt(dim, set.CollectionID(), kNumbering);
    RequireWritable(kNumbering);
    auto const members = m_distribution->RequireOpen(kNumbering).SetOf(set, kNumbering);
    simdb::Drawer& drawer = m_distribution->DrawerAt(m_drawer, kNumbering);
    auto const& current = drawer.sets[static_cast<std::size_t>(dim)];
    if (members->size != current->size)
        Refuse(kNumbering, "the set has " + std::to_string(members->size) + " members, the dimension " + std::to_string(current->size));
    m_distribution->ChangeSet(drawer, dim, members);
}

void KVOSimTransfer::RequireWritable(char const* doing) const
{
    RequireDistribution(doing).RequireOpen(doing).OpenSession(doing).RequireWritable(doing);
    if (!m_write)
        Refuse(doing, "the transfer was not set up for writing");
}
