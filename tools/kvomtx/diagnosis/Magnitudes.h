#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

/// How many values are of which size, by powers of ten.
class Magnitudes
{
public:
    static constexpr int kLowest = -324, kHighest = 308;

    /// @param value  finite and not 0
    void Add(double value) noexcept { ++m_counts[static_cast<std::size_t>(DecadeOf(std::fabs(value)) - kLowest)]; }

    /// Values from 10^decade up to 10^(decade + 1).
    std::int64_t Count(int decade) const noexcept { return m_counts[static_cast<std::size_t>(decade - kLowest)]; }

    /// The lowest and the highest decade that hold a value; the first above the second when none does.
    int First() const noexcept
    {
        int decade = kLowest;
        while (decade <= kHighest && Count(decade) == 0)
            ++decade;
        return decade;
    }
    int Last() const noexcept
    {
        int decade = kHighest;
        while (decade >= kLowest && Count(decade) == 0)
            --decade;
        return decade;
    }

private:
    // A power of two lies in one or two decades, so that one comparison tells which; a logarithm each time would be slower than reading.
    static int DecadeOf(double size) noexcept
    {
        struct Table {
            std::array<int, 2048> decade{};
            std::array<double, 2048> next{}; // where the next one begins
            Table() noexcept
            {
                for (int exponent = 1; exponent < 2047; ++exponent) {
                    auto const k = static_cast<std::size_t>(exponent);
                    decade[k] = static_cast<int>(std::floor((exponent - 1023) * 0.30102999566398120));
                    next[k] = std::pow(10.0, decade[k] + 1);
                }
            }
        };
        static Table const table;
        auto const exponent = static_cast<std::size_t>(std::bit_cast<std::uint64_t>(size) >> 52);
        if (exponent == 0)
            return static_cast<int>(std::floor(std::log10(size)));
        return table.decade[exponent] + (size >= table.next[exponent]);
    }

    std::array<std::int64_t, kHighest - kLowest + 1> m_counts{};
};
