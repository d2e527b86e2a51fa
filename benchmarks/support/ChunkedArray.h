// What a strided copy in memory works on, beside a matrix in a file.
#pragma once

#include "LargePages.h"

#include <algorithm>
#include <cstddef>

/// A square matrix in memory that is laid out as a file is, chunk by chunk, in large pages. The chunks fill it.
class ChunkedArray
{
public:
    /// @param value  value(i, j) is that of an entry
    template<class Value>
    ChunkedArray(int order, int chunk, Value const& value)
        : m_order(order), m_chunk(chunk), m_values(static_cast<std::size_t>(order) * static_cast<std::size_t>(order))
    {
        for (int j = 0; j < order; ++j)
            for (int i = 0; i < order; ++i)
                At(i, j) = value(i, j);
    }
    double& At(int i, int j)
    {
        int const block = j / m_chunk * (m_order / m_chunk) + i / m_chunk;
        return m_values.Data()[(std::ptrdiff_t{block} * m_chunk + j % m_chunk) * m_chunk + i % m_chunk];
    }
    /// Calls copy(part in the array, part in the packed buffer, bytes) for every contiguous part of a window; its ends are inclusive.
    template<class Copy>
    void ForEachRun(int r0, int r1, int c0, int c1, double* packed, Copy const& copy)
    {
        int const rows = r1 - r0 + 1;
        for (int j = c0; j <= c1; ++j)
            for (int i = r0; i <= r1; i = (i / m_chunk + 1) * m_chunk) {
                int const last = std::min(r1, (i / m_chunk + 1) * m_chunk - 1);
                copy(&At(i, j), packed + (i - r0) + std::ptrdiff_t{j - c0} * rows, static_cast<std::size_t>(last - i + 1) * sizeof(double));
            }
    }

private:
    int m_order, m_chunk;
    LargePages<double> m_values;
};
