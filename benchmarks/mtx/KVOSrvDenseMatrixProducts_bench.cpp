// Products of stored matrices against DGEMM of the same operands in memory, and, where they transfer more than their left operand, against
// DGEMM with these transfers. Times; in threads of the provider's own, one with OPENBLAS_NUM_THREADS=1.

#include "AgainstPeer.h"
#include "KVOFortran.h"
#include "KVOSrvDenseMatrixSet.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvProductMemory.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr int kRows = 8192, kColumns = 4096, kChunk = 512;

void Check(bool holds)
{
    if (!holds)
        throw std::runtime_error("wrong result");
}

// The scratch files go to a folder of their own, so that they can be found.
std::filesystem::path const& Folder()
{
    struct Fresh {
        Fresh()
        {
            std::string pattern = (std::filesystem::temp_directory_path() / "kvo-bench-XXXXXX").string();
            Check(mkdtemp(pattern.data()) != nullptr);
            path = pattern;
            KVOSrvUtilities::SetTempDirectory(cow_String(pattern.c_str()));
        }
        ~Fresh()
        {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        std::filesystem::path path;
    };
    static Fresh const s_folder;
    return s_folder.path;
}

KVOSrvMatrix Random(int rows, int columns)
{
    static std::minstd_rand s_random(1);
    KVOSrvMatrix matrix(rows, columns, nullptr, false, false);
    std::generate_n(matrix.Values(), std::int64_t{rows} * columns, [] { return 1e-9 * static_cast<double>(s_random()) - 1.0; });
    return matrix;
}

KVOSrvMatrix Zeros(int rows, int columns)
{
    KVOSrvMatrix matrix(rows, columns, nullptr, false, false);
    matrix = 0.0;
    return matrix;
}

std::unique_ptr<KVOSrvScratchDenseMatrix> Store(KVOSrvMatrix const& values, int chunk = kChunk)
{
    Folder();
    auto matrix = std::make_unique<KVOSrvScratchDenseMatrix>(values.NumberOfRows(), values.NumberOfColumns(), chunk, chunk);
    matrix->SetRows(0, values.NumberOfRows() - 1, values);
    return matrix;
}

std::unique_ptr<KVOSrvScratchDenseMatrix> StoreZeros(int rows, int columns, int chunk = kChunk)
{
    return Store(Zeros(rows, columns), chunk);
}

void Gemm(char const* transA, KVOSrvMatrix const& a, KVOSrvMatrix const& b, double beta, KVOSrvMatrix& c)
{
    int const m = c.NumberOfRows(), n = b.NumberOfColumns(), k = b.NumberOfRows(), lda = a.NumberOfRows();
    double const one = 1.0;
    BLAC_DGEMM(transA, "N", &m, &n, &k, &one, a.Values(), &lda, b.Values(), &k, &beta, c.Values(), &m);
}

void CheckEqual(KVOSrvMatrix const& a, KVOSrvMatrix const& b, int inner)
{
    for (std::int64_t k = 0; k < std::int64_t{a.NumberOfRows()} * a.NumberOfColumns(); ++k)
        Check(std::abs(a.Values()[k] - b.Values()[k]) <= 1e-15 * inner * inner);
}

// What the cases share: A in memory and stored.
struct Operands {
    static Operands const& Get()
    {
        static Operands const s_operands;
        return s_operands;
    }
    KVOSrvMatrix a = Random(kRows, kColumns);
    std::unique_ptr<KVOSrvScratchDenseMatrix> stored = Store(a);
};

// Slots 6 and 14 for p vectors.
template<class Measure>
void InMemory(benchmark::State& state, Measure const& measure)
{
    bool const transposed = state.range(1) != 0;
    auto const p = static_cast<int>(state.range(0));
    Operands const& operands = Operands::Get();
    int const inner = transposed ? kRows : kColumns, rows = transposed ? kColumns : kRows;
    KVOSrvMatrix const x = Random(inner, p);
    KVOSrvMatrix y = Zeros(rows, p), expected = Zeros(rows, p);
    auto const product = [&] { transposed ? operands.stored->TransposeMultiply(x, y, 0) : operands.stored->Multiply(x, y); };
    auto const peer = [&] { Gemm(transposed ? "T" : "N", operands.a, x, 0.0, expected); };
    measure(product, peer);
    CheckEqual(y, expected, inner);
    state.counters["Gflop/s"] = benchmark::Counter(2e-9 * kRows * kColumns * p, benchmark::Counter::kIsIterationInvariantRate);
}

void Warm(benchmark::State& state)
{
    InMemory(state, [&](auto const& product, auto const& peer) { AgainstPeer(state, product, peer); });
}

std::vector<std::filesystem::path> Files()
{
    std::vector<std::filesystem::path> files;
    for (auto const& entry : std::filesystem::directory_iterator(Folder()))
        files.push_back(entry.path());
    return files;
}

// Lets go of the pages of the scratch files that this process has mapped: such pages cannot be dropped.
void UnmapPages()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0, end = 0;
        if (line.find(Folder().string()) != std::string::npos && std::sscanf(line.c_str(), "%lx-%lx", &first, &end) == 2)
            Check(madvise(reinterpret_cast<void*>(first), end - first, MADV_DONTNEED) == 0); // its pages stay in the file
    }
}

