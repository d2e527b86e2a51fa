// Places of blocks on their way between processes, and what they must be like.

#include "KVOSimBlockPlaces.h"

#include "Hdf5.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

namespace
{

constexpr char const* kTaking = "Cannot use places of blocks";
constexpr char kMagic[8] = {'K', 'V', 'O', 'S', 'I', 'M', 'B', '1'};

struct Header {
    char magic[8];
    std::uint64_t blocks;
    std::uint64_t markOffset;
    std::array<std::byte, 32> mark;
    std::int32_t rows, columns, rowsPerBlock, columnsPerBlock;
};
static_assert(sizeof(Header) == 72);

[[noreturn]] void Refuse(std::string const& why)
{
    simdb::ThrowReason(kTaking, "", why);
}

// Along one dimension: where a block begins, and that it is as long as it must be there.
bool Fits(std::int32_t first, std::int32_t count, std::int32_t size, std::int32_t blockSize) noexcept
{
    return first >= 0 && first < size && first % blockSize == 0 && count == std::min(blockSize, size - first);
}

} // namespace

void KVOSimBlockPlaces::Check() const
{
    if (rows < 0 || columns < 0 || rowsPerBlock < 1 || columnsPerBlock < 1 || markOffset > INT64_MAX - sizeof mark)
        Refuse("their matrix has no such sizes, or their file no such mark");
    for (KVOSimBlockPlace const& block : blocks) {
        std::int64_t bytes;
        bool const hasRoom = !__builtin_mul_overflow(std::int64_t{rowsPerBlock} * columnsPerBlock, 8, &bytes) &&
                             block.offset <= static_cast<std::uint64_t>(INT64_MAX - bytes);
        if (!hasRoom || block.leadingDimension != rowsPerBlock || block.unused != 0 ||
            !Fits(block.firstRow, block.rows, rows, rowsPerBlock) || !Fits(block.firstColumn, block.columns, columns, columnsPerBlock))
            Refuse("the block at row " + std::to_string(block.firstRow) + ", column " + std::to_string(block.firstColumn) +
                   " is none of their matrix");
    }
}

KVOSimArray<std::byte> KVOSimBlockPlaces::Bytes() const
{
    std::size_t const blockBytes = static_cast<std::size_t>(blocks.Size()) * sizeof(KVOSimBlockPlace);
    if (blockBytes > INT_MAX - sizeof(Header))
        simdb::ThrowReason("Cannot pack places of blocks", "", "they are more than 2 GiB; pack them in parts");
    Header header{{}, static_cast<std::uint64_t>(blocks.Size()), markOffset, mark, rows, columns, rowsPerBlock, columnsPerBlock};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    std::vector<std::byte> bytes(sizeof header + blockBytes);
    std::memcpy(bytes.data(), &header, sizeof header);
    if (blockBytes > 0)
        std::memcpy(bytes.data() + sizeof header, blocks.begin(), blockBytes);
    return KVOSimArray<std::byte>(std::move(bytes));
}

KVOSimBlockPlaces KVOSimBlockPlaces::FromBytes(void const* bytes, std::size_t count)
{
    Header header{};
    if (count >= sizeof header)
        std::memcpy(&header, bytes, sizeof header);
    if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0)
        Refuse("these " + std::to_string(count) + " bytes are none");
    std::size_t const blockBytes = count - sizeof header;
    if (blockBytes % sizeof(KVOSimBlockPlace) != 0 || header.blocks != blockBytes / sizeof(KVOSimBlockPlace))
        Refuse("the bytes of " + std::to_string(header.blocks) + " blocks are not " + std::to_string(blockBytes));
    std::vector<KVOSimBlockPlace> blocks(blockBytes / sizeof(KVOSimBlockPlace));
    if (!blocks.empty())
        std::memcpy(blocks.data(), static_cast<std::byte const*>(bytes) + sizeof header, blockBytes);
    KVOSimBlockPlaces const places{header.mark,
                                   header.markOffset,
                                   header.rows,
                                   header.columns,
                                   header.rowsPerBlock,
                                   header.columnsPerBlock,
                                   KVOSimArray<KVOSimBlockPlace>(std::move(blocks))};
    places.Check();
    return places;
}
