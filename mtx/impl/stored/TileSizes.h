#pragma once

#include "DenseWalk.h"
#include "mem_Vector.h"

/// Into what tiles a product is cut that has to do with little memory.
namespace DenseTiles
{

using DenseSlabs::Span;

/// One dimension of a product in tiles: some whole blocks each, or even parts wherever the blocks end.
class Tiling
{
public:
    Tiling() = default;
    static Tiling OfBlocks(KVOSrvBlockCut const& cut, int blocksPerTile) noexcept { return {cut, blocksPerTile, 0}; }
    static Tiling OfParts(KVOSrvBlockCut const& cut, int parts) noexcept { return {cut, 0, parts}; }
    /// Even parts of `size` rows, none larger than one of these tiles.
    Tiling Of(int size) const noexcept;

    /// 1 at least: without rows there is one tile of none.
    int Count() const noexcept;
    Span At(int tile) const noexcept;
    /// That no tile exceeds.
    int MaxCount() const noexcept;
    /// Whether the tiles cut blocks.
    bool CutsBlocks() const noexcept { return m_parts > 0; }

private:
    Tiling(KVOSrvBlockCut const& cut, int blocksPerTile, int parts) noexcept : m_cut(cut), m_blocksPerTile(blocksPerTile), m_parts(parts) {}

    KVOSrvBlockCut m_cut;
    int m_blocksPerTile = 1; ///< 0: parts
    int m_parts = 0;
};

/// Tilings of one dimension, from one tile down to tiles of about kLeastOrder.
constexpr int kLeastOrder = 16;
mem_Vector<Tiling> TilingsOf(KVOSrvBlockCut const& cut);

/// A product C(rows, columns) = op(A)(rows, inner) B(inner, columns).
struct ProductShape {
    KVOSrvBlockCut rows, columns, inner; ///< as they are cut where values are read
    bool transposedA = false;
    bool storedB = false, storedC = false; ///< takes memory for tiles of it
    bool wholeColumns = false;             ///< the tiles of C have all columns: what is written is not read again
    bool wholeInner = false;               ///< the tiles of A have all of the inner dimension
};

enum Dimension : int { kRows, kColumns, kInner };

/// The tiles, and the loops over them, the outermost first.
struct Tiles {
    Tiling of[3];
    Dimension order[3] = {kRows, kColumns, kInner};

    std::int64_t EntriesOfA() const noexcept { return std::int64_t{of[kRows].MaxCount()} * of[kInner].MaxCount(); }
    std::int64_t EntriesOfB() const noexcept { return std::int64_t{of[kInner].MaxCount()} * of[kColumns].MaxCount(); }
    std::int64_t EntriesOfC() const noexcept { return std::int64_t{of[kRows].MaxCount()} * of[kColumns].MaxCount(); }
};

/// Entries of memory that the tiles take.
std::int64_t EntriesFor(ProductShape const& shape, Tiles const& tiles) noexcept;
/// The smallest tiles that there are.
Tiles LeastTiles(ProductShape const& shape);
/// The tiles that need the least time among those that read no more than tiles of equal order would; they take `entries` entries at the
/// most, LeastTiles() at the least.
Tiles FindTiles(ProductShape const& shape, std::int64_t entries);

} // namespace DenseTiles
