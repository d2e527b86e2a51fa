#include "SparseOracle.h"

constexpr std::size_t kChunk = 131072;

using KVOSrvSparseBinaryFiles = SparseFilesTest;

// What follows the chunks in an exported file.
static std::string Trailer(Half const& half)
{
    std::string bytes = Bytes(half.Size());
    for (unsigned const start : half.RowStart())
        bytes += Bytes(start);
    for (auto const& row : half.rows)
        for (auto const& item : row)
            bytes += Bytes(item.first);
    for (int k = 0; k < 2 * half.Size(); ++k)
        bytes += Bytes(k < half.Size() ? 1 : k - half.Size());
    return bytes;
}

// The counts of items lie around the ends of chunks. The general reader gives the matrix back; that of half storage counts the diagonal in,
// looks at two words of the header only, and takes a last chunk that is full for padding.
TEST_F(KVOSrvSparseBinaryFiles, WritesChunksAndReadsThemBack)
{
    for (std::size_t const items : {std::size_t{0}, std::size_t{1}, kChunk - 1, kChunk, kChunk + 3, 2 * kChunk}) {
        SCOPED_TRACE(items);
        Half half = Half::Random(items < 2 ? 3 : 800, items, 7);
        KVOSrvSparseMatrix matrix(0, 0), again(0, 0);
        Import(matrix, half.File(10), 1);

        std::string file = Export(matrix, 6);
        again.Import(m_path.c_str(), 1);

        EXPECT_TRUE(file == half.File() + Trailer(half));
        EXPECT_EQ(matrix.NumberOfNonzeros(), static_cast<int>(items));
        EXPECT_TRUE(ContentOf(again) == ContentOf(matrix));
        EXPECT_TRUE(ContentOf(again).entries == half.Entries());

        file.replace(8, 16, Bytes(-1, 77, 3, 0));
        ImportWithoutMemory(again, m_path, file, 6);
        std::size_t position = 0;
        for (auto& row : half.rows)
            for (auto& item : row)
                if (items % kChunk == 0 && position++ >= items - kChunk)
                    item = {0, 0.0};
        EXPECT_EQ(again.NumberOfNonzeros(), static_cast<int>(items) + half.Size());
        EXPECT_TRUE(ContentOf(again).entries == half.Entries());
        // The padding that this reader leaves unread may be missing as a whole.
        file.resize(half.File().size() - (items % kChunk != 0 ? (kChunk - items % kChunk) * 8 : kChunk * 12));
        ExpectRefused(file + '\0', 6);
        Import(matrix, file, 6);
        EXPECT_TRUE(ContentOf(matrix) == ContentOf(again));
        Import(matrix, Export(again, 6), 6); // counts the diagonal, but writes by the row starts
        EXPECT_EQ(matrix.NumberOfNonzeros(), again.NumberOfNonzeros());
    }
}

TEST_F(KVOSrvSparseBinaryFiles, ReadsChunksOfAnyLengthAndBothStorages)
{
    for (int const chunkBits : {0, 1, 3, 11})
        for (std::size_t const items : {0u, 1u, 7u, 8u, 9u, 16u}) {
            SCOPED_TRACE("items " + std::to_string(items) + ", bits " + std::to_string(chunkBits));
            Half const half = Half::Random(8, items, 3);
            KVOSrvSparseMatrix halfStored(0, 0), full(0, 0);
            ImportWithoutMemory(halfStored, m_path, half.File(chunkBits), 1);
            ImportWithoutMemory(full, m_path, half.File(chunkBits, 2), 1);

            std::vector<Entry> expected = half.Entries();
            EXPECT_EQ(ContentOf(halfStored).entries, expected);
            std::ranges::sort(expected);
            EXPECT_EQ(ContentOf(full), (Content{8, 8, static_cast<int>(expected.size()), expected}));
            EXPECT_EQ(halfStored.NumberOfNonzeros(), static_cast<int>(items));
            EXPECT_NO_THROW(halfStored.Export(m_path.c_str(), 6));
            EXPECT_THROW(full.Export(m_path.c_str(), 6), KVOSrvMtxNoUnsymmetric);
        }
    // A header may say that there is no chunk at all.
    std::string file = Half::Random(2, 0, 1).File(0).substr(0, 24 + 3 * 4 + 2 * 8);
    file.replace(8, 4, Bytes(0));
    KVOSrvSparseMatrix matrix(0, 0);
    EXPECT_NO_THROW(Import(matrix, file, 1));
}

