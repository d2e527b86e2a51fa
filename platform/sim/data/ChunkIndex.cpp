#include "ChunkIndex.h"

#include "Hdf5.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

namespace simdb
{

namespace
{

constexpr char const* kReading = "Cannot read an index of chunks of";

template<class Number>
Number Take(std::byte const*& at) noexcept
{
    Number number;
    std::memcpy(&number, at, sizeof number);
    at += sizeof number;
    return number;
}

/// The messages of an object header, of version 2 or, from other programs, 1. HDF5 has read it when it opened the object.
class ObjectHeader
{
public:
    ObjectHeader(File const& file, std::uint64_t address) : m_file(file)
    {
        std::array<std::byte, kLongestPrefix> prefix;
        m_file.ReadMetadata(address, prefix.data(), prefix.size());
        std::byte const* at = prefix.data();
        m_isFirst = at[0] == std::byte{1};
        if (m_isFirst) {
            at += 8;
            AddBlock(address + 16, Take<std::uint32_t>(at));
            return;
        }
        if (std::memcmp(at, "OHDR\2", 5) != 0)
            return;
        at += 5;
        auto const flags = Take<std::uint8_t>(at);
        at += ((flags & 0x20) != 0 ? 16 : 0) + ((flags & 0x10) != 0 ? 4 : 0);
        std::uint64_t bytes = 0;
        std::size_t const bytesOfSize = std::size_t(1) << (flags & 3);
        std::memcpy(&bytes, at, bytesOfSize);
        m_isOrdered = (flags & 0x04) != 0;
        AddBlock(address + static_cast<std::uint64_t>(at - prefix.data()) + bytesOfSize, bytes);
    }

    /// The content of the first message of that type; null when there is none.
    std::byte const* Find(std::uint8_t type)
    {
        constexpr std::uint8_t kContinuation = 0x10;
        std::ptrdiff_t const prefix = m_isFirst ? 8 : m_isOrdered ? 6 : 4;
        for (std::size_t block = 0; block < m_blocks.size(); ++block) {
            std::byte const* at = m_blocks[block].data();
            for (std::byte const* const end = at + m_blocks[block].size(); end - at >= prefix;) {
                std::byte const* fields = at;
                auto const found = m_isFirst ? Take<std::uint16_t>(fields) : Take<std::uint8_t>(fields);
                auto const bytes = Take<std::uint16_t>(fields);
                std::byte const* const content = at + prefix;
                if (end - content < bytes)
                    break;
                if (found == type)
                    return content;
                if (found == kContinuation && bytes >= 16 && m_blocks.size() < kMostBlocks)
                    AddContinuation(content);
                at = content + bytes;
            }
        }
        return nullptr;
    }

private:
    static constexpr std::size_t kLongestPrefix = 34, kMostBlocks = 1000;
    static constexpr std::uint64_t kLongestBlock = 1 << 20;

    void AddContinuation(std::byte const* fields)
    {
        auto const address = Take<std::uint64_t>(fields);
        auto const bytes = Take<std::uint64_t>(fields);
        std::uint64_t const signature = m_isFirst ? 0 : 4, checksum = signature;
        if (bytes > signature + checksum)
            AddBlock(address + signature, bytes - signature - checksum);
    }
    void AddBlock(std::uint64_t address, std::uint64_t bytes)
    {
        if (bytes > kLongestBlock)
            return;
        std::vector<std::byte> block(bytes);
        m_file.ReadMetadata(address, block.data(), block.size());
        m_blocks.push_back(std::move(block));
    }

    File const& m_file;
    bool m_isFirst = false;
    bool m_isOrdered = false;
    std::vector<std::vector<std::byte>> m_blocks;
};

// Where the tree begins; none when the index is of another kind, as newer formats have them.
std::optional<std::uint64_t> FindRoot(File const& file, hid_t dataset)
{
    constexpr std::uint8_t kLayout = 0x08;
    constexpr std::byte kLayoutVersion{3}, kChunked{2};
    H5O_info_t info;
    Checked(H5Oget_info2(dataset, &info, H5O_INFO_BASIC), kReading, file.Path());
    ObjectHeader header(file, info.addr);
    std::byte const* layout = header.Find(kLayout);
    if (layout == nullptr || layout[0] != kLayoutVersion || layout[1] != kChunked)
        return std::nullopt;
    layout += 3; // and the number of dimensions
    return Take<std::uint64_t>(layout);
}

} // namespace

void PlacesSum::Add(std::span<std::int64_t const> position, std::uint64_t address, std::uint64_t bytes) noexcept
{
    std::uint64_t hash = 0;
    for (std::int64_t const at : position)
        hash = Hashed(hash, static_cast<std::uint64_t>(at));
    ++pieces;
    sum += Hashed(Hashed(hash, address), bytes);
}

struct ChunkIndex::Node {
    int level;
    std::size_t entries;
    std::vector<std::uint64_t> keys; ///< one more than entries, each with a number for every chunk size
    std::vector<std::uint64_t> children;

