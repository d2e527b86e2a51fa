#pragma once

#include "KVOSrvMatrix.h"

#include <cstddef>
#include <vector>

/// A tall block of columns in memory, column-major, that can be moved and cut; View() is what the library's products take.
struct Panel {
    Panel() = default;
    Panel(int rowCount, int columnCount) : rows(rowCount), columns(columnCount), values(Place(columnCount)) {}

    double* Column(int j) { return values.data() + Place(j); }
    double const* Column(int j) const { return values.data() + Place(j); }
    double& At(int i, int j) { return Column(j)[i]; }
    double At(int i, int j) const { return Column(j)[i]; }
    /// Keeps the first columns.
    void Cut(int columnCount)
    {
        columns = columnCount;
        values.resize(Place(columnCount));
    }
    KVOSrvMatrix View() { return KVOSrvMatrix(rows, columns, values.data(), false, false); }

    int rows = 0;
    int columns = 0;
    std::vector<double> values;

private:
    std::size_t Place(int j) const { return static_cast<std::size_t>(rows) * static_cast<std::size_t>(j); }
};

/// A^T B
Panel TransposeTimes(Panel const& a, Panel const& b);
/// A B
Panel Times(Panel const& a, Panel const& b);
/// Eigenvalues, ascending, of a symmetric matrix, whose place its eigenvectors take.
std::vector<double> Eigenpairs(Panel& matrix);
