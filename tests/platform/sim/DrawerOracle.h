#pragma once

#include "DenseDrawer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

/// A drawer in memory, value by value: what the real one must hold. Values are of the drawer's size, in bytes.
class DrawerOracle
{
public:
    DrawerOracle(std::vector<std::int64_t> sizes, std::vector<std::byte> initial)
        : m_sizes(std::move(sizes)), m_initial(std::move(initial)), m_values(Bytes(m_sizes))
    {
        for (std::size_t i = 0; i < m_values.size(); ++i)
            m_values[i] = m_initial[i % m_initial.size()];
    }

    std::vector<std::int64_t> const& Sizes() const { return m_sizes; }
    std::vector<std::byte> const& Values() const { return m_values; }

    std::vector<simdb::Range> Everything() const
    {
        std::vector<simdb::Range> ranges;
        for (std::int64_t const size : m_sizes)
            ranges.push_back({0, size - 1});
        return ranges;
    }

    std::vector<std::byte> Read(std::span<simdb::Range const> ranges) const
    {
        std::vector<std::byte> buffer;
        ForEach(ranges, [&](std::size_t at) { buffer.insert(buffer.end(), Value(at), Value(at) + ValueBytes()); });
        return buffer;
    }

    void Write(std::span<simdb::Range const> ranges, std::vector<std::byte> const& buffer)
    {
        auto next = buffer.begin();
        ForEach(ranges, [&](std::size_t at) {
            std::copy(next, next + ValueBytes(), m_values.begin() + static_cast<std::ptrdiff_t>(at));
            next += ValueBytes();
        });
    }

    void Resize(std::size_t dim, std::int64_t size)
    {
        std::vector<std::int64_t> sizes = m_sizes;
        sizes[dim] = size;
        DrawerOracle resized(sizes, m_initial);
        std::vector<simdb::Range> common = Everything();
        common[dim].last = std::min(m_sizes[dim], size) - 1;
        if (std::all_of(common.begin(), common.end(), [](simdb::Range const& range) { return range.Count() > 0; }))
            resized.Write(common, Read(common));
        *this = resized;
    }

private:
    std::ptrdiff_t ValueBytes() const { return static_cast<std::ptrdiff_t>(m_initial.size()); }
    std::byte const* Value(std::size_t at) const { return m_values.data() + at; }
    std::size_t Bytes(std::vector<std::int64_t> const& sizes) const
    {
        std::size_t bytes = m_initial.size();
        for (std::int64_t const size : sizes)
            bytes *= static_cast<std::size_t>(size);
        return bytes;
    }

    template<class Visit>
    void ForEach(std::span<simdb::Range const> ranges, Visit visit) const
    {
        std::vector<std::int64_t> at;
        for (simdb::Range const& range : ranges)
            at.push_back(range.first);
        for (;;) {
            std::int64_t place = 0;
            for (std::size_t d = 0; d < at.size(); ++d)
                place = place * m_sizes[d] + at[d];
            visit(static_cast<std::size_t>(place) * m_initial.size());
            std::size_t d = at.size();
            while (d > 0 && ++at[d - 1] > ranges[d - 1].last)
                --d, at[d] = ranges[d].first;
            if (d == 0)
                return;
        }
    }

    std::vector<std::int64_t> m_sizes;
    std::vector<std::byte> m_initial;
    std::vector<std::byte> m_values;
};

inline std::int64_t RandomUpTo(std::mt19937_64& random, std::int64_t least, std::int64_t most)
{
    return std::uniform_int_distribution<std::int64_t>(least, most)(random);
}

inline std::vector<simdb::Range> RandomRanges(std::mt19937_64& random, std::span<std::int64_t const> sizes)
{
    std::vector<simdb::Range> ranges;
    for (std::int64_t const size : sizes) {
        std::int64_t const a = RandomUpTo(random, 0, size - 1), b = RandomUpTo(random, 0, size - 1);
        // Often all of a dimension: whole chunks and long runs are what the data path is about.
        ranges.push_back(RandomUpTo(random, 0, 2) == 0 ? simdb::Range{0, size - 1} : simdb::Range{std::min(a, b), std::max(a, b)});
    }
    return ranges;
}

inline std::vector<std::byte> RandomBytes(std::mt19937_64& random, std::size_t count)
{
    std::vector<std::byte> bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::byte>(random()); });
    return bytes;
}
