#include "Fingerprint.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cstring>

std::uint64_t Fingerprint(void const* data, std::size_t bytes, std::uint64_t before) noexcept
{
    auto const* next = static_cast<char const*>(data);
    std::uint64_t h = before;
    while (bytes > 0) {
        std::uint64_t word = 0;
        std::size_t const part = std::min(bytes, sizeof word);
        std::memcpy(&word, next, part);
        h = (h ^ word) * 0x9e3779b97f4a7c15;
        h ^= h >> 32;
        next += part;
        bytes -= part;
    }
    return h;
}

std::uint64_t Fingerprint(KVOSrvSparseMatrix const& matrix, std::uint64_t before)
{
    KVOSrvSparseRows const rows = matrix.Rows();
    auto const order = static_cast<std::size_t>(rows.rows), entries = static_cast<std::size_t>(rows.entries);
    std::uint64_t h = Fingerprint(rows.rowStart, (order + 1) * sizeof *rows.rowStart, before);
    h = Fingerprint(rows.columnIndices, entries * sizeof *rows.columnIndices, h);
    h = Fingerprint(rows.values, entries * sizeof *rows.values, h);
    return rows.diagonal == nullptr ? h : Fingerprint(rows.diagonal, order * sizeof *rows.diagonal, h);
}
