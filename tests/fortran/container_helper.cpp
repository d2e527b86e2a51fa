#include "KVOSrvMatrix.h"
#include "KVOSrvMatrixContainer.h"
#include "TemporaryFolder.h"

#include <cstdint>
#include <memory>

/// What the host does in C++ for its Fortran solver.
extern "C" {
void enter_fresh_folder();
int leave_folder();
void add_matrix(std::int64_t container, int id, int rows, int columns);
void remove_matrix(std::int64_t container, int id);
}

namespace
{

std::unique_ptr<TemporaryFolder> g_folder;

} // namespace

void enter_fresh_folder()
{
    g_folder = std::make_unique<TemporaryFolder>();
    std::filesystem::current_path(*g_folder / ".");
}

/// Returns how many files are in it.
int leave_folder()
{
    std::filesystem::directory_iterator const files(*g_folder / ".");
    auto const left = static_cast<int>(std::distance(begin(files), end(files)));
    std::filesystem::current_path("/");
    g_folder.reset();
    return left;
}

void add_matrix(std::int64_t container, int id, int rows, int columns)
{
    KVOSrvMatrix values(rows, columns, nullptr, false, false);
    for (int j = 0; j < columns; ++j)
        for (int i = 0; i < rows; ++i)
            values.Values()[j * rows + i] = id + i + 1000 * j;
    reinterpret_cast<KVOSrvMatrixContainer*>(container)->Create(id, rows, columns, 3, 100).SetRows(0, rows - 1, values);
}

void remove_matrix(std::int64_t container, int id)
{
    reinterpret_cast<KVOSrvMatrixContainer*>(container)->Remove(id);
}
