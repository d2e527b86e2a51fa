#pragma once

#include "KVOSrvSparseMatrix.h"

#include <cstdint>
#include <memory>

/// The arrays of a sparse matrix that is to be made of them.
struct SparseArrays {
    SparseArrays(int rowCount, int columnCount, std::int64_t entries, bool half)
        : rows(rowCount), columns(columnCount), rowStart(Allocate<unsigned>(std::int64_t{rowCount} + 1)),
          columnIndices(Allocate<int>(entries)), values(Allocate<double>(entries)), diagonal(half ? Allocate<double>(rows) : nullptr)
    {
    }

    /// The matrix, which takes them over.
    std::unique_ptr<KVOSrvSparseMatrix> Matrix()
    {
        auto matrix =
            std::make_unique<KVOSrvSparseMatrix>(rows, columns, rowStart.get(), columnIndices.get(), values.get(), diagonal.get());
        static_cast<void>(rowStart.release());
        static_cast<void>(columnIndices.release());
        static_cast<void>(values.release());
        static_cast<void>(diagonal.release());
        return matrix;
    }

    template<class T>
    using Array = std::unique_ptr<T[], mem_Deleter>;

    template<class T>
    static Array<T> Allocate(std::int64_t count)
    {
        return Array<T>(static_cast<T*>(mem_OperatorNewThrow(mem_ArrayBytes(count, sizeof(T)))));
    }

    int rows;
    int columns;
    Array<unsigned> rowStart;
    Array<int> columnIndices;
    Array<double> values;
    Array<double> diagonal; // of half storage
};
