// Chunked files: formats 1 and 6.

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "MalformedFile.h"
#include "MatrixFiles.h"
#include "SparseSymmetry.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <string>

using KVOSrvSparseSupport::AllocateArray;
using KVOSrvSparseSupport::CompressedRows;
using KVOSrvSparseSupport::HalfRows;

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorterChunks";
constexpr int kChunkBits = 17;
constexpr std::int64_t kChunkLength = std::int64_t{1} << kChunkBits; // items
constexpr std::int64_t kItemBytes = sizeof(int) + sizeof(double);

struct Header {
    std::int32_t n;            // rows and columns
    std::int32_t offDiagonals; // stored entries
    std::int32_t chunks;
    std::int32_t full; // 0: half storage
    std::int32_t chunkBits;
    std::int32_t one;
};
static_assert(sizeof(Header) == 24);

[[noreturn]] void Refuse(std::int64_t byte, std::string const& expected, std::int64_t found)
{
    throw MalformedFile::AtByte(byte, "expected " + expected + ", found " + std::to_string(found));
}

// A file without items has one chunk all the same, of padding: so divides (n - 1) / length + 1 in C.
std::int64_t ChunksFor(std::int64_t items, std::int64_t length)
{
    return std::max<std::int64_t>(1, (items + length - 1) / length);
}

Header ReadHeader(InputFile& file)
{
    RequireSize(file, sizeof(Header), "the header of a chunked file");
    Header header;
    file.ReadItems(&header, 1);
    if (header.n < 0)
        Refuse(offsetof(Header, n), "the number of rows of a chunked file", header.n);
    if (header.offDiagonals < 0)
        Refuse(offsetof(Header, offDiagonals), "the number of entries of a chunked file", header.offDiagonals);
    return header;
}

std::int64_t BytesBeforeChunks(std::int64_t n)
{
    return static_cast<std::int64_t>(sizeof(Header)) + (n + 1) * std::int64_t{sizeof(unsigned)} + n * std::int64_t{sizeof(double)};
}

// Before anything is allocated: the file is as long as its header says.
void RequireChunks(InputFile const& file, Header const& header, std::int64_t chunks, std::int64_t chunkLength)
{
    RequireSize(file, BytesBeforeChunks(header.n) + chunks * chunkLength * kItemBytes,
                "a matrix of order " + std::to_string(header.n) + " with " + std::to_string(header.offDiagonals) +
                    " entries, as its header says,");
}

// @param stored  of the entries that the header counts, after assembly
void RequireEntries(Header const& header, std::int64_t stored)
{
    if (stored > INT_MAX)
        Refuse(offsetof(Header, offDiagonals), "a number of entries of which at most 2147483647 come to be stored", header.offDiagonals);
}

// Whether the file ends right behind the last of the `items` items that the reader of half storage takes.
bool EndsBehindItems(InputFile const& file, Header const& header, std::int64_t items)
{
    std::int64_t const ofLastChunk = items % kChunkLength;
    std::int64_t const indices = ofLastChunk != 0 ? items - ofLastChunk + kChunkLength : items;
    return file.Size() == BytesBeforeChunks(header.n) + indices * std::int64_t{sizeof(int)} + items * std::int64_t{sizeof(double)};
}

// They ascend from 0 to the number of entries.
void RequireRowStarts(unsigned const* rowStart, int n, unsigned entries)
{
    unsigned before = 0;
    for (std::int64_t row = 0; row <= n; before = rowStart[row++]) {
        std::int64_t const byte = std::int64_t{sizeof(Header)} + row * std::int64_t{sizeof(unsigned)};
        if (row == 0 && rowStart[row] != 0)
            Refuse(byte, "0 as the first row start", rowStart[row]);
        if (rowStart[row] < before || rowStart[row] > entries)
            Refuse(byte, "a row start from " + std::to_string(before) + " to " + std::to_string(entries), rowStart[row]);
        if (row == n && rowStart[row] != entries)
            Refuse(byte, "the number of entries, " + std::to_string(entries) + ", as the last row start", rowStart[row]);
    }
}

bool AllBelow(int const* indices, std::int64_t count, int n)
{
    // The sign bit of one of the two terms tells an index outside; without a comparison the loop is vectorised.
    unsigned bits = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        auto const index = static_cast<unsigned>(indices[k]);
        bits |= index | (static_cast<unsigned>(n) - 1 - index);
    }
    return bits <= INT_MAX;
}

// @param place  of the columns, of which one is not below n
[[noreturn]] void RefuseColumn(int const* columns, int n, std::int64_t place)
{
    int const* bad = columns;
    while (*bad >= 0 && *bad < n)
        ++bad;
    Refuse(place + (bad - columns) * std::int64_t{sizeof(int)}, "a column from 0 to " + std::to_string(n - 1), *bad);
}

void WriteZeros(OutputFile& file, std::int64_t bytes)
{
    static constexpr char kZeros[65536] = {};
    for (std::int64_t part; bytes > 0; bytes -= part) {
        part = std::min<std::int64_t>(bytes, sizeof kZeros);
        file.WriteItems(kZeros, part);
    }
}

template<class T>
void WritePadded(OutputFile& file, T const* items, std::int64_t count)
{
    file.WriteItems(items, count);
    WriteZeros(file, (kChunkLength - count) * std::int64_t{sizeof(T)});
}

template<class NumberOfRow>
void WriteEach(OutputFile& file, int n, NumberOfRow const& numberOfRow)
{
    for (int i = 0; i < n; ++i) {
        std::int32_t const number = numberOfRow(i);
        file.WriteItems(&number, 1);
    }
}

