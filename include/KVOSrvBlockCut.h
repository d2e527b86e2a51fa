#pragma once

#include <cstdint>

/// How one dimension of a database matrix, its rows or its columns, is cut into blocks.
///
/// Written for rows. The first block is shorter than the regular ones where a view begins within a stored chunk, the
/// last one where the rows end. Row and block numbers are 0-based, (first, last) inclusive; numbers out of range get an
/// answer too, never a fault.
struct KVOSrvBlockCut {
    int size = 0;     ///< rows
    int blocks = 0;   ///< 0 without rows
    int perBlock = 0; ///< rows of a regular block: the chunk size of the store
    int inFirst = 0;  ///< rows in block 0
    int inLast = 0;   ///< rows in the last block
    int offset = 0;   ///< position of row 0 in the store

    /// `size` rows from the beginning of the store on. @param perBlock  0: one block
    static constexpr KVOSrvBlockCut Whole(int size, int perBlock) noexcept { return AtChunks(size, perBlock, 0); }

    /// `size` rows from position `offset` of the store on, cut where the store is.
    static constexpr KVOSrvBlockCut AtChunks(int size, int perBlock, int offset) noexcept
    {
        KVOSrvBlockCut cut;
        cut.size = size;
        cut.perBlock = perBlock > 0 ? perBlock : size;
        cut.offset = offset;
        if (size <= 0)
            return cut;
        int const skipped = offset % cut.perBlock;
        std::int64_t const last = std::int64_t{skipped} + size - 1; // counted from the beginning of the first chunk
        cut.blocks = static_cast<int>(last / cut.perBlock) + 1;
        cut.inFirst = cut.blocks > 1 ? cut.perBlock - skipped : size;
        cut.inLast = cut.blocks > 1 ? static_cast<int>(last % cut.perBlock) + 1 : size;
        return cut;
    }

    /// Rows first to last of these, which must be there: the blocks are parts of these blocks.
    constexpr KVOSrvBlockCut View(int first, int last) const noexcept
    {
        int const b0 = BlockContaining(first), b1 = BlockContaining(last);
        KVOSrvBlockCut view;
        view.size = last - first + 1;
        view.blocks = b1 - b0 + 1;
        view.perBlock = perBlock;
        view.inFirst = view.blocks > 1 ? FirstInBlock(b0) + NumberInBlock(b0) - first : view.size;
        view.inLast = view.blocks > 1 ? last - FirstInBlock(b1) + 1 : view.size;
        view.offset = offset + first;
        return view;
    }

    /// Rows appended behind the last one. Deliberate: block 0 keeps its height, although a single block that was
    /// shorter than a chunk has grown in the store; callers know block 0 by the height it had. Walks that must meet
    /// every row go by Stored().
    constexpr void Append(int count) noexcept
    {
        KVOSrvBlockCut const whole = Whole(size + count, perBlock);
        if (size == 0)
            inFirst = whole.inFirst;
        size = whole.size;
        perBlock = whole.perBlock;
        blocks = whole.blocks;
        inLast = whole.inLast;
    }

    /// The same rows, cut where the store is.
    constexpr KVOSrvBlockCut Stored() const noexcept { return AtChunks(size, perBlock, offset); }

    /// Rows in block b: 0 for a negative b, those of the last block for a b past the end.
    constexpr int NumberInBlock(int b) const noexcept
    {
        if (b < 0)
            return 0;
        if (b == 0)
            return inFirst;
        return b >= blocks - 1 ? inLast : perBlock;
    }

    /// Rows of the largest block; 0 without blocks.
    constexpr int MaxNumberInBlock() const noexcept
    {
        if (blocks >= 3)
            return perBlock;
        return inFirst > inLast ? inFirst : inLast;
    }

    /// Rows in blocks b0 to b1: 0 when b1 < b0 or one of them is negative.
    constexpr int NumberInBlocks(int b0, int b1) const noexcept
    {
        std::int64_t const n = std::int64_t{b1} - b0 + 1;
        if (n < 1 || b0 < 0 || b1 < 0)
            return 0;
        if (n == 1)
            return NumberInBlock(b0);
        return static_cast<int>(std::int64_t{NumberInBlock(b0)} + NumberInBlock(b1) + perBlock * (n - 2));
    }

    /// First row of block b; 0 for a negative b.
    constexpr int FirstInBlock(int b) const noexcept
    {
        return b < 1 ? 0 : static_cast<int>(std::int64_t{perBlock} * (b - 1) + inFirst);
    }

    /// The block of row r; block 0 for a negative r, the last one for an r past the end.
    constexpr int BlockContaining(int r) const noexcept
    {
        if (r < inFirst)
            return 0;
        if (std::int64_t{size} - r <= inLast)
            return blocks - 1;
        return (r - inFirst) / perBlock + 1;
    }

    /// Whether both cut the same rows at the same places.
    friend constexpr bool operator==(KVOSrvBlockCut const&, KVOSrvBlockCut const&) noexcept = default;
};
