#pragma once

#include "KVOExport.h"
#include "KVOSimArray.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// Where one block of a matrix lies in its file: value (i, j) of the matrix, 0-based, inside of the block, is the double
/// at `offset` + 8 ((j - firstColumn) leadingDimension + i - firstRow). Plain data, 32 bytes without gaps: may be sent
/// to other processes as it is.
struct KVOSimBlockPlace {
    std::uint64_t offset = 0;          ///< of its first value in the file, in bytes
    std::int32_t leadingDimension = 0; ///< values from one column to the next: the rows of a whole block
    std::int32_t firstRow = 0;         ///< in the matrix, 0-based
    std::int32_t firstColumn = 0;      ///< likewise
    std::int32_t rows = 0;             ///< that are the matrix's: fewer than a whole block has, at the lower edge
    std::int32_t columns = 0;          ///< likewise, at the right edge
    std::int32_t unused = 0;           ///< 0

    /// Whether all members are equal.
    friend bool operator==(KVOSimBlockPlace const&, KVOSimBlockPlace const&) noexcept = default;
};
static_assert(sizeof(KVOSimBlockPlace) == 32);

/// Places of blocks of one matrix that is being made in a transaction, as KVOSimTransfer::BlockPlaces() tells them, for
/// the processes that are to write the blocks (KVOSrvBlockWriter). They hold until the next commit to the file and no
/// longer than the process that told them has the database open.
struct KVO_EXPORT KVOSimBlockPlaces {
    std::array<std::byte, 32> mark{}; ///< of the file in the state that the places belong to
    std::uint64_t markOffset = 0;     ///< where the mark lies in the file, in bytes
    std::int32_t rows = 0;            ///< of the matrix
    std::int32_t columns = 0;         ///< of the matrix
    std::int32_t rowsPerBlock = 0;    ///< of whole blocks; those at the lower edge may have fewer
    std::int32_t columnsPerBlock = 0; ///< likewise, at the right edge
    /// The blocks, column of blocks by column of blocks. A process may be given some of them only.
    KVOSimArray<KVOSimBlockPlace> blocks;

    /// @throws KVOSimException when the blocks are none of such a matrix, or have places that no file has
    void Check() const;
    /// All of it as bytes, to be sent to other processes or put into a file (docs/database-format.md has the layout).
    /// @throws KVOSimException when they are more than an int counts
    KVOSimArray<std::byte> Bytes() const;
    /// What Bytes() gave, checked. @throws KVOSimException when these bytes are not that
    static KVOSimBlockPlaces FromBytes(void const* bytes, std::size_t count);
};