void ReadChunk(InputFile& file, int* columnIndices, double* values, std::int64_t count, std::int64_t chunkLength, int n)
{
    // Looked at in pieces of 128 KiB, which are still in the smallest second-level cache.
    constexpr std::int64_t kPiece = 32768;
    for (std::int64_t begin = 0; begin < count; begin += kPiece) {
        std::int64_t const piece = std::min(kPiece, count - begin), place = file.Place();
        file.ReadItems(columnIndices + begin, piece);
        if (!AllBelow(columnIndices + begin, piece, n))
            RefuseColumn(columnIndices + begin, n, place);
    }
    file.Skip((chunkLength - count) * std::int64_t{sizeof(int)});
    file.ReadItems(values, count);
}

// Reads row starts, diagonal and the first `items` items; those behind them become column 0, value 0.
HalfRows ReadHalf(InputFile& file, Header const& header, std::int64_t items, std::int64_t chunkLength)
{
    int const n = header.n, offDiagonals = header.offDiagonals;
    HalfRows half{CompressedRows(n, n, offDiagonals), AllocateArray<double>(n)};
    CompressedRows& rows = half.triangle;
    file.ReadItems(rows.rowStart.get(), std::int64_t{n} + 1);
    RequireRowStarts(rows.rowStart.get(), n, static_cast<unsigned>(offDiagonals));
    file.ReadItems(half.diagonal.get(), n);
    for (std::int64_t begin = 0; begin < items; begin += chunkLength)
        ReadChunk(file, rows.columnIndices.get() + begin, rows.values.get() + begin, std::min(chunkLength, items - begin), chunkLength, n);
    std::fill(rows.columnIndices.get() + items, rows.columnIndices.get() + offDiagonals, 0);
    std::fill(rows.values.get() + items, rows.values.get() + offDiagonals, 0.0);
    return half;
}

} // namespace

HalfRows KVOSrvSparseImExPorter::ReadHalfStoredChunks(char const* path)
{
    InputFile file(path);
    Header const header = ReadHeader(file);
    int const offDiagonals = header.offDiagonals;
    RequireEntries(header, std::int64_t{header.n} + offDiagonals);
    // Deliberate: a last chunk that is full is passed over as if it were padding.
    std::int64_t const items = offDiagonals % kChunkLength != 0 ? offDiagonals : std::max<std::int64_t>(0, offDiagonals - kChunkLength);
    // Deliberate: only the two counts of the header are looked at. The padding at the end is not read and may be missing, but as a whole: a
    // file that ends in the middle of it was cut off.
    if (!EndsBehindItems(file, header, items))
        RequireChunks(file, header, ChunksFor(offDiagonals, kChunkLength), kChunkLength);
    return ReadHalf(file, header, items, kChunkLength);
}

std::variant<CompressedRows, HalfRows> KVOSrvSparseImExPorter::ReadChunks(char const* path)
{
    constexpr std::int32_t kMostChunkBits = 30; // no matrix has more items than fit into one chunk of this length

    InputFile file(path);
    Header const header = ReadHeader(file);
    if (header.chunkBits < 0 || header.chunkBits > kMostChunkBits)
        Refuse(offsetof(Header, chunkBits), "the logarithm of the chunk length (0 to 30) of a chunked file", header.chunkBits);
    std::int64_t const chunkLength = std::int64_t{1} << header.chunkBits;
    bool const noChunks = header.offDiagonals == 0 && header.chunks == 0;
    std::int64_t const chunks = ChunksFor(header.offDiagonals, chunkLength);
    if (header.chunks != chunks && !noChunks)
        Refuse(offsetof(Header, chunks),
               "the number of chunks, " + std::to_string(chunks) + " for " + std::to_string(header.offDiagonals) + " entries",
               header.chunks);
    RequireChunks(file, header, header.chunks, chunkLength);

    if (header.full == 0)
        return ReadHalf(file, header, header.offDiagonals, chunkLength);
    RequireEntries(header, header.n + std::int64_t{2} * header.offDiagonals);
    return KVOSrvSparseSupport::InFull(ReadHalf(file, header, header.offDiagonals, chunkLength));
}

void KVOSrvSparseImExPorter::WriteChunks(KVOSrvSparseRows const& rows, char const* path)
{
    if (rows.diagonal == nullptr)
        KVOSrvMtxNoUnsymmetric().Throw(kSource, __LINE__);

    // Deliberate: not truncated, an existing longer file keeps its tail.
    OutputFile file(path, OutputFile::Existing::kOverwrite, 0644);
    int const n = rows.rows;
    std::int64_t const items = rows.entries, chunks = ChunksFor(items, kChunkLength);
    Header const header{n, rows.entries, static_cast<std::int32_t>(chunks), 0, kChunkBits, 1};
    file.WriteItems(&header, 1);
    file.WriteItems(rows.rowStart, std::int64_t{n} + 1);
    file.WriteItems(rows.diagonal, n);
    for (std::int64_t chunk = 0; chunk < chunks; ++chunk) {
        std::int64_t const begin = chunk * kChunkLength, count = std::min(kChunkLength, items - begin);
        WritePadded(file, rows.columnIndices + begin, count);
        WritePadded(file, rows.values + begin, count);
    }
    // The pattern once more, with the weight 1 and the number of every row.
    file.WriteItems(&n, 1);
    file.WriteItems(rows.rowStart, std::int64_t{n} + 1);
    file.WriteItems(rows.columnIndices, items);
    WriteEach(file, n, [](int) { return 1; });
    WriteEach(file, n, [](int row) { return row; });
    file.Close();
}
