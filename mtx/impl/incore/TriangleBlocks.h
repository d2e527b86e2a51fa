#pragma once

/// One block triangle of a product whose result is known to be symmetric: which entries it has, and a cut into few large products.
namespace TriangleBlocks
{

/// Where the blocks of a dimension begin: all of `block` entries, but the first or the last takes the remainder.
struct Cut {
    int size;
    int block;
    bool remainderFirst;

    constexpr int NumberOfBlocks() const noexcept { return size / block + (size % block != 0); }
    /// First entry of block b; NumberOfBlocks() gives the end.
    constexpr int Border(int b) const noexcept
    {
        int const border = remainderFirst ? size - (NumberOfBlocks() - b) * block : b * block;
        return b == 0 ? 0 : border < size ? border : size;
    }
};

/// Covers strips firstStrip to endStrip - 1, each from its own diagonal block to `end`, with calls product(first, afterLast, otherFirst,
/// otherAfterLast) of disjoint rectangles: first and afterLast run along the cut dimension, the others across it.
///
/// Bisection: the rectangle beside the later half is one product, so that most of the work is done in large, nearly square ones: 0.58
/// of the time of the full product, of whose entries it has 0.53; one by one 0.70 (docs/performance.md).
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

} // namespace TriangleBlocks
