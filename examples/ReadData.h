// Reads the models of data/: symmetric matrices in Matrix Market files, and the reference frequencies beside them.
#pragma once

#include "KVOSrvMatrix.h"
#include "KVOSrvSparseMatrix.h"

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// A symmetric Matrix Market file: a banner, comment lines that start with %, then "rows columns entries", then "row column value" of the
// lower triangle, 1-based. Assembled in full storage, the matrix has every entry at both its places.
inline std::unique_ptr<KVOSrvSparseMatrix> ReadSymmetric(std::string const& path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error(path + ": cannot be opened");
    std::string line;
    if (!std::getline(file, line) || !line.starts_with("%%MatrixMarket matrix coordinate real symmetric"))
        throw std::runtime_error(path + ": no symmetric matrix of real entries");
    while (std::getline(file, line) && line.starts_with('%')) {
    }
    int rows = 0, columns = 0, entries = 0;
    if (!(std::istringstream(line) >> rows >> columns >> entries) || rows < 1 || rows != columns)
        throw std::runtime_error(path + ": no size of a square matrix found");

    auto matrix = std::make_unique<KVOSrvSparseMatrix>(rows, columns);
    matrix->BeginAssembly();
    for (int k = 0; k < entries; ++k) {
        int i = 0, j = 0;
        double value = 0.0;
        if (!(file >> i >> j >> value) || i < 1 || i > rows || j < 1 || j > i)
            throw std::runtime_error(path + ": entry " + std::to_string(k + 1) + " is missing or outside the lower triangle");
        auto const row = static_cast<unsigned>(i - 1), column = static_cast<unsigned>(j - 1); // the library counts from 0
        matrix->AddData(row, column, value);
        if (row != column)
            matrix->AddData(column, row, value);
    }
    matrix->EndAssembly();
    return matrix;
}

// The same matrix with all its zeros, declared symmetric: what the in-core factorization and eigensolver take.
inline KVOSrvMatrix ToDense(KVOSrvSparseMatrix const& matrix)
{
    KVOSrvMatrix dense(matrix.NumberOfRows(), matrix.NumberOfColumns(), nullptr, true, false);
    dense = 0.0;
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count)); // a list of ours, by delete[]
    for (int k = 0; k < count; ++k) {
        int const row = static_cast<int>(entries[k].row), column = static_cast<int>(entries[k].column);
        dense.SetValues(row, row, column, column, &entries[k].value);
    }
    return dense;
}

// The second number of each line; lines that start with # are comments.
inline std::vector<double> ReadFrequencies(std::string const& path)
{
    std::ifstream file(path);
    std::vector<double> frequencies;
    for (std::string line; std::getline(file, line);) {
        double lambda = 0.0, frequency = 0.0;
        if (!line.starts_with('#') && std::istringstream(line) >> lambda >> frequency)
            frequencies.push_back(frequency);
    }
    if (frequencies.empty())
        throw std::runtime_error(path + ": no reference frequencies found");
    return frequencies;
}
