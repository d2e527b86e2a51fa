#pragma once

#include "DenseDrawer.h"
#include "FileAccess.h"
#include "KVOSimTypeKey.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

/// @file
/// A drawer in memory, value by value, which a real one is compared with; and what tests of drawers need beside it.

using Ranges = std::vector<simdb::Range>;
using Sizes = std::vector<std::int64_t>;
using DrawerBytes = std::vector<std::byte>; ///< of values, in the order of their ordinals

inline std::shared_ptr<simdb::DenseDrawer> CreateDrawer(std::shared_ptr<simdb::File> const& file, simdb::DenseShape const& shape)
{
    return simdb::DenseDrawer::Create(std::make_shared<simdb::FileAccess>(file), shape);
}
inline std::shared_ptr<simdb::DenseDrawer> OpenDrawer(std::shared_ptr<simdb::File> const& file, std::string const& name = "values")
{
    return simdb::DenseDrawer::Open(std::make_shared<simdb::FileAccess>(file), file->Hdf5(), name.c_str());
}

inline std::int64_t RandomUpTo(std::mt19937_64& random, std::int64_t least, std::int64_t most)
{
    return std::uniform_int_distribution<std::int64_t>(least, most)(random);
}

inline Ranges RandomRanges(std::mt19937_64& random, Sizes const& sizes)
{
    Ranges ranges;
    for (std::int64_t const size : sizes) {
        auto const [first, last] = std::minmax({RandomUpTo(random, 0, size - 1), RandomUpTo(random, 0, size - 1)});
        // Often all of a dimension: whole chunks and long runs are what the data path is about.
        ranges.push_back(RandomUpTo(random, 0, 2) == 0 ? simdb::Range{0, size - 1} : simdb::Range{first, last});
    }
    return ranges;
}

inline DrawerBytes RandomBytes(std::mt19937_64& random, std::size_t count)
{
    DrawerBytes bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::byte>(random()); });
    return bytes;
}

/// What a drawer must hold.
class DrawerOracle
{
public:
    explicit DrawerOracle(simdb::DenseShape const& shape)
        : m_sizes(shape.sizes), m_initial(shape.initialValue.begin(), shape.initialValue.begin() + KVOSimTypeKeySize(shape.typeKey)),
          m_values(InitialValues(m_sizes))
    {
    }

    Sizes const& AllSizes() const { return m_sizes; }
    DrawerBytes const& Values() const { return m_values; }
    Ranges Everything() const
    {
        Ranges ranges;
        for (std::int64_t const size : m_sizes)
            ranges.push_back({0, size - 1});
        return ranges;
    }

    DrawerBytes Read(Ranges const& ranges) const
    {
        DrawerBytes buffer;
        ForEach(ranges,
                [&](std::ptrdiff_t at) { buffer.insert(buffer.end(), m_values.begin() + at, m_values.begin() + at + ValueBytes()); });
        return buffer;
    }
    void Write(Ranges const& ranges, DrawerBytes const& buffer)
    {
        auto next = buffer.begin();
        ForEach(ranges, [&](std::ptrdiff_t at) {
            std::copy(next, next + ValueBytes(), m_values.begin() + at);
            next += ValueBytes();
        });
    }
    /// Writes random values to all of some ranges of both.
    void Randomize(simdb::DenseDrawer& drawer, Ranges const& ranges, std::mt19937_64& random, bool callsAlone = false)
    {
        DrawerBytes const values = RandomBytes(random, Read(ranges).size());
        drawer.Write(ranges, values.data(), {false, callsAlone});
        Write(ranges, values);
    }

    void Resize(std::size_t dim, std::int64_t size)
    {
        Ranges common = Everything();
        common[dim].last = std::min(m_sizes[dim], size) - 1;
        DrawerBytes const kept = Read(common);
        m_sizes[dim] = size;
        m_values = InitialValues(m_sizes);
        Write(common, kept);
    }

private:
    std::ptrdiff_t ValueBytes() const { return static_cast<std::ptrdiff_t>(m_initial.size()); }
    DrawerBytes InitialValues(Sizes const& sizes) const
    {
        DrawerBytes values;
        for (std::int64_t count = std::accumulate(sizes.begin(), sizes.end(), std::int64_t{1}, std::multiplies()); count > 0; --count)
            values.insert(values.end(), m_initial.begin(), m_initial.end());
        return values;
    }
    /// visit(where the value begins) for the values of some ranges, in their order.
    template<class Visit>
    void ForEach(Ranges const& ranges, Visit const& visit, std::size_t dim = 0, std::int64_t place = 0) const
    {
        if (dim == ranges.size())
            return visit(place * ValueBytes());
        for (std::int64_t i = ranges[dim].first; i <= ranges[dim].last; ++i)
            ForEach(ranges, visit, dim + 1, place * m_sizes[dim] + i);
    }

    Sizes m_sizes;
    DrawerBytes m_initial;
    DrawerBytes m_values;
};
