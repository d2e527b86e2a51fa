#include "KVOSrvMatrix.h"
#include "KVOSrvMatrixContainer.h"

#include <cstdint>

/// What the host does in C++ for its Fortran solver.
extern "C" void add_matrix(std::int64_t container, int id, int rows, int columns);

void add_matrix(std::int64_t container, int id, int rows, int columns)
{
    KVOSrvMatrix values(rows, columns, nullptr, false, false);
    for (int j = 0; j < columns; ++j)
        for (int i = 0; i < rows; ++i)
            values.Values()[j * rows + i] = id + i + 1000 * j;
    reinterpret_cast<KVOSrvMatrixContainer*>(container)->Create(id, rows, columns, 3, 100).SetRows(0, rows - 1, values);
}
