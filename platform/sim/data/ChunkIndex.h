#pragma once

#include "SimFile.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace simdb
{

/// What the checksums of a drawer's places in the file are made of: the sum over its pieces (chunks, or arrays that lie in one piece), in
/// no order, so that a new piece is added without looking at the others.
struct PlacesSum {
    std::int64_t pieces = 0;
    std::uint64_t sum = 0;

    /// @param position  which piece it is: the position of a chunk's first value per dimension, the slot of a sparse drawer's array
    void Add(std::span<std::int64_t const> position, std::uint64_t address, std::uint64_t bytes) noexcept;

    friend bool operator==(PlacesSum const&, PlacesSum const&) noexcept = default;
};

/// One step of a hash of 64-bit words; a word that differs gives another hash.
constexpr std::uint64_t Hashed(std::uint64_t hash, std::uint64_t word) noexcept
{
    hash = (hash ^ word) * 0x9e3779b97f4a7c15u;
    return hash ^ hash >> 32;
}

/// HDF5's index of the chunks of one dataset, a B-tree of version 1, read from the file itself: HDF5 checks no more of a node than its
/// signature, and has no question for all chunks that does not go through all of them for each.
class ChunkIndex
{
public:
    using OnChunk = std::function<void(std::span<std::int64_t const> position, std::uint64_t address)>;
    using OnNode = std::function<void(std::uint64_t address, std::uint64_t bytes)>;

    /// The index as HDF5 has last flushed it; none of another kind, as newer versions of HDF5 make.
    /// @param chunkSizes  values per dimension
    static std::optional<ChunkIndex> Of(File const& file, hid_t dataset, std::span<std::int64_t const> chunkSizes, std::size_t valueBytes);
    /// The same of a dataset of one dimension.
    static std::optional<ChunkIndex> OfTable(File const& file, hid_t dataset);

    std::uint64_t ChunkBytes() const noexcept { return m_chunkBytes; }
    /// Visits every chunk with the position of its first value, and every node.
    /// @throws KVOSimException when a node is not as HDF5 writes it, or HDF5's search would miss a chunk
    void Walk(OnChunk const& onChunk, OnNode const& onNode = nullptr) const;
    PlacesSum Sum() const;

private:
    ChunkIndex(File const& file, std::span<std::int64_t const> chunkSizes, std::size_t valueBytes, std::uint64_t root);
    struct Node;
    struct Visitor;
    Node Read(std::uint64_t address) const;
    void Visit(Visitor const& visitor, std::uint64_t address, int level, std::span<std::uint64_t const> from,
               std::span<std::uint64_t const> to) const;
    [[noreturn]] void ThrowDamaged(std::string const& what, std::uint64_t address) const;

    File const& m_file;
    std::vector<std::uint64_t> m_chunkSizes; ///< per dimension, and the bytes of a value: what the keys count by
    std::uint64_t m_chunkBytes;
    std::size_t m_nodeEntries; ///< room of a node
    std::uint64_t m_root;      ///< HADDR_UNDEF: no chunk was ever written
};

} // namespace simdb
