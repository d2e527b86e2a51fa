#include "AgainstPeer.h"
#include "BenchmarkFolder.h"
#include "BrickModel.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

// Matrix files beside the C library's loops and beside raw reads and writes of the same bytes, all on files in the page cache.

namespace
{

BenchmarkFolder const s_folder;

/// The brick model, 65 856 rows and 5.0 million entries with full mantissas, as it comes, and its files.
struct Model {
    Model() : rows(BrickModel(27, 27, 27).Assembled()), matrix(rows.rows, rows.rows)
    {
        std::mt19937_64 random(7);
        std::uniform_real_distribution<> factor(0.9, 1.1);
        for (int i = 0; i < rows.rows; ++i)
            for (auto k = static_cast<std::size_t>(rows.start[static_cast<std::size_t>(i)]);
                 k < static_cast<std::size_t>(rows.start[static_cast<std::size_t>(i) + 1]); ++k) {
                rows.values[k] = (rows.values[k] + 1e-4) * factor(random);
                matrix.AddData(static_cast<unsigned>(i), static_cast<unsigned>(rows.columns[k]), rows.values[k]);
            }
        matrix.EndAssembly();
        matrix.Export(text.c_str(), 3);
        WriteHalf();
        half.Import(chunks.c_str(), 1);
    }

    // Every entry of the matrix as an off-diagonal one: the contents don't matter, and there are enough of them.
    void WriteHalf() const
    {
        constexpr std::size_t kChunk = 131072;
        std::size_t const items = rows.columns.size(), count = (items - 1) / kChunk + 1;
        std::ofstream file(chunks, std::ios::binary);
        auto const write = [&](auto const* data, std::size_t length) {
            file.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(length * sizeof *data));
        };
        int const header[] = {rows.rows, static_cast<int>(items), static_cast<int>(count), 0, 17, 1};
        write(header, 6);
        write(rows.start.data(), rows.start.size());
        write(rows.values.data(), static_cast<std::size_t>(rows.rows));
        std::vector<int> columns = rows.columns;
        std::vector<double> values = rows.values;
        columns.resize(count * kChunk);
        values.resize(count * kChunk);
        for (std::size_t begin = 0; begin < columns.size(); begin += kChunk) {
            write(columns.data() + begin, kChunk);
            write(values.data() + begin, kChunk);
        }
        ThrowUnless(bool(file.flush()), "cannot write the model's file");
    }

    BrickRows rows;
    KVOSrvSparseMatrix matrix;
    KVOSrvSparseMatrix half{0, 0};
    std::string const text = s_folder / "text", chunks = s_folder / "chunks";
};

Model const& TheModel()
{
    static Model const model;
    return model;
}

std::vector<KVOSrvSparseMatrixEntry> EntriesOf(KVOSrvSparseMatrix const& matrix)
{
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    return {entries.get(), entries.get() + count};
}

void RequireEqual(KVOSrvSparseMatrix const& a, KVOSrvSparseMatrix const& b)
{
    auto const same = [](KVOSrvSparseMatrixEntry const& x, KVOSrvSparseMatrixEntry const& y) {
        return x.row == y.row && x.column == y.column && std::bit_cast<std::uint64_t>(x.value) == std::bit_cast<std::uint64_t>(y.value);
    };
    std::vector<KVOSrvSparseMatrixEntry> const left = EntriesOf(a), right = EntriesOf(b);
    ThrowUnless(std::equal(left.begin(), left.end(), right.begin(), right.end(), same), "the matrices differ");
}

std::vector<KVOSrvSparseMatrixEntry> ScanWithFscanf(std::string const& path)
{
    std::vector<KVOSrvSparseMatrixEntry> entries;
    std::FILE* const file = std::fopen(path.c_str(), "r");
    int row, column;
    double value;
    while (std::fscanf(file, "%d %d %lf", &row, &column, &value) == 3)
        entries.push_back({static_cast<unsigned>(row - 1), static_cast<unsigned>(column - 1), value});
    std::fclose(file);
    return entries;
}

