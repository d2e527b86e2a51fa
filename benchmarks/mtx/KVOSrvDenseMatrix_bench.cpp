// Transfers of a database matrix against what they cannot beat: the same bytes moved in memory, or written to a plain file.

#include "AgainstPeer.h"
#include "ChunkedArray.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvUtilities.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace
{

constexpr int kOrder = 8192;
constexpr double kMatrixBytes = 8.0 * kOrder * kOrder;

/// How the values travel: our data path, or the transfers of the database engine.
enum class Path { Own, Engine };

struct EnginePath {
    explicit EnginePath(Path path)
    {
        if (path == Path::Engine)
            setenv("KVO_SIM_DATA_PATH", "hdf5", 1);
    }
    ~EnginePath() { unsetenv("KVO_SIM_DATA_PATH"); }
};

double Value(int i, int j)
{
    return i + static_cast<double>(j) * kOrder;
}

/// Calls run(r0, r1, c0, c1) for every block of a matrix, as its chunks follow one another.
template<class Run>
void ForEachBlock(int chunk, Run const& run)
{
    for (int c = 0; c < kOrder; c += chunk)
        for (int r = 0; r < kOrder; r += chunk)
            run(r, r + chunk - 1, c, c + chunk - 1);
}

KVOSrvMatrix Buffer(int rows, int columns)
{
    KVOSrvMatrix buffer(rows, columns, nullptr, false, false);
    buffer = 0.0; // its pages exist from here on
    return buffer;
}

void Fill(KVOSrvDenseMatrix& matrix, int chunk)
{
    KVOSrvMatrix block = Buffer(chunk, chunk);
    ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) {
        double* value = block.Values();
        for (int j = c0; j <= c1; ++j)
            for (int i = r0; i <= r1; ++i)
                *value++ = Value(i, j);
        matrix.SetValues(r0, r1, c0, c1, block);
    });
}

void Check(KVOSrvDenseMatrix const& matrix, double factor = 1.0)
{
    KVOSrvMatrix row = Buffer(1, kOrder);
    for (int i = 0; i < kOrder; i += 509) {
        matrix.GetRows(i, i, row);
        for (int j = 0; j < kOrder; ++j)
            if (row.Values()[j] != factor * Value(i, j))
                throw std::runtime_error("wrong result");
    }
}

std::unique_ptr<KVOSrvScratchDenseMatrix> Filled(int chunk, Path path = Path::Own)
{
    EnginePath const engine(path);
    auto matrix = std::make_unique<KVOSrvScratchDenseMatrix>(kOrder, kOrder, chunk, chunk);
    Fill(*matrix, chunk);
    Check(*matrix);
    return matrix;
}

void SetRate(benchmark::State& state, double bytes)
{
    state.counters["GB/s"] = benchmark::Counter(bytes * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

void ReadBlocks(benchmark::State& state, Path path)
{
    auto const chunk = static_cast<int>(state.range(0));
    auto const matrix = Filled(chunk, path);
    ChunkedArray array(kOrder, chunk, Value);
    KVOSrvMatrix block = Buffer(chunk, chunk);
    AgainstPeer(
        state, [&] { ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) { matrix->GetValues(r0, r1, c0, c1, block); }); },
        [&] {
            ForEachBlock(chunk, [&](int r0, int, int c0, int) {
                std::memcpy(block.Values(), &array.At(r0, c0),
                            sizeof(double) * static_cast<std::size_t>(chunk) * static_cast<std::size_t>(chunk));
                benchmark::ClobberMemory();
            });
        });
    SetRate(state, kMatrixBytes);
}

void OverwriteBlocks(benchmark::State& state, Path path)
{
    auto const chunk = static_cast<int>(state.range(0));
    auto const matrix = Filled(chunk, path);
    ChunkedArray array(kOrder, chunk, Value);
    KVOSrvMatrix const block = Buffer(chunk, chunk);
    AgainstPeer(
        state, [&] { ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) { matrix->SetValues(r0, r1, c0, c1, block); }); },
        [&] {
            ForEachBlock(chunk, [&](int r0, int, int c0, int) {
                std::memcpy(&array.At(r0, c0), block.Values(),
                            sizeof(double) * static_cast<std::size_t>(chunk) * static_cast<std::size_t>(chunk));
                benchmark::ClobberMemory();
            });
        });
    SetRate(state, kMatrixBytes);
}

