#include "TileSizes.h"

#include <cmath>
#include <limits>

namespace DenseTiles
{

int Tiling::Count() const noexcept
{
    return std::max(1, CutsBlocks() ? m_parts : (m_cut.blocks + m_blocksPerTile - 1) / m_blocksPerTile);
}

Span Tiling::At(int tile) const noexcept
{
    if (m_cut.blocks == 0)
        return {0, -1};
    if (!CutsBlocks()) {
        int const first = tile * m_blocksPerTile, last = std::min(first + m_blocksPerTile, m_cut.blocks) - 1;
        return {m_cut.FirstInBlock(first), m_cut.FirstInBlock(last) + m_cut.NumberInBlock(last) - 1};
    }
    auto const border = [&](std::int64_t part) { return static_cast<int>(m_cut.size * part / m_parts); };
    return {border(tile), border(tile + 1) - 1};
}

int Tiling::MaxCount() const noexcept
{
    if (CutsBlocks())
        return static_cast<int>((std::int64_t{m_cut.size} + m_parts - 1) / m_parts);
    return m_blocksPerTile == 1 ? m_cut.MaxNumberInBlock()
                                : static_cast<int>(std::min<std::int64_t>(m_cut.size, std::int64_t{m_blocksPerTile} * m_cut.perBlock));
}

Tiling Tiling::Of(int size) const noexcept
{
    int const most = std::max(1, MaxCount());
    return OfParts(KVOSrvBlockCut::Whole(size, 0), std::max(1, (size + most - 1) / most));
}

mem_Vector<Tiling> TilingsOf(KVOSrvBlockCut const& cut)
{
    constexpr double kStep = 1.03; // finer steps would win no more than that
    auto const next = [](int count) { return std::max(count + 1, static_cast<int>(count * kStep)); };
    mem_Vector<Tiling> tilings;
    for (int count = 1, last = 0; last != 1; count = next(count)) {
        int const blocks = std::max(1, (cut.blocks + count - 1) / count);
        if (blocks != last)
            tilings.push_back(Tiling::OfBlocks(cut, blocks));
        last = blocks;
    }
    for (int parts = 2; cut.size > kLeastOrder && tilings.back().MaxCount() > kLeastOrder; parts = next(parts))
        tilings.push_back(Tiling::OfParts(cut, parts));
    std::stable_sort(tilings.begin(), tilings.end(), [](Tiling const& a, Tiling const& b) { return a.MaxCount() > b.MaxCount(); });
    return tilings;
}

namespace
{

// A call for a part of a column takes as long as so many entries more: half a microsecond.
constexpr double kEntriesPerCall = 512;
// DGEMM packs the tiles of A and B anew for every tile of C, which takes as long as reading them.
constexpr double kEntriesPerPacking = 1.0;
// What passes through the caches for every entry of C when another part of the inner dimension is added, next to an entry that is read.
constexpr double kEntriesPerSum = 0.25;
// The first touch of memory, which the system clears, takes longer than reading as much into it: little on bare metal, ten times as long in
// some virtual machines. One more tile takes some microseconds.
constexpr double kEntriesPerEntry = 3.0, kEntriesPerTile = 2000.0;

struct Cost {
    double entries; ///< read
    double time;    ///< in entries that would take as long
};

int PlaceOf(Tiles const& tiles, Dimension dimension)
{
    return tiles.order[0] == dimension ? 0 : tiles.order[1] == dimension ? 1 : 2;
}

// How often the tiles of an operand over `first` and `second` are read: the one that was read last is still there.
double Readings(Tiles const& tiles, Dimension first, Dimension second, Dimension third)
{
    auto const changesInside = [&](Dimension dimension) {
        return tiles.of[dimension].Count() > 1 && PlaceOf(tiles, dimension) > PlaceOf(tiles, third);
    };
    return changesInside(first) || changesInside(second) ? tiles.of[third].Count() : 1;
}

double CallsPerEntry(Tiling const& rows)
{
    return rows.CutsBlocks() ? kEntriesPerCall / std::max(1, rows.MaxCount()) : 0.0;
}

Cost CostOf(ProductShape const& shape, Tiles const& tiles)
{
    double const m = shape.rows.size, p = shape.columns.size, n = shape.inner.size;
    double const a = m * n * Readings(tiles, kRows, kInner, kColumns);
    double const b = shape.storedB ? n * p * Readings(tiles, kInner, kColumns, kRows) : 0.0;
    double const c = shape.storedC ? m * p : 0.0;
    double const steps = static_cast<double>(tiles.of[kRows].Count()) * tiles.of[kColumns].Count() * tiles.of[kInner].Count();
    double const packing = m * n * tiles.of[kColumns].Count() + n * p * tiles.of[kRows].Count();
    return {a + b, kEntriesPerPacking * packing + a * (1 + CallsPerEntry(tiles.of[shape.transposedA ? kInner : kRows])) +
                       b * (1 + CallsPerEntry(tiles.of[kInner])) + c * (1 + CallsPerEntry(tiles.of[kRows])) +
                       kEntriesPerSum * m * p * tiles.of[kInner].Count() +
                       kEntriesPerEntry * static_cast<double>(EntriesFor(shape, tiles)) + kEntriesPerTile * steps};
}

// What tiles of equal order in as much memory would read.
double EntriesOfEqualTiles(ProductShape const& shape, std::int64_t entries)
{
    double const m = shape.rows.size, p = shape.columns.size, n = shape.inner.size, order = std::sqrt(static_cast<double>(entries) / 3.0);
    return m * n * std::max(1.0, p / order) + (shape.storedB ? n * p * std::max(1.0, m / order) : 0.0);
}

// Calls visit(tiles) for all tiles, of the widest in the columns that the memory holds, and all orders of the loops that they allow.
template<class Visit>
void ForEachTiles(ProductShape const& shape, std::int64_t entries, Visit const& visit)
{
    // Stored results are summed up before they are written. Else the order is the one in which A lies, where nothing speaks for another.
    static constexpr Dimension kStored[][3] = {{kColumns, kRows, kInner}, {kRows, kColumns, kInner}};
    static constexpr Dimension kInMemory[][3] = {{kInner, kRows, kColumns}, {kInner, kColumns, kRows}, {kColumns, kRows, kInner}};
    static constexpr Dimension kTransposed[][3] = {{kColumns, kRows, kInner}, {kInner, kRows, kColumns}, {kInner, kColumns, kRows}};
    mem_Vector<Tiling> const inner = TilingsOf(shape.inner), rows = TilingsOf(shape.rows), columns = TilingsOf(shape.columns);
    Tiles tiles;
    auto const visitOrders = [&](auto const& orders) {
        for (Dimension const(&order)[3] : orders) {
            std::copy_n(order, 3, tiles.order);
            visit(tiles);
        }
    };
    for (Tiling const& k : inner) {
        tiles.of[kInner] = k;
        for (Tiling const& i : rows) {
            tiles.of[kRows] = i;
            auto const fits = [&](Tiling const& j) {
                tiles.of[kColumns] = j;
                return EntriesFor(shape, tiles) <= entries;
            };
            auto const j = std::partition_point(columns.begin(), columns.end(), [&](Tiling const& some) { return !fits(some); });
            if (j == columns.end() || (shape.wholeColumns && j != columns.begin()))
                continue;
            tiles.of[kColumns] = *j;
            shape.storedC ? visitOrders(kStored) : shape.transposedA ? visitOrders(kTransposed) : visitOrders(kInMemory);
        }
        if (shape.wholeInner)
            break;
    }
}

} // namespace

std::int64_t EntriesFor(ProductShape const& shape, Tiles const& tiles) noexcept
{
    return tiles.EntriesOfA() + (shape.storedB ? tiles.EntriesOfB() : 0) + (shape.storedC ? tiles.EntriesOfC() : 0);
}

Tiles LeastTiles(ProductShape const& shape)
{
    Tiles tiles;
    tiles.of[kRows] = TilingsOf(shape.rows).back();
    tiles.of[kColumns] = shape.wholeColumns ? TilingsOf(shape.columns).front() : TilingsOf(shape.columns).back();
    tiles.of[kInner] = shape.wholeInner ? TilingsOf(shape.inner).front() : TilingsOf(shape.inner).back();
    return tiles;
}

Tiles FindTiles(ProductShape const& shape, std::int64_t entries)
{
    double least = std::numeric_limits<double>::infinity();
    ForEachTiles(shape, entries, [&](Tiles const& tiles) { least = std::min(least, CostOf(shape, tiles).entries); });
    double const most = std::max(least, EntriesOfEqualTiles(shape, entries));
    double bestTime = std::numeric_limits<double>::infinity();
    Tiles best;
    ForEachTiles(shape, entries, [&](Tiles const& tiles) {
        Cost const cost = CostOf(shape, tiles);
        if (cost.entries > most || cost.time >= bestTime)
            return;
        bestTime = cost.time;
        best = tiles;
    });
    return best;
}

} // namespace DenseTiles
