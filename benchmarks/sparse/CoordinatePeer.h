#pragma once

#include <memory>
#include <vector>

/// Another library's assembly by coordinates: entries are located once, and values summed there again and again.
class CoordinatePeer
{
public:
    virtual ~CoordinatePeer() = default;
    /// Finds where the entries go, from their lists.
    virtual void Locate() = 0;
    /// Sums the values anew. @param values  one for each entry
    virtual void Sum(double const* values) = 0;
    /// The sums, row by row, columns ascending.
    virtual std::vector<double> Sums() const = 0;
};

/// PETSc's MatSetPreallocationCOO() and MatSetValuesCOO(), located; null where this program was built without PETSc.
std::unique_ptr<CoordinatePeer> PetscByCoordinates(int order, std::vector<int> rows, std::vector<int> columns);