TEST_F(KVOSrvSparseBinaryFiles, RefusesMalformedChunks)
{
    Half half = Half::Random(4, 5, 3);
    std::string const small = half.File(1), large = half.File();
    for (std::size_t length = 0; length < small.size(); ++length)
        ExpectRefused(small.substr(0, length), 1);
    for (std::size_t const length : {0u, 3u, 23u, 24u, 43u, 75u, 76u, 77u, 600000u, 2000000u})
        ExpectRefused(large.substr(0, std::min(length, large.size() - 1)), 6);

    // n, items, chunks, bits; first, inner and last row start; the first column.
    for (auto const& [place, word] : std::initializer_list<std::pair<std::size_t, int>>{
             {0, -1}, {0, 5},   {0, 3},  {0, INT32_MAX}, {0, INT32_MIN}, {4, -1}, {4, 4},   {4, 6},         {4, INT32_MAX},  {8, -1},
             {8, 0},  {8, 2},   {8, 4},  {8, INT32_MAX}, {16, -1},       {16, 2}, {16, 31}, {16, 63},       {16, INT32_MAX}, {24, 1},
             {28, 6}, {28, -1}, {36, 2}, {40, 4},        {40, 6},        {76, 4}, {76, -1}, {76, INT32_MIN}}) {
        SCOPED_TRACE("place " + std::to_string(place) + ", word " + std::to_string(word));
        for (int const full : {0, 1}) {
            std::string file = half.File(1, full);
            file.replace(place, 4, Bytes(word));
            ExpectRefused(file, 1);
        }
        if (place != 8 && place != 16) {
            std::string file = large;
            file.replace(place, 4, Bytes(word));
            ExpectRefused(file, 6);
        }
    }
}

static std::string DenseFile(int rows, int columns, std::vector<double> const& values)
{
    std::string bytes = Bytes(rows, columns, rows, columns);
    for (double const value : values)
        bytes += Bytes(value);
    return bytes;
}

// Shapes on both sides of the window the dense matrix passes through, also with columns longer than it. Sparse, filled and full matrices
// take different ways; so does one that is filled only from some column on.
TEST_F(KVOSrvSparseBinaryFiles, WritesAndReadsTheDenseMatrix)
{
    int const shapes[][2] = {{0, 0},     {5, 0},     {0, INT32_MAX}, {1, 1},      {3, 2},     {32768, 1},
                             {181, 182}, {70001, 3}, {1, 40000},     {524289, 2}, {17, 5000}, {2051, 140}};
    unsigned const percents[][2] = {{2, 2}, {25, 25}, {5, 95}, {100, 100}}; // before and behind that column
    std::mt19937 random(31);
    for (auto const& [rows, columns] : shapes)
        for (auto const& [percentBefore, percentBehind] : percents) {
            SCOPED_TRACE(std::to_string(rows) + " x " + std::to_string(columns) + ", % " + std::to_string(percentBehind));
            Dense dense(rows, columns);
            SparseOracle oracle{rows, columns, {}};
            for (int i = 0; i < rows; ++i)
                for (int j = 0; j < columns; ++j)
                    if (random() % 100 < (j < columns / 4 ? percentBefore : percentBehind)) {
                        dense.At(i, j) = std::normal_distribution<>()(random);
                        oracle.places.emplace_hint(oracle.places.end(), std::pair(i, j), dense.At(i, j));
                    }
            KVOSrvSparseMatrix again(0, 0);
            EXPECT_TRUE(Export(*oracle.Matrix(), 7) == DenseFile(rows, columns, dense.values));
            again.Import(m_path.c_str(), 7);
            EXPECT_TRUE(ContentOf(again) == oracle.ExpectedContent());
        }
}

TEST_F(KVOSrvSparseBinaryFiles, DropsTinyDenseElements)
{
    double const above = std::nextafter(1e-16, 1.0);
    KVOSrvSparseMatrix matrix(0, 0);
    ImportWithoutMemory(matrix, m_path, DenseFile(2, 4, {1e-17, 2e-16, 1e-16, -0.0, -2e-16, INFINITY, kNotANumber, above}), 7);
    std::vector<Entry> const kept{MakeEntry(0, 2, -2e-16), MakeEntry(1, 0, 2e-16), MakeEntry(1, 2, INFINITY), MakeEntry(1, 3, above)};
    EXPECT_EQ(ContentOf(matrix), (Content{2, 4, 4, kept}));
}