// The making and removing of the files is not timed on either side.
void FirstWriteOfBlocks(benchmark::State& state, Path path)
{
    auto const chunk = static_cast<int>(state.range(0));
    KVOSrvMatrix const block = Buffer(chunk, chunk);
    std::size_t const blockBytes = sizeof(double) * static_cast<std::size_t>(chunk) * static_cast<std::size_t>(chunk);
    std::unique_ptr<KVOSrvScratchDenseMatrix> matrix;
    std::string const plainPath = std::filesystem::temp_directory_path() / ("kvo-bench-" + std::to_string(getpid()));
    int plain = -1;
    auto const write = [&](off_t offset) {
        if (pwrite(plain, block.Values(), blockBytes, offset) != static_cast<ssize_t>(blockBytes))
            throw std::runtime_error("cannot write " + plainPath);
    };
    AgainstPeer(
        state, [&] { ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) { matrix->SetValues(r0, r1, c0, c1, block); }); },
        [&] {
            off_t offset = 0;
            ForEachBlock(chunk, [&](int, int, int, int) {
                write(offset);
                offset += static_cast<off_t>(blockBytes);
            });
        },
        [&] {
            EnginePath const engine(path);
            matrix.reset();
            matrix = std::make_unique<KVOSrvScratchDenseMatrix>(kOrder, kOrder, chunk, chunk);
            if (plain >= 0)
                close(plain);
            plain = open(plainPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            unlink(plainPath.c_str());
        });
    close(plain);
    SetRate(state, kMatrixBytes);
}

/// What is taken out of a matrix.
enum class Part { Rows, Column, Window };

/// Calls run(r0, r1, c0, c1) for parts all over a matrix: each 100 rows, one column, or 300 x 300 around a point where four chunks meet.
template<class Run>
void ForEachPart(Part part, int chunk, Run const& run)
{
    constexpr int kRowStep = 453, kColumnStep = 37, kSide = 300;
    switch (part) {
    case Part::Rows:
        for (int r = 0; r + 100 <= kOrder; r += kRowStep)
            run(r, r + 99, 0, kOrder - 1);
        break;
    case Part::Column:
        for (int c = 0; c < kOrder; c += kColumnStep)
            run(0, kOrder - 1, c, c);
        break;
    case Part::Window:
        for (int c = chunk - kSide / 2; c + kSide <= kOrder; c += chunk)
            for (int r = chunk - kSide / 2; r + kSide <= kOrder; r += chunk)
                run(r, r + kSide - 1, c, c + kSide - 1);
        break;
    }
}

void Partial(benchmark::State& state, Part part, bool write, Path path)
{
    auto const chunk = static_cast<int>(state.range(0));
    auto const matrix = Filled(chunk, path);
    ChunkedArray array(kOrder, chunk, Value);
    KVOSrvMatrix buffer = Buffer(100, kOrder);
    double bytes = 0.0;
    ForEachPart(part, chunk, [&](int r0, int r1, int c0, int c1) { bytes += 8.0 * (r1 - r0 + 1) * (c1 - c0 + 1); });
    AgainstPeer(
        state,
        [&] {
            ForEachPart(part, chunk, [&](int r0, int r1, int c0, int c1) {
                write ? matrix->SetValues(r0, r1, c0, c1, buffer) : matrix->GetValues(r0, r1, c0, c1, buffer);
            });
        },
        [&] {
            ForEachPart(part, chunk, [&](int r0, int r1, int c0, int c1) {
                array.ForEachRun(r0, r1, c0, c1, buffer.Values(), [write](double* inArray, double* inBuffer, std::size_t runBytes) {
                    write ? std::memcpy(inArray, inBuffer, runBytes) : std::memcpy(inBuffer, inArray, runBytes);
                });
                benchmark::ClobberMemory();
            });
        });
    SetRate(state, bytes);
}

/// What an operation on whole matrices must transfer, block by block.
struct Transfers {
    int reads, otherReads, writes;
};

