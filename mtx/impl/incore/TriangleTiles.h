#pragma once

/// One triangle of the tiles of a product whose result is known to be symmetric: which entries it has, and a cut into few large products.
namespace TriangleTiles
{

/// Where the tiles of a dimension begin: all of `tile` entries, but the first or the last takes the remainder.
struct Cut {
    int size;
    int tile;
    bool remainderFirst;

    constexpr int NumberOfTiles() const noexcept { return size / tile + (size % tile != 0); }
    /// First entry of tile t; NumberOfTiles() gives the end.
    constexpr int Border(int t) const noexcept
    {
        int const border = remainderFirst ? size - (NumberOfTiles() - t) * tile : t * tile;
        return t == 0 ? 0 : border < size ? border : size;
    }
};

/// Covers strips firstStrip to endStrip - 1, each from its own diagonal tile to `end`, with calls product(first, afterLast, otherFirst,
/// otherAfterLast) of disjoint rectangles: first and afterLast run along the cut dimension, the others across it.
///
/// Bisection: the rectangle beside the later half is one product, so that most of the work is done in large, nearly square ones: 0.58
/// of the time of the full product, of whose entries it has 0.53; one by one 0.70 (docs/measurements.md).
template<class Product>
void Cover(Cut const& cut, int firstStrip, int endStrip, int end, Product const& product)
{
    if (endStrip - firstStrip <= 1) {
        if (firstStrip < endStrip)
            product(cut.Border(firstStrip), cut.Border(endStrip), cut.Border(firstStrip), end);
        return;
    }
    int const middle = firstStrip + (endStrip - firstStrip) / 2;
    Cover(cut, firstStrip, middle, cut.Border(middle), product);
    product(cut.Border(firstStrip), cut.Border(middle), cut.Border(middle), end);
    Cover(cut, middle, endStrip, end, product);
}

} // namespace TriangleTiles