TEST_F(KVOSrvSparseBinaryFiles, RefusesMalformedDenseFiles)
{
    std::string const file = DenseFile(3, 2, {1, 2, 3, 4, 5, 6});
    for (std::size_t length = 0; length < file.size(); ++length)
        ExpectRefused(file.substr(0, length), 7);
    for (auto const& [rows, columns] :
         {std::pair(-1, 2), {3, -2}, {-3, -2}, {INT32_MAX, INT32_MAX}, {INT32_MIN, INT32_MIN}, {4, 2}, {INT32_MAX, 0}, {65536, 65536}})
        ExpectRefused(Bytes(rows, columns) + file.substr(8), 7);
}

// Only what is stored: neither the diagonal nor the mirrored triangle. The rows of the file need not be in order.
TEST_F(KVOSrvSparseBinaryFiles, WritesTheStoredTriangleDense)
{
    constexpr int kSize = 400; // several windows
    Half half(kSize);
    half.rows[0] = {{kSize - 1, 8.0}, {1, 7.0}};
    Dense dense(kSize, kSize);
    dense.At(0, kSize - 1) = 8.0;
    dense.At(0, 1) = 7.0;
    auto const matrix = HalfStored(half);
    EXPECT_TRUE(Export(*matrix, 7) == DenseFile(kSize, kSize, dense.values));
    matrix->BeginAssembly(); // no entries any more
    EXPECT_TRUE(Export(*matrix, 7) == DenseFile(kSize, kSize, Vector(dense.values.size())));
    EXPECT_THROW(matrix->Export(m_path.c_str(), 6), KVOSrvMtxNoUnsymmetric); // and no diagonal either
}

TEST_F(KVOSrvSparseBinaryFiles, KeepTheTailOfALongerFile)
{
    auto const matrix = HalfStored(Half::Random(2, 1, 1));
    for (int const format : {6, 7}) {
        std::string const file = Export(*matrix, format), longer = std::string(file.size() + 100, 'x');
        WriteFile(m_path, longer);
        matrix->Export(m_path.c_str(), format);
        EXPECT_TRUE(ReadFile(m_path) == file + longer.substr(file.size())) << format;
        EXPECT_NO_THROW(matrix->Import(m_path.c_str(), format));
    }
}

static std::string Record(std::string const& items)
{
    auto const length = static_cast<int>(items.size());
    return Bytes(length) + items + Bytes(length);
}

TEST_F(KVOSrvSparseBinaryFiles, ReadsRecordFilesOfFortran)
{
    for (char const* const program : {KVO_WRITE_RECORDS, KVO_WRITE_SPLIT_RECORDS})
        for (int const n : {0, 1, 2, 400}) {
            SCOPED_TRACE(std::string(program) + ", n " + std::to_string(n));
            ASSERT_EQ(std::system((std::string(program) + " " + m_path + " " + std::to_string(n)).c_str()), 0);
            Half expected(n);
            int items = 0;
            for (int i = 1; i <= n; ++i) {
                auto const row = static_cast<std::size_t>(i - 1);
                expected.diagonal[row] = 1001.0 * i / 7.0;
                for (int j = i + 1; j <= (i == 1 ? n : std::min(n, i + i % 4)); ++j, ++items)
                    expected.rows[row].emplace_back(j - 1, (1000.0 * i + j) / 7.0);
            }
            KVOSrvSparseMatrix matrix(0, 0);

            matrix.Import(m_path.c_str(), 0);

            EXPECT_EQ(ContentOf(matrix), (Content{n, n, items, expected.Entries()}));
        }
}

TEST_F(KVOSrvSparseBinaryFiles, RefusesMalformedRecordFiles)
{
    std::string const first = Record(Bytes(2)), row1 = Record(Bytes(2, 1, 2, 4.0, 7.0)), row2 = Record(Bytes(1, 2, 5.0));
    std::string const file = first + row1 + row2;
    KVOSrvSparseMatrix matrix(0, 0);
    ImportWithoutMemory(matrix, m_path, file, 0);
    for (std::size_t length = 0; length < file.size(); ++length)
        ExpectRefused(file.substr(0, length), 0);
    for (int const n : {-1, 3, INT32_MAX, INT32_MIN})
        ExpectRefused(Record(Bytes(n)) + row1 + row2, 0);
    for (int const m : {0, -1, 3, INT32_MAX, INT32_MIN})
        ExpectRefused(first + Record(Bytes(m, 1, 2, 4.0, 7.0)) + row2, 0);
    for (int const column : {0, 3, -1, INT32_MAX, INT32_MIN})
        ExpectRefused(first + Record(Bytes(2, 1, column, 4.0, 7.0)) + row2, 0);
    ExpectRefused(first + Record("") + row2, 0);
}