    std::span<std::uint64_t const> Key(std::size_t i, std::size_t numbers) const { return {keys.data() + i * numbers, numbers}; }
};

struct ChunkIndex::Visitor {
    OnChunk const& onChunk;
    OnNode const& onNode;
};

std::optional<ChunkIndex> ChunkIndex::Of(File const& file, hid_t dataset, std::span<std::int64_t const> chunkSizes, std::size_t valueBytes)
{
    std::optional<std::uint64_t> const root = FindRoot(file, dataset);
    return root ? std::optional(ChunkIndex(file, chunkSizes, valueBytes, *root)) : std::nullopt;
}

std::optional<ChunkIndex> ChunkIndex::OfTable(File const& file, hid_t dataset)
{
    Hdf5Guard const guard;
    Hid const creation(Checked(H5Dget_create_plist(dataset), kReading, file.Path()));
    Hid const type(Checked(H5Dget_type(dataset), kReading, file.Path()));
    hsize_t rows = 0;
    if (H5Pget_layout(creation) != H5D_CHUNKED || H5Pget_nfilters(creation) != 0 || H5Pget_chunk(creation, 1, &rows) != 1)
        return std::nullopt;
    std::int64_t const chunkSize = static_cast<std::int64_t>(rows);
    return Of(file, dataset, {&chunkSize, 1}, H5Tget_size(type));
}

ChunkIndex::ChunkIndex(File const& file, std::span<std::int64_t const> chunkSizes, std::size_t valueBytes, std::uint64_t root)
    : m_file(file), m_chunkSizes(chunkSizes.begin(), chunkSizes.end()), m_root(root)
{
    m_chunkSizes.push_back(valueBytes);
    m_chunkBytes = 1;
    for (std::uint64_t const size : m_chunkSizes)
        m_chunkBytes *= size;
    Hid const creation(Checked(H5Fget_create_plist(file.Hdf5()), kReading, file.Path()));
    unsigned half = 0;
    Checked(H5Pget_istore_k(creation, &half), kReading, file.Path());
    m_nodeEntries = 2 * static_cast<std::size_t>(half);
}

void ChunkIndex::ThrowDamaged(std::string const& what, std::uint64_t address) const
{
    ThrowReason(KVOSimException::Kind::Damaged, kReading, m_file.Path(),
                "the file is damaged: the node at " + std::to_string(address) + " " + what);
}

void ChunkIndex::Walk(OnChunk const& onChunk, OnNode const& onNode) const
{
    if (m_root == HADDR_UNDEF)
        return;
    std::vector<std::uint64_t> const lowest(m_chunkSizes.size(), 0), highest(m_chunkSizes.size(), UINT64_MAX);
    Visit({onChunk, onNode}, m_root, -1, lowest, highest);
}

PlacesSum ChunkIndex::Sum() const
{
    PlacesSum sum;
    Walk([&](std::span<std::int64_t const> position, std::uint64_t address) { sum.Add(position, address, m_chunkBytes); });
    return sum;
}

ChunkIndex::Node ChunkIndex::Read(std::uint64_t address) const
{
    std::size_t const numbers = m_chunkSizes.size();
    std::size_t const keyBytes = 8 + 8 * numbers;
    std::vector<std::byte> bytes(24 + m_nodeEntries * (keyBytes + 8) + keyBytes);
    m_file.ReadMetadata(address, bytes.data(), bytes.size());
    if (std::memcmp(bytes.data(), "TREE\1", 5) != 0)
        ThrowDamaged("has no signature", address);
    std::byte const* at = bytes.data() + 5;
    Node node{};
    node.level = Take<std::uint8_t>(at);
    node.entries = Take<std::uint16_t>(at);
    at += 16; // its neighbours, which no search looks at
    if (node.entries > m_nodeEntries)
        ThrowDamaged("counts more entries than it has room for", address);
    for (std::size_t i = 0; i <= node.entries; ++i) {
        auto const chunkBytes = Take<std::uint32_t>(at);
        auto const filterMask = Take<std::uint32_t>(at);
        if (i < node.entries && node.level == 0 && (chunkBytes != m_chunkBytes || filterMask != 0))
            ThrowDamaged("has a chunk of another size", address);
        for (std::uint64_t const size : m_chunkSizes) {
            auto const offset = Take<std::uint64_t>(at);
            if (offset % size != 0 || offset > INT64_MAX)
                ThrowDamaged("has a chunk where none begins", address);
            node.keys.push_back(offset);
        }
        if (i < node.entries)
            node.children.push_back(Take<std::uint64_t>(at));
    }
    return node;
}

// Keys rise strictly and those of a child lie between its parent's: then HDF5's search finds every chunk, and each node is visited once.
void ChunkIndex::Visit(Visitor const& visitor, std::uint64_t address, int level, std::span<std::uint64_t const> from,
                       std::span<std::uint64_t const> to) const
{
    Node const node = Read(address);
    std::size_t const numbers = m_chunkSizes.size();
    bool const isRoot = level < 0;
    if (!isRoot && (node.level != level || node.entries == 0))
        ThrowDamaged("has no place in the tree", address);
    bool rises = std::ranges::lexicographical_compare(node.Key(0, numbers), from) == false &&
                 std::ranges::lexicographical_compare(to, node.Key(node.entries, numbers)) == false;
    for (std::size_t i = 0; rises && i < node.entries; ++i)
        rises = std::ranges::lexicographical_compare(node.Key(i, numbers), node.Key(i + 1, numbers));
    if (!rises && node.entries > 0)
        ThrowDamaged("is not in order", address);
    if (visitor.onNode)
        visitor.onNode(address, 24 + m_nodeEntries * (16 + 8 * numbers) + 8 + 8 * numbers);
    for (std::size_t i = 0; i < node.entries; ++i) {
        if (node.level > 0) {
            Visit(visitor, node.children[i], node.level - 1, node.Key(i, numbers), node.Key(i + 1, numbers));
            continue;
        }
        if (node.Key(i, numbers).back() != 0)
            ThrowDamaged("has a chunk that begins inside of a value", address);
        std::array<std::int64_t, H5S_MAX_RANK> position;
        std::ranges::copy(node.Key(i, numbers).first(numbers - 1), position.begin());
        visitor.onChunk({position.data(), numbers - 1}, node.children[i]);
    }
}

} // namespace simdb
