#include "Diagnosis.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

std::int64_t SizeOf(std::string const& path)
{
    return static_cast<std::int64_t>(std::filesystem::file_size(path));
}

std::string At(std::int64_t byte, std::string const& text)
{
    return "byte " + std::to_string(byte) + ": " + text;
}

std::string Cut(std::int64_t size, std::int64_t needed, std::string const& of)
{
    return At(size, "the file ends here; " + of + " takes " + std::to_string(needed) + " bytes");
}

std::int64_t ChunksFor(std::int64_t items, std::int64_t length)
{
    return std::max<std::int64_t>(1, (items + length - 1) / length);
}

struct ChunkedHeader {
    std::int32_t n, entries, chunks, full, chunkBits, one;
};

std::string DiagnoseRowStarts(std::ifstream& file, ChunkedHeader const& header)
{
    std::uint32_t before = 0;
    for (std::int64_t row = 0; row <= header.n; ++row) {
        std::uint32_t start = 0;
        file.read(reinterpret_cast<char*>(&start), sizeof start);
        std::int64_t const byte = std::int64_t{sizeof header} + 4 * row;
        if (row == 0 && start != 0)
            return At(byte, "expected 0 as the first row start, found " + std::to_string(start));
        if (start < before || start > static_cast<std::uint32_t>(header.entries))
            return At(byte, "expected a row start from " + std::to_string(before) + " to " + std::to_string(header.entries) + ", found " +
                                std::to_string(start));
        before = start;
    }
    if (before != static_cast<std::uint32_t>(header.entries))
        return At(std::int64_t{sizeof header} + 4 * std::int64_t{header.n}, "expected the number of entries, " +
                                                                                std::to_string(header.entries) +
                                                                                ", as the last row start, found " + std::to_string(before));
    return {};
}

std::string DiagnoseColumns(std::ifstream& file, ChunkedHeader const& header, std::int64_t chunkLength)
{
    std::int64_t const chunkBytes = 12 * chunkLength;
    std::int64_t byte = std::int64_t{sizeof header} + 4 * (std::int64_t{header.n} + 1) + 8 * std::int64_t{header.n};
    for (std::int64_t first = 0; first < header.entries; first += chunkLength, byte += chunkBytes) {
        std::vector<std::int32_t> columns(static_cast<std::size_t>(std::min(chunkLength, header.entries - first)));
        file.seekg(byte);
        file.read(reinterpret_cast<char*>(columns.data()), static_cast<std::streamsize>(4 * columns.size()));
        auto const bad = std::ranges::find_if(columns, [&](std::int32_t column) { return column < 0 || column >= header.n; });
        if (bad != columns.end())
            return At(byte + 4 * (bad - columns.begin()),
                      "expected a column from 0 to " + std::to_string(header.n - 1) + ", found " + std::to_string(*bad));
    }
    return {};
}

} // namespace

std::string DiagnoseChunks(std::string const& path, bool byHeader)
{
    constexpr std::int32_t kChunkBits = 17; // what format 6 takes for granted
    constexpr std::int32_t kMostChunkBits = 30;
    std::int64_t const size = SizeOf(path);
    ChunkedHeader header{};
    if (size < std::int64_t{sizeof header})
        return Cut(size, sizeof header, "the header of a chunked file");
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    if (header.n < 0)
        return At(0, "expected the number of rows, found " + std::to_string(header.n) + "; is this a chunked file?");
    if (header.entries < 0)
        return At(4, "expected the number of entries, found " + std::to_string(header.entries) + "; is this a chunked file?");
    if (byHeader && (header.chunkBits < 0 || header.chunkBits > kMostChunkBits))
        return At(16, "expected the logarithm of the chunk length (0 to 30), found " + std::to_string(header.chunkBits) +
                          "; is this a chunked file?");
    std::int64_t const length = std::int64_t{1} << (byHeader ? header.chunkBits : kChunkBits);
    std::int64_t const chunks = ChunksFor(header.entries, length);
    if (byHeader && header.chunks != chunks && !(header.entries == 0 && header.chunks == 0))
        return At(8, "expected the number of chunks, " + std::to_string(chunks) + " for " + std::to_string(header.entries) +
                         " entries, found " + std::to_string(header.chunks));
    std::int64_t const needed = std::int64_t{sizeof header} + 4 * (std::int64_t{header.n} + 1) + 8 * std::int64_t{header.n} +
                                12 * length * (byHeader ? header.chunks : chunks);
    if (size < needed)
        return Cut(size, needed,
                   "a matrix of order " + std::to_string(header.n) + " with " + std::to_string(header.entries) +
                       " entries, as its header says,");
    std::string const found = DiagnoseRowStarts(file, header);
    return found.empty() ? DiagnoseColumns(file, header, length) : found;
}

std::string DiagnoseDense(std::string const& path)
{
    std::int64_t const size = SizeOf(path);
    std::int32_t header[4] = {};
    if (size < std::int64_t{sizeof header})
        return Cut(size, sizeof header, "the header of a dense file");
    std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(header), sizeof header);
    for (int k : {0, 1})
        if (header[k] < 0)
            return At(4 * k, std::string("expected the number of ") + (k == 0 ? "rows" : "columns") + ", found " +
                                 std::to_string(header[k]) + "; is this a dense file?");
    std::int64_t const values = std::int64_t{header[0]} * header[1];
    if ((size - std::int64_t{sizeof header}) / 8 < values)
        return Cut(size, 8 * values + std::int64_t{sizeof header},
                   "a matrix of " + std::to_string(header[0]) + " x " + std::to_string(header[1]) + ", as its header says,");
    return {};
}