std::size_t RawRead(std::string const& path, char* target, std::size_t piece)
{
    int const descriptor = open(path.c_str(), O_RDONLY);
    std::size_t bytes = 0;
    for (ssize_t got; (got = read(descriptor, target + bytes, piece)) > 0;)
        bytes += static_cast<std::size_t>(got);
    close(descriptor);
    return bytes;
}

// Reads the whole file and every number in it, and keeps none.
void ScanWithFromChars(std::string const& path, std::vector<char>& text)
{
    char const* next = text.data();
    char const* const end = next + RawRead(path, text.data(), text.size());
    int row = 0, column = 0, largest = 0;
    double value = 0, sum = 0;
    while (next < end) {
        next = std::from_chars(next, end, row).ptr + 1;
        next = std::from_chars(next, end, column).ptr + 1;
        next = std::from_chars(next, end, value).ptr + 1;
        largest = std::max({largest, row, column});
        sum += value;
    }
    benchmark::DoNotOptimize(largest);
    benchmark::DoNotOptimize(sum);
}

void ImportTextAgainstFscanf(benchmark::State& state)
{
    Model const& model = TheModel();
    KVOSrvSparseMatrix matrix(0, 0);
    matrix.Import(model.text.c_str(), 3);
    std::vector<KVOSrvSparseMatrixEntry> const expected = ScanWithFscanf(model.text);
    ThrowUnless(EntriesOf(matrix).size() == expected.size() && EntriesOf(matrix).back().value == expected.back().value, "wrong import");
    AgainstPeer(
        state, [&] { matrix.Import(model.text.c_str(), 3); },
        [&] {
            std::vector<KVOSrvSparseMatrixEntry> const entries = ScanWithFscanf(model.text);
            benchmark::DoNotOptimize(entries.data());
        });
}

void AgainstFromChars(benchmark::State& state, std::string const& path)
{
    KVOSrvSparseMatrix matrix(0, 0);
    std::vector<char> text(std::filesystem::file_size(path) + 1);
    matrix.Import(path.c_str(), 3);
    ThrowUnless(EntriesOf(matrix).size() == TheModel().rows.columns.size(), "wrong import");
    AgainstPeer(
        state, [&] { matrix.Import(path.c_str(), 3); }, [&] { ScanWithFromChars(path, text); });
}

void ImportTextAgainstFromChars(benchmark::State& state)
{
    AgainstFromChars(state, TheModel().text);
}

// The lines in random order: the entries have to be sorted.
void ImportShuffledTextAgainstFromChars(benchmark::State& state)
{
    std::vector<std::string> lines;
    std::ifstream text(TheModel().text);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    std::shuffle(lines.begin(), lines.end(), std::mt19937(11));
    std::string const path = s_folder / "shuffled";
    std::ofstream shuffled(path);
    for (std::string const& line : lines)
        shuffled << line << '\n';
    ThrowUnless(bool(shuffled.flush()), "cannot write the shuffled file");
    lines = {};
    AgainstFromChars(state, path);
    std::filesystem::remove(path);
}

void PrintWithFprintf(BrickRows const& rows, std::string const& path)
{
    std::FILE* const file = std::fopen(path.c_str(), "w");
    for (std::size_t i = 0; i < static_cast<std::size_t>(rows.rows); ++i)
        for (auto k = static_cast<std::size_t>(rows.start[i]); k < static_cast<std::size_t>(rows.start[i + 1]); ++k)
            std::fprintf(file, "%ld %ld %18.15le\n", static_cast<long>(i) + 1, rows.columns[k] + 1L, rows.values[k]);
    std::fclose(file);
}

std::string Content(std::string const& path)
{
    std::string text(std::filesystem::file_size(path), ' ');
    RawRead(path, text.data(), text.size());
    return text;
}

void ExportTextAgainstFprintf(benchmark::State& state)
{
    Model const& model = TheModel();
    std::string const path = s_folder / "exported", peer = s_folder / "printed";
    PrintWithFprintf(model.rows, peer);
    ThrowUnless(Content(model.text) == Content(peer), "the export differs from fprintf's output");
    AgainstPeer(
        state, [&] { model.matrix.Export(path.c_str(), 3); }, [&] { PrintWithFprintf(model.rows, peer); });
    std::filesystem::remove(path);
    std::filesystem::remove(peer);
}

