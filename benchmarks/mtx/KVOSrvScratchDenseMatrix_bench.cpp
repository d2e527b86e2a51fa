// What a database matrix costs beside its values: files, catalogue, memory.

#include "AgainstPeer.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransaction.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvUtilities.h"

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

std::string FilePath(char const* name)
{
    return std::filesystem::temp_directory_path() / (std::string("kvo-bench-") + name + "-" + std::to_string(getpid()));
}

// The peer: a file is made, gets a page, is closed and removed.
void CreateAndDestroyScratch(benchmark::State& state)
{
    constexpr int kTimes = 100;
    std::string const path = FilePath("bare");
    std::vector<char> const page(4096);
    AgainstPeer(
        state,
        [] {
            for (int i = 0; i < kTimes; ++i)
                benchmark::DoNotOptimize(KVOSrvScratchDenseMatrix(1000, 1000, 100, 100).NumberOfRows());
        },
        [&] {
            for (int i = 0; i < kTimes; ++i) {
                int const file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
                if (file < 0 || write(file, page.data(), page.size()) < 0)
                    throw std::runtime_error("cannot write " + path);
                close(file);
                unlink(path.c_str());
            }
        });
    state.counters["ms_each"] =
        benchmark::Counter(kTimes * 1e-3, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(CreateAndDestroyScratch)->Iterations(21)->UseManualTime()->Unit(benchmark::kMillisecond);

// 1000 matrices of 20 x 20 in one persistent file, each over sets of its own; milliseconds per matrix for each step.
void SmallMatrices(benchmark::State& state)
{
    constexpr int kCount = 1000, kOrder = 20;
    std::string const path = FilePath("small") + ".sim";
    auto const now = [] { return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count(); };
    std::vector<double> create, write, commit, open, read;
    for (auto _ : state) {
        KVOSrvMatrix values(kOrder, kOrder, nullptr, false, false);
        std::vector<int> ids;
        double const start = now();
        double created, written, committed;
        {
            KVOSimDatabase database;
            database.CreateFile(DRXUnicodeString(path.c_str()), 0);
            KVOSimContext context(database.CreateContext());
            context.Open();
            KVOSimTransaction transaction(context);
            std::vector<KVOSimDistributionID> distributions;
            for (int k = 0; k < kCount; ++k) {
                KVOSimCollection rows(context.CreateCollection(kOrder)), columns(context.CreateCollection(kOrder));
                distributions.push_back(
                    KVOSrvUtilities::Create2DDistribution(rows.BiggestCSetID(), columns.BiggestCSetID(), kOrder, kOrder));
                ids.push_back(distributions.back().Index());
            }
            created = now();
            for (int k = 0; k < kCount; ++k) {
                values = static_cast<double>(k);
                KVOSrvDenseMatrix(distributions[static_cast<std::size_t>(k)]).SetRows(0, kOrder - 1, values);
            }
            written = now();
            transaction.Commit();
            database.Close();
            committed = now();
        }
        KVOSimDatabase database;
        database.OpenFile(DRXUnicodeString(path.c_str()), true);
        std::vector<std::unique_ptr<KVOSrvDenseMatrix>> matrices;
        for (int const id : ids)
            matrices.push_back(std::make_unique<KVOSrvDenseMatrix>(KVOSimDistributionID(database.ContextID(), id)));
        double const opened = now();
        for (int k = 0; k < kCount; ++k) {
            matrices[static_cast<std::size_t>(k)]->GetRows(0, kOrder - 1, values);
            if (!(values == static_cast<double>(k)))
                throw std::runtime_error("wrong result");
        }
        double const end = now();
        create.push_back(created - start);
        write.push_back(written - created);
        commit.push_back(committed - written);
        open.push_back(opened - committed);
        read.push_back(end - opened);
        state.SetIterationTime((end - start) * 1e-3);
        matrices.clear();
        database.Close();
        std::filesystem::remove(path);
    }
    state.counters["create_ms"] = Median(create) / kCount;
    state.counters["write_ms"] = Median(write) / kCount;
    state.counters["commit_ms"] = Median(commit) / kCount;
    state.counters["reopen_ms"] = Median(open) / kCount;
    state.counters["read_ms"] = Median(read) / kCount;
}
BENCHMARK(SmallMatrices)->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);

// The same matrices with titles, in turns with those without. `commit` compares what the commit takes, `whole` all of the transaction.
void TitledMatrices(benchmark::State& state)
{
    constexpr int kCount = 1000, kOrder = 20;
    std::string const path = FilePath("titled") + ".sim";
    struct Times {
        double commit, whole;
    };
    auto const run = [&](bool titled) {
        Times times;
        KVOSrvMatrix values(kOrder, kOrder, nullptr, false, false);
        KVOSimDatabase database;
        database.CreateFile(DRXUnicodeString(path.c_str()), 0);
        KVOSimContext context(database.CreateContext());
        times.whole = Time([&] {
                          KVOSimTransaction transaction(context);
                          for (int k = 0; k < kCount; ++k) {
                              KVOSimCollection rows(context.CreateCollection(kOrder)), columns(context.CreateCollection(kOrder));
                              KVOSimDistributionID const id =
                                  KVOSrvUtilities::Create2DDistribution(rows.BiggestCSetID(), columns.BiggestCSetID(), kOrder, kOrder);
                              if (titled)
                                  KVOSimDistribution(id).SetTitle(("matrix " + std::to_string(k)).c_str());
                              KVOSrvDenseMatrix(id).SetRows(0, kOrder - 1, values);
                          }
                          times.commit = Time([&] { transaction.Commit(); }).clock;
                      }).clock;
        bool const isThere = !context.Find("matrix 999").IsNull();
        database.Close();
        std::filesystem::remove(path);
        if (isThere != titled)
            throw std::runtime_error("wrong titles");
        return times;
    };
    std::vector<double> commit, whole;
    for (auto _ : state) {
        Times const bare = run(false), titled = run(true);
        state.SetIterationTime(titled.whole);
        commit.push_back(titled.commit / bare.commit);
        whole.push_back(titled.whole / bare.whole);
    }
    state.counters["commit"] = Median(commit);
    state.counters["whole"] = Median(whole);
}
BENCHMARK(TitledMatrices)->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);

