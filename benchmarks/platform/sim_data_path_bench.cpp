#include "AgainstPeer.h"
#include "BenchmarkFolder.h"
#include "ChunkGrid.h"
#include "ChunkedArray.h"
#include "DenseDrawer.h"
#include "FileAccess.h"
#include "KVOSimTypeKey.h"
#include "ValueSums.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

// The data path beside its limits: memcpy and strided copies in memory, pwrite to a plain file, and beside HDF5's own transfers. The
// counter `share` is the limit's time over ours, so 1 is the limit's rate; `hdf5` is HDF5's time over ours, so above 1 we are ahead. Times
// are the clock's; `cpu_share` and `cpu_hdf5` are the same of processor time, for a machine that has other work. Everything is in the page
// cache. Buffers begin with a page: 16 bytes behind that of the other array, as malloc may have it, a memcpy takes twice as long here.
// Argument: rows and columns of a chunk.

using simdb::DenseDrawer;
using simdb::File;
using simdb::FileAccess;
using simdb::Range;

namespace
{

constexpr std::int64_t kSize = 8192;
constexpr double kBytes = 8.0 * kSize * kSize;

BenchmarkFolder const s_folder;

/// A matrix in memory, columns of kSize rows: what drawers are filled from.
double* Memory()
{
    static LargePages<double> const s_values = [] {
        LargePages<double> values(kSize * kSize);
        for (std::int64_t i = 0; i < kSize * kSize; ++i)
            values.Data()[i] = static_cast<double>(i);
        return values;
    }();
    return s_values.Data();
}

/// Columns and rows, as drawers order them.
struct Window {
    Range columns;
    Range rows;

    std::size_t Values() const { return static_cast<std::size_t>(columns.Count() * rows.Count()); }
};

void CopyFromMemory(Window const& window, double* buffer)
{
    for (std::int64_t j = window.columns.first; j <= window.columns.last; ++j, buffer += window.rows.Count())
        std::memcpy(buffer, Memory() + j * kSize + window.rows.first, static_cast<std::size_t>(window.rows.Count()) * 8);
}

std::vector<Window> Blocks(std::int64_t chunk)
{
    std::vector<Window> blocks;
    for (std::int64_t j = 0; j < kSize; j += chunk)
        for (std::int64_t i = 0; i < kSize; i += chunk)
            blocks.push_back({{j, j + chunk - 1}, {i, i + chunk - 1}});
    return blocks;
}

/// A drawer with the matrix of Memory(), and its file.
class Stored
{
public:
    Stored(std::string const& name, std::int64_t chunk, char const* movedBy)
    {
        setenv("KVO_SIM_DATA_PATH", movedBy, 1);
        file = File::Create(s_folder / name, File::Kind::Scratch);
        access = std::make_shared<FileAccess>(file);
        drawer = DenseDrawer::Create(access, {{kSize, kSize}, {chunk, chunk}, KVOSimDouble, {}});
        unsetenv("KVO_SIM_DATA_PATH");
    }
    ~Stored()
    {
        std::string const path = file->Path();
        drawer.reset();
        access.reset();
        file.reset();
        unlink(path.c_str());
    }
    Stored(Stored const&) = delete;
    Stored& operator=(Stored const&) = delete;

    void Write(Window const& window, double const* buffer) { drawer->Write(Ranges(window), buffer); }
    void Read(Window const& window, double* buffer) { drawer->Read(Ranges(window), buffer); }
    void Fill(std::int64_t chunk)
    {
        std::vector<double> buffer(static_cast<std::size_t>(chunk * chunk));
        for (Window const& block : Blocks(chunk)) {
            CopyFromMemory(block, buffer.data());
            Write(block, buffer.data());
        }
    }

