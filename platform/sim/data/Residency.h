#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace simdb
{

/// Which regions of a mapped file are in the process's memory, and which leave it for others. It decides; a Memory does.
///
/// Invariant: at most `residentBytes` (as told with each use) stay, in whole regions, and at most kPassing of what is only walked through;
/// but what is asked for at once may be more, and leaves with the next use.
class Residency
{
public:
    static constexpr unsigned kRegionShift = 21; ///< 2 MiB: what one page table maps, or one large page
    static constexpr std::uint64_t kRegion = std::uint64_t(1) << kRegionShift;
    static constexpr std::uint64_t kPassing = 32 * kRegion;

    enum class State : unsigned char {
        None,
        Seen,     ///< not resident, but used before
        Touched,  ///< resident, as far as it was touched; from here on it counts
        Pages,    ///< resident as a whole
        LargePage ///< the same, as one page
    };

    /// What regions leave.
    class Memory
    {
    public:
        virtual ~Memory() = default;
        virtual void Drop(std::uint64_t region) noexcept = 0;
        virtual void DropAll() noexcept = 0;
    };

    /// @param memory  outlives this object, and is only used within its members
    explicit Residency(Memory& memory) noexcept : m_memory(memory) {}

    /// Makes room for records of so many regions. False when there is no memory for them; no region at or behind them may be asked for
    /// then.
    bool Know(std::uint64_t regions) noexcept;
    bool Knows(std::uint64_t region) const noexcept { return region < m_states.size(); }
    State Of(std::uint64_t region) const noexcept { return m_states[region]; }

    /// A call has served a use of the region.
    void MarkUsed(std::uint64_t region) noexcept;
    /// Regions first to end - 1 are going to be touched. When that is more than may stay, all others leave.
    void Touch(std::uint64_t first, std::uint64_t end, std::uint64_t residentBytes) noexcept;
    /// The same for regions that are walked through: the oldest of those leave first.
    void LetPass(std::uint64_t first, std::uint64_t end, std::uint64_t residentBytes) noexcept;
    /// Whether there is room to map all of a region. Those walked through give way to it, others don't; but after a while all leave, as
    /// what is mapped may be out of use.
    bool HasRoom(std::uint64_t region, std::uint64_t residentBytes) noexcept;
    /// All of the region was mapped.
    void Settle(std::uint64_t region, bool isLargePage) noexcept;

private:
    void Add(std::uint64_t region, State state) noexcept;
    void DropAll() noexcept;
    void DropOldestPassing() noexcept;

    Memory& m_memory;
    std::vector<State> m_states;
    std::uint64_t m_residentBytes = 0;
    std::uint64_t m_refusedBytes = 0;                          ///< without room since all left
    std::array<std::uint64_t, kPassing / kRegion> m_passing{}; ///< a ring of the regions that are walked through
    std::size_t m_oldestPassing = 0, m_passingCount = 0;
};

} // namespace simdb