// Writes the scratch files to the disk and drops their pages from memory.
void DropPages()
{
    UnmapPages();
    for (auto const& path : Files()) {
        int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        Check(file >= 0 && fsync(file) == 0 && posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) == 0);
        auto const bytes = static_cast<std::size_t>(std::filesystem::file_size(path));
        void* const mapping = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
        std::vector<unsigned char> resident((bytes + 4095) / 4096);
        Check(mapping != MAP_FAILED && mincore(mapping, bytes, resident.data()) == 0);
        auto const left = std::count_if(resident.begin(), resident.end(), [](unsigned char page) { return (page & 1) != 0; });
        Check(left * 50 < static_cast<std::ptrdiff_t>(resident.size()));
        munmap(mapping, bytes);
        close(file);
    }
}

void ReadFiles()
{
    std::vector<char> buffer(std::size_t{8} << 20);
    for (auto const& path : Files()) {
        int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        posix_fadvise(file, 0, 0, POSIX_FADV_SEQUENTIAL);
        while (read(file, buffer.data(), buffer.size()) > 0)
            benchmark::ClobberMemory();
        close(file);
    }
}

// How long this thread has been ready to run while others did.
double SecondsQueued()
{
    std::ifstream statistics("/proc/thread-self/schedstat");
    std::int64_t ran = 0, queued = 0;
    Check(static_cast<bool>(statistics >> ran >> queued));
    return 1e-9 * static_cast<double>(queued);
}

// From the disk. The peer of few vectors is the reading of the whole file. `unqueued_ratio` leaves out the time for which the processors
// were with others, on a busy machine most of it.
void Cold(benchmark::State& state)
{
    bool const againstDisk = state.range(0) <= 16;
    InMemory(state, [&](auto const& product, auto const& peer) {
        product();
        peer();
        std::vector<double> ratios, unqueued, peers;
        for (auto _ : state) {
            struct Times {
                double wall, unqueued;
            };
            auto const seconds = [](auto const& run) {
                double const queued = SecondsQueued();
                double const wall = Time(run).clock;
                return Times{wall, wall - (SecondsQueued() - queued)};
            };
            DropPages();
            Times const ofPeer = againstDisk ? seconds(ReadFiles) : seconds(peer);
            DropPages();
            Times const times = seconds(product);
            state.SetIterationTime(times.wall);
            ratios.push_back(times.wall / ofPeer.wall);
            unqueued.push_back(times.unqueued / ofPeer.unqueued);
            peers.push_back(ofPeer.wall);
        }
        state.counters["ratio"] = Median(ratios);
        state.counters["unqueued_ratio"] = Median(unqueued);
        state.counters["peer_ms"] = 1e3 * Median(peers);
    });
}