// The peer reads the same bytes at one go into memory of its own. Either takes fresh memory: what the turn before has left to the allocator
// is given back.
void AgainstRawRead(benchmark::State& state, std::string const& path, int format, KVOSrvSparseMatrix const& expected)
{
    std::size_t const bytes = std::filesystem::file_size(path);
    {
        KVOSrvSparseMatrix matrix(0, 0);
        matrix.Import(path.c_str(), format);
        RequireEqual(matrix, expected);
    }
    AgainstPeer(
        state,
        [&] {
            KVOSrvSparseMatrix matrix(0, 0);
            matrix.Import(path.c_str(), format);
        },
        [&] {
            LargePages<char> const memory(bytes);
            RawRead(path, memory.Data(), bytes);
            benchmark::DoNotOptimize(memory.Data());
        },
        KVOSrvUtilities::ReleaseMemory);
    state.counters["GB/s"] = benchmark::Counter(static_cast<double>(bytes) * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

// The peer writes the same bytes, which are ready in memory, at one go over a file of the same length.
void AgainstRawWrite(benchmark::State& state, KVOSrvSparseMatrix const& matrix, int format)
{
    std::string const path = s_folder / "exported", peer = s_folder / "raw";
    matrix.Export(path.c_str(), format);
    std::string const bytes = Content(path);
    auto const rawWrite = [&] {
        int const descriptor = open(peer.c_str(), O_WRONLY | O_CREAT, 0644);
        ThrowUnless(write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a short write");
        close(descriptor);
    };
    rawWrite();
    AgainstPeer(
        state, [&] { matrix.Export(path.c_str(), format); }, rawWrite);
    state.counters["GB/s"] = benchmark::Counter(static_cast<double>(bytes.size()) * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
    std::filesystem::remove(path);
    std::filesystem::remove(peer);
}

void ImportHalfStoredChunks(benchmark::State& state)
{
    AgainstRawRead(state, TheModel().chunks, 6, TheModel().half);
}
void ImportChunks(benchmark::State& state)
{
    AgainstRawRead(state, TheModel().chunks, 1, TheModel().half);
}
void ExportChunks(benchmark::State& state)
{
    AgainstRawWrite(state, TheModel().half, 6);
}

// 4096 x 4096, one element in `state.range(0)` stored.
struct DenseModel {
    explicit DenseModel(std::int64_t oneIn) : matrix(kSize, kSize)
    {
        std::mt19937 random(3);
        for (unsigned i = 0; i < kSize; ++i)
            for (unsigned j = 0; j < kSize; ++j)
                if (random() % static_cast<unsigned>(oneIn) == 0)
                    matrix.AddData(i, j, 1.0 + static_cast<double>(random()));
        matrix.EndAssembly();
    }
    static constexpr int kSize = 4096;
    KVOSrvSparseMatrix matrix;
};

void ImportDense(benchmark::State& state)
{
    DenseModel const model(state.range(0));
    std::string const path = s_folder / "dense";
    model.matrix.Export(path.c_str(), 7);
    AgainstRawRead(state, path, 7, model.matrix);
}

void ExportDense(benchmark::State& state)
{
    AgainstRawWrite(state, DenseModel(state.range(0)).matrix, 7);
}

#define KVO_FILE_CASE(Case) BENCHMARK(Case)->UseManualTime()->Unit(benchmark::kMillisecond)

KVO_FILE_CASE(ImportTextAgainstFscanf);
KVO_FILE_CASE(ImportTextAgainstFromChars);
KVO_FILE_CASE(ImportShuffledTextAgainstFromChars);
KVO_FILE_CASE(ExportTextAgainstFprintf);
KVO_FILE_CASE(ImportHalfStoredChunks);
KVO_FILE_CASE(ImportChunks);
KVO_FILE_CASE(ExportChunks);
KVO_FILE_CASE(ImportDense)->Arg(100)->Arg(4)->Arg(1);
KVO_FILE_CASE(ExportDense)->Arg(100)->Arg(4)->Arg(1);

} // namespace

BENCHMARK_MAIN();
