#pragma once

#include <string>
#include <vector>

/// Entries of a symmetric matrix by their places, both triangles; places may occur twice, and are summed.
struct Triplets {
    std::vector<int> rows;
    std::vector<int> columns;
    std::vector<double> values;
};

/// The entries that a database holds for rows firstRow to endRow - 1 of a symmetric matrix in half storage, with their mirror images, which
/// may stand in other rows. Nothing else of it is read.
/// @param number  of the distribution, in the first context
/// @throws KVOSimException, std::bad_alloc
Triplets ReadRows(std::string const& path, int number, int firstRow, int endRow);