void Whole(benchmark::State& state, Transfers const& transfers,
           std::function<void(KVOSrvDenseMatrix&, KVOSrvDenseMatrix&)> const& operation)
{
    auto const chunk = static_cast<int>(state.range(0));
    auto const matrix = Filled(chunk), other = Filled(chunk);
    KVOSrvMatrix block = Buffer(chunk, chunk);
    AgainstPeer(
        state, [&] { operation(*matrix, *other); },
        [&] {
            ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) {
                for (int k = 0; k < transfers.otherReads; ++k)
                    other->GetValues(r0, r1, c0, c1, block);
                for (int k = 0; k < transfers.reads; ++k)
                    matrix->GetValues(r0, r1, c0, c1, block);
                for (int k = 0; k < transfers.writes; ++k)
                    matrix->SetValues(r0, r1, c0, c1, block);
            });
        });
    SetRate(state, kMatrixBytes * (transfers.reads + transfers.otherReads + transfers.writes));
}

void CopyValues(benchmark::State& state)
{
    Whole(state, {0, 1, 1}, [](KVOSrvDenseMatrix& matrix, KVOSrvDenseMatrix& other) { matrix.CopyValues(&other); });
}

void AddAssign(benchmark::State& state)
{
    Whole(state, {1, 1, 1}, [](KVOSrvDenseMatrix& matrix, KVOSrvDenseMatrix& other) { matrix.AddAssign(other); });
}

void Scale(benchmark::State& state)
{
    Whole(state, {1, 0, 1}, [](KVOSrvDenseMatrix& matrix, KVOSrvDenseMatrix&) { matrix.Scale(-1.0); });
}

void IsSymmetric(benchmark::State& state)
{
    auto const chunk = static_cast<int>(state.range(0));
    KVOSrvScratchDenseMatrix matrix(kOrder, kOrder, chunk, chunk);
    KVOSrvMatrix block = Buffer(chunk, chunk);
    ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) {
        double* value = block.Values();
        for (int j = c0; j <= c1; ++j)
            for (int i = r0; i <= r1; ++i)
                *value++ = static_cast<double>(i) * j;
        matrix.SetValues(r0, r1, c0, c1, block);
    });
    if (!matrix.IsSymmetric())
        throw std::runtime_error("wrong result");
    KVOSrvMatrix mirror = Buffer(chunk, chunk);
    AgainstPeer(
        state, [&] { benchmark::DoNotOptimize(matrix.IsSymmetric()); },
        [&] {
            ForEachBlock(chunk, [&](int r0, int r1, int c0, int c1) {
                if (r0 > c0)
                    return;
                matrix.GetValues(r0, r1, c0, c1, block);
                if (r0 < c0)
                    matrix.GetValues(c0, c1, r0, r1, mirror);
            });
        });
    SetRate(state, kMatrixBytes);
}

void Configure(benchmark::internal::Benchmark* bench)
{
    bench->Arg(512)->Arg(1024)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(ReadBlocks, own, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(ReadBlocks, engine, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(OverwriteBlocks, own, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(OverwriteBlocks, engine, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(FirstWriteOfBlocks, own, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(FirstWriteOfBlocks, engine, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, rows_read_own, Part::Rows, false, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, rows_read_engine, Part::Rows, false, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, rows_write_own, Part::Rows, true, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, rows_write_engine, Part::Rows, true, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, column_read_own, Part::Column, false, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, column_read_engine, Part::Column, false, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, column_write_own, Part::Column, true, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, column_write_engine, Part::Column, true, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, window_read_own, Part::Window, false, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, window_read_engine, Part::Window, false, Path::Engine)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, window_write_own, Part::Window, true, Path::Own)->Apply(Configure);
BENCHMARK_CAPTURE(Partial, window_write_engine, Part::Window, true, Path::Engine)->Apply(Configure);
BENCHMARK(CopyValues)->Apply(Configure);
BENCHMARK(AddAssign)->Apply(Configure);
BENCHMARK(Scale)->Apply(Configure);
BENCHMARK(IsSymmetric)->Apply(Configure);

} // namespace

int main(int argc, char** argv)
{
    // Scratch files go where the plain files of the peers go.
    KVOSrvUtilities::SetTempDirectory(cow_String(std::filesystem::temp_directory_path().c_str()));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