BENCHMARK(Warm)->ArgNames({"p", "transposed"})->ArgsProduct({{64, 512, 4096}, {0, 1}})->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Cold)->ArgNames({"p", "transposed"})->ArgsProduct({{1, 16, 512, 4096}, {0, 1}})->UseManualTime()->Unit(benchmark::kMillisecond);

// Slot 8, and 17 with a stored right operand.
void StoredTimesStored(benchmark::State& state)
{
    auto const n = static_cast<int>(state.range(0));
    KVOSrvMatrix const a = Random(n, n), b = Random(n, n);
    KVOSrvMatrix expected = Zeros(n, n), c = Zeros(n, n);
    auto const storedA = Store(a), storedB = Store(b), storedC = StoreZeros(n, n);
    AgainstPeer(
        state, [&] { storedA->Multiply(*storedB, *storedC); }, [&] { Gemm("N", a, b, 0.0, expected); });
    storedC->GetAllValues(c.Values());
    CheckEqual(c, expected, n);
}
BENCHMARK(StoredTimesStored)->Arg(4096)->Arg(8192)->UseManualTime()->Unit(benchmark::kMillisecond);

// The same within so many MiB: 96 are tiles of order 2048, 384 of 4096.
void WithinMemory(benchmark::State& state)
{
    KVOSrvProductMemory const limit(state.range(1) << 20);
    StoredTimesStored(state);
}
BENCHMARK(WithinMemory)
    ->ArgNames({"n", "MiB"})
    ->ArgsProduct({{4096, 8192}, {96, 384, 1024}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void ColdWithinMemory(benchmark::State& state)
{
    KVOSrvProductMemory const limit(state.range(2) << 20);
    Cold(state);
}
BENCHMARK(ColdWithinMemory)
    ->ArgNames({"p", "transposed", "MiB"})
    ->ArgsProduct({{512}, {0, 1}, {96}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Slots 9, 10, 12 and 18; the peers transfer what these must, in pieces of block rows or block columns.
struct ReadSlab {
    KVOSrvMatrix slab = Zeros(kChunk, kColumns), tall = Zeros(kRows, kChunk);

    void Rows(KVOSrvDenseMatrix const& a)
    {
        for (int row = 0; row < a.NumberOfRows(); row += kChunk)
            a.GetRows(row, row + kChunk - 1, slab);
    }
    void Columns(KVOSrvDenseMatrix const& a)
    {
        for (int column = 0; column < a.NumberOfColumns(); column += kChunk)
            a.GetColumns(column, column + kChunk - 1, tall);
    }
    void WriteRows(KVOSrvDenseMatrix& y, int columns)
    {
        KVOSrvMatrix const values(kChunk, columns, slab.Values(), false, false);
        for (int row = 0; row < y.NumberOfRows(); row += kChunk)
            y.SetRows(row, row + kChunk - 1, values);
    }
};

void Accumulate(benchmark::State& state) // slot 9
{
    auto const p = static_cast<int>(state.range(0));
    Operands const& operands = Operands::Get();
    KVOSrvMatrix const x = Random(kColumns, p);
    KVOSrvMatrix expected = Zeros(kRows, p);
    auto const y = StoreZeros(kRows, p), target = StoreZeros(kRows, p);
    ReadSlab slabs;
    AgainstPeer(
        state, [&] { operands.stored->Multiply(1.0, x, 1.0, *y); },
        [&] {
            slabs.Rows(*target);
            slabs.Rows(*operands.stored);
            Gemm("N", operands.a, x, 1.0, expected);
            slabs.WriteRows(*target, p);
        });
    KVOSrvMatrix values = Zeros(kRows, p);
    y->GetAllValues(values.Values());
    for (std::int64_t k = 0; k < std::int64_t{kRows} * p; ++k) // as many products summed up
        Check(std::abs(values.Values()[k] - expected.Values()[k]) <= 1e-12 * kColumns * static_cast<double>(state.iterations()));
}
BENCHMARK(Accumulate)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMillisecond);

void Assign(benchmark::State& state) // slot 10
{
    constexpr int kOrder = 2048;
    KVOSrvMatrix const a = Random(kRows, kOrder);
    KVOSrvMatrix x = Zeros(kOrder, kOrder), result = Zeros(kRows, kOrder);
    for (int i = 0; i < kOrder; ++i)
        x.Values()[std::int64_t{i} * kOrder + (i + 1) % kOrder] = 1.0; // turns the columns round
    auto const stored = Store(a), target = StoreZeros(kRows, kOrder);
    ReadSlab slabs;
    AgainstPeer(
        state, [&] { stored->MultiplyAssign(x); },
        [&] {
            slabs.Rows(*target);
            Gemm("N", a, x, 0.0, result);
            slabs.WriteRows(*target, kOrder);
        });
    KVOSrvMatrix values = Zeros(kRows, kOrder);
    stored->GetAllValues(values.Values());
    auto const turns = static_cast<int>(state.iterations() % kOrder);
    for (int j = 0; j < kOrder; ++j)
        Check(values.Values()[std::int64_t{j} * kRows + 5] == a.Values()[std::int64_t{(j + turns) % kOrder} * kRows + 5]);
}
BENCHMARK(Assign)->UseManualTime()->Unit(benchmark::kMillisecond);

void Permuted(benchmark::State& state) // slot 12
{
    auto const p = static_cast<int>(state.range(0));
    Operands const& operands = Operands::Get();
    KVOSrvMatrix const x = Random(kRows, p);
    KVOSrvMatrix y = Zeros(kColumns, p), expected = Zeros(kColumns, p);
    ReadSlab slabs;
    AgainstPeer(
        state, [&] { operands.stored->TransposeMultiply(nullptr, x, y, 1.0, 0.0); },
        [&] {
            slabs.Columns(*operands.stored);
            Gemm("T", operands.a, x, 0.0, expected);
        });
    CheckEqual(y, expected, kRows);
}
BENCHMARK(Permuted)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMillisecond);

void Indexed(benchmark::State& state) // slot 18: seven of eight rows
{
    auto const p = static_cast<int>(state.range(0));
    Operands const& operands = Operands::Get();
    KVOSrvMatrix const x = Random(kColumns, p);
    std::vector<int> rows;
    for (int row = 0; row < kRows; ++row)
        if (row / 64 % 8 != 0)
            rows.push_back(row);
    auto const count = static_cast<int>(rows.size());
    int groups = 0;
    std::unique_ptr<int[]> const ranges = KVOSrvContiguousRanges(rows.data(), count, kChunk, groups);
    auto const y = StoreZeros(count, p), target = StoreZeros(count, p);
    KVOSrvMatrix slab = Zeros(kChunk, kColumns), expected = Zeros(kRows, p);
    KVOSrvMatrix const part(count, kColumns, const_cast<double*>(operands.a.Values()), false, false);
    KVOSrvMatrix partial = Zeros(count, p);
    AgainstPeer(
        state, [&] { operands.stored->IndexedMultiply(x, *y, rows.data(), ranges.get(), groups); },
        [&] {
            for (int g = 0; g < groups; ++g) {
                operands.stored->GetRows(rows[static_cast<std::size_t>(ranges[g])], rows[static_cast<std::size_t>(ranges[g + 1] - 1)],
                                         slab);
                KVOSrvMatrix const result(ranges[g + 1] - ranges[g], p, slab.Values(), false, false);
                target->SetValues(ranges[g], ranges[g + 1] - 1, 0, p - 1, result);
            }
            Gemm("N", part, x, 0.0, partial); // as many rows, whichever
        });
    KVOSrvMatrix values = Zeros(count, p);
    y->GetAllValues(values.Values());
    Gemm("N", operands.a, x, 0.0, expected);
    for (int i = 0; i < count; ++i)
        Check(std::abs(values.Values()[i] - expected.Values()[rows[static_cast<std::size_t>(i)]]) <= 1e-9);
}
BENCHMARK(Indexed)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMillisecond);

// Eight members against one of their width, and against DGEMM with the right operand read.
void Set(benchmark::State& state)
{
    constexpr int kMembers = 8, kWidth = kColumns / kMembers;
    auto const p = static_cast<int>(state.range(0));
    Operands const& operands = Operands::Get();
    std::vector<std::unique_ptr<KVOSrvScratchDenseMatrix>> stored;
    std::vector<KVOSrvDenseMatrix const*> members;
    for (int k = 0; k < kMembers; ++k) {
        KVOSrvMatrix part = Zeros(kRows, kWidth);
        operands.a.GetValues(0, kRows - 1, k * kWidth, (k + 1) * kWidth - 1, part);
        members.push_back(stored.emplace_back(Store(part)).get());
    }
    KVOSrvDenseMatrix const* all = operands.stored.get();
    KVOSrvDenseMatrixSet const set(members.data(), kMembers), one(&all, 1);
    KVOSrvMatrix const inMemory = Random(kRows, p);
    auto const b = Store(inMemory);
    KVOSrvMatrix c = Zeros(kColumns, p), expected = Zeros(kColumns, p), read = Zeros(kRows, p);
    std::vector<Peer> peers{{"one member", [&] { one.TransposeMultiply(b.get(), expected, 0); }}, {"DGEMM", [&] {
                                                                                                       b->GetAllValues(read.Values());
                                                                                                       Gemm("T", operands.a, read, 0.0,
                                                                                                            expected);
                                                                                                   }}};
    TakeTurns(
        state, [&] { set.TransposeMultiply(b.get(), c, 0); }, peers);
    state.counters["ratio"] = peers[0].ratio;
    state.counters["dgemm_ratio"] = peers[1].ratio; // one member shares what a set is made of
    CheckEqual(c, expected, kRows);
}
BENCHMARK(Set)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMillisecond);

