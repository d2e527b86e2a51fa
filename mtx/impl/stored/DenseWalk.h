#pragma once

#include "KVOSrvBlockCut.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

/// Products of database matrices walk along slabs, groups of consecutive block rows or block columns.
namespace DenseSlabs
{

/// How many slabs are announced before they are read: the disk then works while DGEMM computes.
constexpr int kSlabsAhead = 2;

/// How many slabs are multiplied at once at the most.
constexpr int kMostAtOnce = 64;

/// First to last, both inclusive.
struct Span {
    int first, last;

    constexpr int Count() const noexcept { return last - first + 1; }
};

/// What consecutive ones reach over.
inline Span WholeOf(std::span<Span const> spans)
{
    return {spans.front().first, spans.back().last};
}

/// One dimension of a matrix in slabs of some blocks each, the last one of the blocks that are left.
class Walk
{
public:
    explicit Walk(KVOSrvBlockCut const& cut, std::int64_t blocksPerSlab = 1)
        : m_cut(cut), m_blocksPerSlab(static_cast<int>(std::clamp<std::int64_t>(blocksPerSlab, 1, std::max(1, cut.blocks))))
    {
    }

    int Slabs() const noexcept { return m_cut.blocks / m_blocksPerSlab + (m_cut.blocks % m_blocksPerSlab != 0); }
    Span At(int slab) const noexcept
    {
        int const firstBlock = slab * m_blocksPerSlab, lastBlock = std::min(firstBlock + m_blocksPerSlab, m_cut.blocks) - 1;
        int const first = m_cut.FirstInBlock(firstBlock);
        return {first, first + m_cut.NumberInBlocks(firstBlock, lastBlock) - 1};
    }
    /// Of the largest slab, which is not always the first: a view may begin with a short block.
    int MaxCount() const noexcept
    {
        int count = 0;
        for (int const slab : {0, 1, Slabs() - 1})
            if (slab >= 0 && slab < Slabs())
                count = std::max(count, At(slab).Count());
        return count;
    }

    /// Calls run(slabs) for every slab in order, `atOnce` of them at a time, and before that announce(Span) for those up to kSlabsAhead
    /// further on.
    template<class Announce, class Run>
    void ForEachFew(int atOnce, Announce const& announce, Run const& run) const
    {
        std::array<Span, kMostAtOnce> few;
        int announced = 0;
        for (int slab = 0, count; slab < Slabs(); slab += count) {
            count = std::min(atOnce, Slabs() - slab);
            for (; announced < Slabs() && announced < slab + count + kSlabsAhead; ++announced)
                announce(At(announced));
            for (int k = 0; k < count; ++k)
                few[static_cast<std::size_t>(k)] = At(slab + k);
            run(std::span<Span const>(few.data(), static_cast<std::size_t>(count)));
        }
    }
    /// The same one by one: run(Span).
    template<class Announce, class Run>
    void ForEach(Announce const& announce, Run const& run) const
    {
        ForEachFew(1, announce, [&](std::span<Span const> slab) { run(slab.front()); });
    }

private:
    KVOSrvBlockCut m_cut;
    int m_blocksPerSlab;
};

/// Calls run(Span) for the parts of `span`, rows or columns, that lie in one block each, in order.
template<class Run>
void ForEachBlock(KVOSrvBlockCut const& cut, Span const& span, Run const& run)
{
    for (int first = span.first; first <= span.last;) {
        int const block = cut.BlockContaining(first);
        int const last = std::min(span.last, cut.FirstInBlock(block) + cut.NumberInBlock(block) - 1);
        run(Span{first, last});
        first = last + 1;
    }
}

} // namespace DenseSlabs
