#include "interleaved.h"

#include <algorithm>
#include <bitset>

namespace
{

constexpr std::ptrdiff_t kMostVectors = 8;
constexpr std::ptrdiff_t kLeastRows = 64, kMostRows = 256; // of a strip: its columns, the chunks below, are of 512 bytes and more
constexpr std::ptrdiff_t kMostChunks = blac::kMostInterleavedRows / kMostRows * kMostVectors;

// One strip's rows to columns.
void Transpose(double* strip, std::ptrdiff_t rows, std::ptrdiff_t vectors, double* scratch) noexcept
{
    std::copy_n(strip, rows * vectors, scratch);
    for (std::ptrdiff_t j = 0; j < vectors; ++j)
        for (std::ptrdiff_t i = 0; i < rows; ++i)
            strip[j * rows + i] = scratch[i * vectors + j];
}

// Chunk j of strip b becomes chunk b of column j. Every cycle of that permutation is followed once.
void Permute(double* values, std::ptrdiff_t strips, std::ptrdiff_t vectors, std::ptrdiff_t chunk, double* scratch) noexcept
{
    std::bitset<static_cast<std::size_t>(kMostChunks)> placed;
    auto const copy = [chunk](double const* from, double* to) { std::copy_n(from, chunk, to); };
    auto const source = [strips, vectors](std::ptrdiff_t place) { return place % strips * vectors + place / strips; };
    for (std::ptrdiff_t start = 0; start < strips * vectors; ++start) {
        if (placed[static_cast<std::size_t>(start)])
            continue;
        std::ptrdiff_t place = start;
        copy(values + start * chunk, scratch);
        for (; source(place) != start; place = source(place)) {
            copy(values + source(place) * chunk, values + place * chunk);
            placed.set(static_cast<std::size_t>(place));
        }
        copy(scratch, values + place * chunk);
        placed.set(static_cast<std::size_t>(place));
    }
}

} // namespace

void blac::Deinterleave(double* values, std::ptrdiff_t rows, int vectors) noexcept
{
    double scratch[kMostRows * kMostVectors];
    std::ptrdiff_t strip = kLeastRows;
    while (rows / strip * vectors > kMostChunks)
        strip *= 2;
    std::ptrdiff_t const strips = rows / strip, whole = strips * strip, left = rows - whole;
    for (std::ptrdiff_t b = 0; b < strips; ++b)
        Transpose(values + b * strip * vectors, strip, vectors, scratch);
    Permute(values, strips, vectors, strip, scratch);

    std::copy_n(values + whole * vectors, left * vectors, scratch);
    for (std::ptrdiff_t j = vectors - 1; j >= 0; --j) {
        if (j > 0 && left > 0)
            std::copy_backward(values + j * whole, values + (j + 1) * whole, values + j * rows + whole);
        for (std::ptrdiff_t i = 0; i < left; ++i)
            values[j * rows + whole + i] = scratch[i * vectors + j];
    }
}