// A sparse matrix times a stored one, into a stored one and into memory, against Multiply with the transfers.
void SparseTimesStored(benchmark::State& state)
{
    constexpr int kOrder = 100'000, kWidth = 256, kBlock = 32;
    bool const intoMemory = state.range(0) != 0;
    KVOSrvSparseMatrix a(kOrder, kOrder);
    std::minstd_rand random(3);
    for (unsigned row = 0; row < kOrder; ++row)
        for (unsigned k = 0; k < 27; ++k)
            a.AddData(row, (row + static_cast<unsigned>(random() % 3000)) % kOrder, 1e-9 * static_cast<double>(random()));
    a.EndAssembly();
    KVOSrvMatrix const values = Random(kOrder, kWidth);
    Folder();
    KVOSrvScratchDenseMatrix x(kOrder, kWidth, 4096, kBlock), y(kOrder, kWidth, 4096, kBlock), target(kOrder, kWidth, 4096, kBlock);
    x.SetRows(0, kOrder - 1, values);
    y.SetRows(0, kOrder - 1, values);
    target.SetRows(0, kOrder - 1, values);
    KVOSrvMatrix input = Zeros(kOrder, kBlock), output = Zeros(kOrder, kBlock), result = Zeros(kOrder, kWidth);
    auto const product = [&] { intoMemory ? a.MultiplyDense(x, result.Values(), true) : a.MultiplyDense(x, y, true); };
    AgainstPeer(state, product, [&] {
        for (int column = 0; column < kWidth; column += kBlock) {
            x.GetColumns(column, column + kBlock - 1, input);
            a.Multiply(input.Values(), kBlock, output.Values(), true);
            if (!intoMemory)
                target.SetColumns(column, column + kBlock - 1, output);
        }
    });
    if (!intoMemory)
        y.GetAllValues(result.Values());
    KVOSrvMatrix expected = Zeros(kOrder, kWidth);
    a.Multiply(values.Values(), kWidth, expected.Values(), true);
    CheckEqual(result, expected, 1);
}
BENCHMARK(SparseTimesStored)->ArgName("into memory")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
