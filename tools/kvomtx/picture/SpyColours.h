#pragma once

#include "Drawing.h"
#include "SpyGrid.h"

#include <memory>

class SpyLegend;

/// The colours that the entries of a matrix are drawn in, and what they mean.
class SpyColours
{
public:
    virtual ~SpyColours() = default;

    /// Of an entry that is drawn alone. @param k  its number in the arrays of the matrix
    virtual Colour OfEntry(unsigned k) const = 0;
    /// Of all entries that lie there; white: there are none.
    virtual Colour OfPixel(int x, int y) const = 0;
    /// @param isSquares  the entries are drawn alone
    virtual void Explain(SpyLegend& legend, SpyCounts const& counts, bool isSquares) const = 0;
};

/// By how many places of a pixel hold an entry: the more, the darker, by the logarithm of their share; a single one can be seen. A pixel
/// with an entry that is 0 has another colour.
std::unique_ptr<SpyColours> PatternColours(KVOSrvSparseRows const& matrix, SpyGrid const& grid);
/// By the magnitude of the entry, of a pixel its largest one; infinite ones and those that are no numbers are larger than all.
std::unique_ptr<SpyColours> MagnitudeColours(KVOSrvSparseRows const& matrix, SpyGrid const& grid);