/// MiB of memory that the process holds, as the system says: "RssAnon", its own, or "RssFile", pages of files that are mapped.
double ResidentMiB(std::string const& kind)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(kind + ":"))
            return std::stod(line.substr(kind.size() + 1)) / 1024.0;
    throw std::runtime_error("the system does not say " + kind);
}

/// The greatest growth of resident memory from here on, seen by a thread that looks every millisecond: what an operation takes is gone when
/// it returns.
class Growth
{
public:
    explicit Growth(std::string const& kind)
        : m_kind(kind), m_before(ResidentMiB(kind)), m_thread([this](std::stop_token stop) { Look(stop); })
    {
    }
    double MiB() const { return m_greatest; }

private:
    void Look(std::stop_token const& stop)
    {
        while (!stop.stop_requested()) {
            m_greatest = std::max(m_greatest.load(), ResidentMiB(m_kind) - m_before);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::string m_kind;
    double m_before;
    std::atomic<double> m_greatest = 0.0;
    std::jthread m_thread;
};

// 20000 x 20000 doubles, 3.2 GB, in blocks of 8 MB: the growth of resident memory while all blocks are written, then scaled, then read,
// and 100 rows at a time read through partial transfers. In a first run only: what the allocator keeps from one hides what the next takes.
void ResidentMemory(benchmark::State& state)
{
    constexpr int kOrder = 20000, kChunk = 1000;
    for (auto _ : state) {
        KVOSrvMatrix block(kChunk, kChunk, nullptr, false, false);
        block = 0.0;
        Growth const anonymous("RssAnon"), mapped("RssFile");
        KVOSrvScratchDenseMatrix matrix(kOrder, kOrder, kChunk, kChunk);
        auto const forEachBlock = [&](auto const& run) {
            for (int c = 0; c < kOrder; c += kChunk)
                for (int r = 0; r < kOrder; r += kChunk)
                    run(r, r + kChunk - 1, c, c + kChunk - 1);
        };
        forEachBlock([&](int r0, int r1, int c0, int c1) {
            block = r0 + 1e-5 * c0;
            matrix.SetValues(r0, r1, c0, c1, block);
        });
        matrix.Scale(2.0);
        forEachBlock([&](int r0, int r1, int c0, int c1) {
            matrix.GetValues(r0, r1, c0, c1, block);
            if (!(block == 2.0 * (r0 + 1e-5 * c0)))
                throw std::runtime_error("wrong result");
        });
        state.counters["blocks_RssFile_MiB"] = mapped.MiB();
        for (int r = 50; r + 100 <= kOrder; r += 1000)
            for (int c = 0; c < kOrder; c += kChunk)
                matrix.GetValues(r, r + 99, c, c + kChunk - 1, block);
        state.counters["RssAnon_MiB"] = anonymous.MiB();
        state.counters["RssFile_MiB"] = mapped.MiB();
    }
}
BENCHMARK(ResidentMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    KVOSrvUtilities::SetTempDirectory(cow_String(std::filesystem::temp_directory_path().c_str()));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