    std::shared_ptr<File> file;
    std::shared_ptr<FileAccess> access;
    std::shared_ptr<DenseDrawer> drawer;

private:
    static std::vector<Range> Ranges(Window const& window) { return {window.columns, window.rows}; }
};

/// Times ours, the limit and, a few times, HDF5 in turns; each callable returns its own time. Shares are medians over the turns.
template<class Ours, class Limit, class Hdf5>
void Compare(benchmark::State& state, double bytes, Ours const& ours, Limit const& limit, Hdf5 const& hdf5)
{
    constexpr std::size_t kHdf5Turns = 3;
    std::vector<double> shares, processorShares, ahead, processorAhead;
    ours(), limit(), hdf5(); // pages of buffers and mappings, once
    for (auto _ : state) {
        Seconds const limitTime = limit(), time = ours();
        state.SetIterationTime(time.clock);
        shares.push_back(limitTime.clock / time.clock);
        processorShares.push_back(limitTime.processor / time.processor);
        if (ahead.size() == kHdf5Turns)
            continue;
        Seconds const hdf5Time = hdf5();
        ahead.push_back(hdf5Time.clock / time.clock);
        processorAhead.push_back(hdf5Time.processor / time.processor);
    }
    if (shares.empty())
        return;
    state.counters["share"] = Median(shares);
    state.counters["cpu_share"] = Median(processorShares);
    state.counters["hdf5"] = Median(ahead);
    state.counters["cpu_hdf5"] = Median(processorAhead);
    state.counters["GB/s"] = benchmark::Counter(bytes * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

void CheckSame(Stored& stored, Window const& window)
{
    std::vector<double> read(window.Values()), expected(window.Values());
    stored.Read(window, read.data());
    CopyFromMemory(window, expected.data());
    ThrowUnless(read == expected, "the drawer does not hold what was written");
}

enum class Direction { Read, Write };

// Windows one after another, each packed in the same buffer. The limit copies the same runs from or to an array that is laid out as the
// file is: a column of whole ones would lie in one piece, and one of chunks does not.
void Transfers(benchmark::State& state, std::int64_t chunk, std::vector<Window> const& windows, Direction direction)
{
    Stored own("own.sim", chunk, "own"), reference("hdf5.sim", chunk, "hdf5");
    own.Fill(chunk);
    reference.Fill(chunk);
    CheckSame(own, windows.back());
    LargePages<double> const buffer(windows.front().Values(), 1.0);
    double bytes = 0;
    for (Window const& window : windows)
        bytes += 8.0 * static_cast<double>(window.Values());
    auto const moveAll = [&](auto const& move) {
        return [&windows, &buffer, move] {
            return Time([&] {
                for (Window const& window : windows)
                    move(window, buffer.Data());
            });
        };
    };
    ChunkedArray array(kSize, static_cast<int>(chunk), [](int i, int j) { return Memory()[j * kSize + i]; });
    auto const inMemory = [&](auto const& copy) {
        return moveAll([&array, copy](Window const& w, double* b) {
            array.ForEachRun(static_cast<int>(w.rows.first), static_cast<int>(w.rows.last), static_cast<int>(w.columns.first),
                             static_cast<int>(w.columns.last), b, copy);
        });
    };
    if (direction == Direction::Read)
        Compare(state, bytes, moveAll([&](Window const& w, double* b) { own.Read(w, b); }),
                inMemory([](double const* from, double* to, std::size_t runBytes) { std::memcpy(to, from, runBytes); }),
                moveAll([&](Window const& w, double* b) { reference.Read(w, b); }));
    else
        Compare(state, bytes, moveAll([&](Window const& w, double* b) { own.Write(w, b); }),
                inMemory([](double* to, double const* from, std::size_t runBytes) { std::memcpy(to, from, runBytes); }),
                moveAll([&](Window const& w, double* b) { reference.Write(w, b); }));
}

// The limit is memcpy of the same bytes, block by block in order.
void WholeBlocks(benchmark::State& state, Direction direction)
{
    std::int64_t const chunk = state.range(0);
    std::vector<Window> const blocks = Blocks(chunk);
    Stored own("own.sim", chunk, "own"), reference("hdf5.sim", chunk, "hdf5");
    own.Fill(chunk);
    reference.Fill(chunk);
    CheckSame(own, blocks.back());
    LargePages<double> const buffer(blocks.front().Values(), 1.0);
    auto const moveAll = [&](auto const& move) {
        return [&blocks, &buffer, move] {
            return Time([&] {
                for (std::size_t b = 0; b < blocks.size(); ++b)
                    move(blocks[b], buffer.Data(), Memory() + b * blocks[b].Values());
            });
        };
    };
    if (direction == Direction::Read)
        Compare(state, kBytes, moveAll([&](Window const& w, double* b, double*) { own.Read(w, b); }),
                moveAll([&](Window const& w, double* b, double const* m) { std::memcpy(b, m, 8 * w.Values()); }),
                moveAll([&](Window const& w, double* b, double*) { reference.Read(w, b); }));
    else
        Compare(state, kBytes, moveAll([&](Window const& w, double* b, double*) { own.Write(w, b); }),
                moveAll([&](Window const& w, double* b, double* m) { std::memcpy(m, b, 8 * w.Values()); }),
                moveAll([&](Window const& w, double* b, double*) { reference.Write(w, b); }));
}

// Whole chunks compared with their checksums. The limit is to read them without.
void ReadVerifiedBlocks(benchmark::State& state)
{
    std::int64_t const chunk = state.range(0), count = kSize / chunk;
    std::vector<Window> const blocks = Blocks(chunk);
    Stored own("own.sim", chunk, "own"), reference("hdf5.sim", chunk, "hdf5");
    own.drawer->SetSums(std::make_shared<simdb::ValueSums>(own.access, std::vector{count, count}));
    own.Fill(chunk);
    reference.Fill(chunk);
    CheckSame(own, blocks.back());
    LargePages<double> const buffer(blocks.front().Values(), 1.0);
    auto const readAll = [&](Stored& stored, bool verify) {
        return [&blocks, &buffer, &stored, verify] {
            return Time([&] {
                for (Window const& block : blocks)
                    stored.drawer->Read(std::vector{block.columns, block.rows}, buffer.Data(), {verify, false});
            });
        };
    };
    Compare(state, kBytes, readAll(own, true), readAll(own, false), readAll(reference, false));
}

// Whole chunks whose checksums are kept. The limit is to write them without.
void OverwriteSummedBlocks(benchmark::State& state)
{
    std::int64_t const chunk = state.range(0), count = kSize / chunk;
    std::vector<Window> const blocks = Blocks(chunk);
    Stored own("own.sim", chunk, "own"), reference("hdf5.sim", chunk, "hdf5");
    auto const sums = std::make_shared<simdb::ValueSums>(own.access, std::vector{count, count});
    own.Fill(chunk);
    reference.Fill(chunk);
    CheckSame(own, blocks.back());
    LargePages<double> const buffer(blocks.front().Values(), 1.0);
    auto const writeAll = [&](Stored& stored, std::shared_ptr<simdb::ValueSums> const& kept) {
        return [&blocks, &buffer, &stored, kept] {
            stored.drawer->SetSums(kept);
            return Time([&] {
                for (Window const& block : blocks)
                    stored.Write(block, buffer.Data());
            });
        };
    };
    Compare(state, kBytes, writeAll(own, sums), writeAll(own, nullptr), writeAll(reference, nullptr));
}

void ReadBlocks(benchmark::State& state)
{
    WholeBlocks(state, Direction::Read);
}
void OverwriteBlocks(benchmark::State& state)
{
    WholeBlocks(state, Direction::Write);
}

// The limit is pwrite of the same blocks to a plain new file. Making and removing the files is not timed.
void FirstWriteOfBlocks(benchmark::State& state)
{
    std::int64_t const chunk = state.range(0);
    std::vector<Window> const blocks = Blocks(chunk);
    LargePages<double> const buffer(blocks.front().Values(), 1.0);
    auto const write = [&](char const* who) {
        return [&blocks, &buffer, chunk, who] {
            Stored stored("first.sim", chunk, who);
            return Time([&] {
                for (Window const& block : blocks)
                    stored.Write(block, buffer.Data());
            });
        };
    };
    auto const plain = [&] {
        std::string const path = s_folder / "plain";
        int const file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        ThrowUnless(file >= 0, "no plain file");
        auto const bytes = static_cast<ssize_t>(8 * blocks.front().Values());
        Seconds const seconds = Time([&] {
            for (std::size_t b = 0; b < blocks.size(); ++b)
                ThrowUnless(pwrite(file, buffer.Data(), static_cast<std::size_t>(bytes), static_cast<off_t>(b) * bytes) == bytes, "pwrite");
        });
        close(file);
        unlink(path.c_str());
        return seconds;
    };
    Compare(state, kBytes, write("own"), plain, write("hdf5"));
}

std::vector<Window> RowWindows()
{
    std::vector<Window> windows;
    for (std::int64_t i = 0; i < 16; ++i)
        windows.push_back({{0, kSize - 1}, {i * 510, i * 510 + 99}}); // some across chunks
    return windows;
}

std::vector<Window> ColumnWindows()
{
    std::vector<Window> windows;
    for (std::int64_t j = 0; j < 512; ++j)
        windows.push_back({{j * 16 + j % 16, j * 16 + j % 16}, {0, kSize - 1}});
    return windows;
}

std::vector<Window> SquareWindows()
{
    std::vector<Window> windows;
    for (std::int64_t j = 0; j < 7; ++j)
        for (std::int64_t i = 0; i < 7; ++i)
            windows.push_back({{j * 1024 + 874, j * 1024 + 1173}, {i * 1024 + 874, i * 1024 + 1173}}); // over four chunks each
    return windows;
}

void Read100Rows(benchmark::State& state)
{
    Transfers(state, state.range(0), RowWindows(), Direction::Read);
}
void Write100Rows(benchmark::State& state)
{
    Transfers(state, state.range(0), RowWindows(), Direction::Write);
}
void ReadColumn(benchmark::State& state)
{
    Transfers(state, state.range(0), ColumnWindows(), Direction::Read);
}
void WriteColumn(benchmark::State& state)
{
    Transfers(state, state.range(0), ColumnWindows(), Direction::Write);
}
void Read300x300(benchmark::State& state)
{
    Transfers(state, state.range(0), SquareWindows(), Direction::Read);
}
void Write300x300(benchmark::State& state)
{
    Transfers(state, state.range(0), SquareWindows(), Direction::Write);
}

// 1000 drawers of 20 x 20 values in one file, made and written, and read after the file was closed and opened; microseconds of
// processor time each.
void SmallDrawers(benchmark::State& state)
{
    constexpr int kDrawers = 1000;
    bool const chunked = state.range(0) != 0;
    std::vector<double> values(400, 1.0);
    std::vector<Range> const all{{0, 19}, {0, 19}};
    std::string const path = s_folder / "small.sim";
    std::vector<double> made, read;
    for (auto _ : state) {
        auto file = File::Create(path, File::Kind::Persistent);
        Seconds const making = Time([&] {
            auto access = std::make_shared<FileAccess>(file);
            for (int i = 0; i < kDrawers; ++i) {
                auto const drawer = DenseDrawer::Create(
                    access, {{20, 20}, chunked ? std::vector<std::int64_t>{20, 20} : std::vector<std::int64_t>{}, 3, {}});
                drawer->LinkTo(file->Hdf5(), std::to_string(i).c_str());
                drawer->Write(all, values.data());
            }
            access.reset();
            file->Close();
        });
        Seconds const reading = Time([&] {
            file = File::Open(path, true);
            auto access = std::make_shared<FileAccess>(file);
            for (int i = 0; i < kDrawers; ++i) {
                std::fill(values.begin(), values.end(), 0.0);
                DenseDrawer::Open(access, file->Hdf5(), std::to_string(i).c_str())->Read(all, values.data());
                ThrowUnless(values[399] == 1.0, "a small drawer does not hold what was written");
            }
            access.reset();
            file->Close();
        });
        unlink(path.c_str());
        state.SetIterationTime(making.clock + reading.clock);
        made.push_back(making.processor / kDrawers * 1e6);
        read.push_back(reading.processor / kDrawers * 1e6);
    }
    if (made.empty())
        return;
    state.counters["write_cpu_us"] = Median(made);
    state.counters["read_cpu_us"] = Median(read);
}

BENCHMARK(ReadBlocks)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ReadVerifiedBlocks)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(OverwriteBlocks)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(OverwriteSummedBlocks)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(FirstWriteOfBlocks)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Read100Rows)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Write100Rows)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ReadColumn)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(WriteColumn)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Read300x300)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Write300x300)->Arg(512)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SmallDrawers)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
