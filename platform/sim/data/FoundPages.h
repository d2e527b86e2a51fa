#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <memory>

namespace simdb
{

/// How long an answer of the system is believed: a page that was used within that time is among the last that a system short of memory
/// takes away.
class Lately
{
public:
    bool Holds() const noexcept { return Milliseconds() - m_since < kBelieved; }
    void Begin() noexcept { m_since = Milliseconds(); }

private:
    static constexpr std::int64_t kBelieved = 100;
    static std::int64_t Milliseconds() noexcept
    {
        timespec time;
        clock_gettime(CLOCK_MONOTONIC_COARSE, &time); // of the last tick, without a system call
        return std::int64_t(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
    }

    std::int64_t m_since = -kBelieved;
};

/// Pages of one region of a mapping, a bit each.
class PageSet
{
public:
    static constexpr unsigned kPages = 512;

    /// Pages first to end - 1.
    bool Has(unsigned first, unsigned end) const noexcept
    {
        if (unsigned const word = first / kBits; end - 1 < (word + 1) * kBits) // as a rule
            return (m_bits[word] & Mask(first, end)) == Mask(first, end);
        return ForEachWord(first, end, [&](unsigned word, std::uint64_t mask) { return (m_bits[word] & mask) == mask; });
    }
    void Add(unsigned first, unsigned end) noexcept
    {
        ForEachWord(first, end, [&](unsigned word, std::uint64_t mask) {
            m_bits[word] |= mask;
            return true;
        });
    }

private:
    static constexpr unsigned kBits = 64;

    // Of pages in one word.
    static std::uint64_t Mask(unsigned first, unsigned end) noexcept
    {
        return (~std::uint64_t(0) >> (kBits - (end - first))) << (first % kBits);
    }

    // Calls visit(word, mask) for the words that hold the bits first to end - 1, until it says false.
    template<class Visit>
    static bool ForEachWord(unsigned first, unsigned end, Visit const& visit) noexcept
    {
        while (first < end) {
            unsigned const word = first / kBits, next = std::min(end, (word + 1) * kBits);
            if (!visit(word, Mask(first, next)))
                return false;
            first = next;
        }
        return true;
    }

    std::array<std::uint64_t, kPages / kBits> m_bits{};
};

/// Remembers which pages of a mapping were lately found to be there, so that the system is not asked before every touch.
///
/// Of a fixed number of regions, so that nothing has to be got in the middle of a transfer: a region that gives way to another one costs
/// one more question.
class FoundPages
{
public:
    struct Region {
        std::uint64_t number = ~std::uint64_t(0);
        std::uint64_t age = 0;
        unsigned questions = 0; ///< asked of this region
        bool isWritten = false, isLargePage = false;
        PageSet toRead;
        PageSet toWrite; ///< had been given to be written: the disk has room for them, and for them alone
    };

    /// The record of a region, empty when nothing is known. Null when there is no memory.
    Region* Of(std::uint64_t number) noexcept
    {
        Region* const region = m_regions ? &m_regions[number % kRegions] : nullptr;
        return region != nullptr && region->number == number && region->age == m_age ? region : Begin(number);
    }
    /// Forgets what can be read.
    void Forget() noexcept { ++m_age; }
    /// Forgets the rest, too: of one region, and of all.
    void ForgetAllOf(std::uint64_t number) noexcept;
    void ForgetAll() noexcept { m_forgottenAt = ++m_age; }

private:
    Region* Begin(std::uint64_t number) noexcept;

    static constexpr std::size_t kRegions = 512; // a GiB of the file
    std::unique_ptr<Region[]> m_regions;
    std::uint64_t m_age = 0, m_forgottenAt = 0;
};

} // namespace simdb
