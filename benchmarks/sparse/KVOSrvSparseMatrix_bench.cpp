#include "AgainstPeer.h"
#include "BrickModel.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <Eigen/SparseCore>
#include <algorithm>
#include <cholmod.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Assembly and restructuring beside Eigen and CHOLMOD: same entries, same run, results compared before anything is timed.

namespace
{

using EigenMatrix = Eigen::SparseMatrix<double, Eigen::RowMajor, int>;
using Triplets = std::vector<Eigen::Triplet<double>>;

class Cholmod
{
public:
    Cholmod() { cholmod_start(&m_common); }
    ~Cholmod() { cholmod_finish(&m_common); }
    Cholmod(Cholmod const&) = delete;
    Cholmod& operator=(Cholmod const&) = delete;
    cholmod_common* operator()() { return &m_common; }

private:
    cholmod_common m_common;
};

Cholmod s_cholmod;

struct CholmodSparseDeleter {
    void operator()(cholmod_sparse* matrix) const { cholmod_free_sparse(&matrix, s_cholmod()); }
};
struct CholmodTripletDeleter {
    void operator()(cholmod_triplet* list) const { cholmod_free_triplet(&list, s_cholmod()); }
};
using CholmodSparse = std::unique_ptr<cholmod_sparse, CholmodSparseDeleter>;
using CholmodTriplet = std::unique_ptr<cholmod_triplet, CholmodTripletDeleter>;

enum Pattern : int { kElementOrder, kShuffled, kRandomPattern };

// 21 952 elements, 73 167 rows: 12.6 million entries, 5.6 million places. The random pattern has as many rows, entries and places.
struct Model {
    explicit Model(Pattern pattern)
    {
        BrickModel const brick(28, 28, 28);
        rows = brick.NumberOfRows();
        entries = brick.Triplets();
        std::mt19937 random(1);
        if (pattern == kRandomPattern) {
            std::vector<int> number(static_cast<std::size_t>(rows));
            std::iota(number.begin(), number.end(), 0);
            std::shuffle(number.begin(), number.end(), random);
            for (BrickTriplet& entry : entries) {
                entry.row = number[static_cast<std::size_t>(entry.row)];
                entry.column = number[static_cast<std::size_t>(entry.column)];
            }
        }
        if (pattern != kElementOrder)
            std::shuffle(entries.begin(), entries.end(), random);
    }

    std::unique_ptr<KVOSrvSparseMatrix> Pending() const
    {
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(rows, rows);
        for (BrickTriplet const& entry : entries)
            matrix->AddData(static_cast<unsigned>(entry.row), static_cast<unsigned>(entry.column), entry.value);
        return matrix;
    }

    std::unique_ptr<KVOSrvSparseMatrix> Assembled() const
    {
        auto matrix = Pending();
        matrix->EndAssembly();
        return matrix;
    }

    Triplets ForEigen() const
    {
        Triplets list;
        list.reserve(entries.size());
        for (BrickTriplet const& entry : entries)
            list.emplace_back(entry.row, entry.column, entry.value);
        return list;
    }

    EigenMatrix Eigen() const
    {
        Triplets const list = ForEigen();
        EigenMatrix matrix(rows, rows);
        matrix.setFromTriplets(list.begin(), list.end());
        return matrix;
    }

    // CHOLMOD compresses columns: rows and columns change places.
    CholmodTriplet ForCholmod() const
    {
        auto const n = static_cast<std::size_t>(rows);
        CholmodTriplet list(cholmod_allocate_triplet(n, n, entries.size(), 0, CHOLMOD_REAL, s_cholmod()));
        auto* const i = static_cast<int*>(list->i);
        auto* const j = static_cast<int*>(list->j);
        auto* const x = static_cast<double*>(list->x);
        for (std::size_t k = 0; k < entries.size(); ++k) {
            i[k] = entries[k].column;
            j[k] = entries[k].row;
            x[k] = entries[k].value;
        }
        list->nnz = entries.size();
        return list;
    }

    CholmodSparse Cholmod() const { return CholmodSparse(cholmod_triplet_to_sparse(ForCholmod().get(), 0, s_cholmod())); }

    int rows;
    std::vector<BrickTriplet> entries;
};

Model const& ModelOf(Pattern pattern)
{
    static std::map<Pattern, Model> models;
    return models.try_emplace(pattern, pattern).first->second;
}

std::vector<int> RandomPermutation(int n)
{
    std::vector<int> perm(static_cast<std::size_t>(n));
    std::iota(perm.begin(), perm.end(), 0);
    std::shuffle(perm.begin(), perm.end(), std::mt19937(2));
    return perm;
}

// Same places; values may differ by what another order of the additions makes of them.
void RequireEqual(KVOSrvSparseMatrix const& matrix, EigenMatrix const& expected)
{
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    bool equal = count == expected.nonZeros();
    int k = 0;
    for (int row = 0; equal && row < expected.outerSize(); ++row)
        for (EigenMatrix::InnerIterator it(expected, row); equal && it; ++it, ++k)
            equal = entries[k].row == static_cast<unsigned>(row) && entries[k].column == static_cast<unsigned>(it.col()) &&
                    std::abs(entries[k].value - it.value()) < 1e-12;
    if (!equal)
        throw std::runtime_error("the results differ");
}

double StatusMegabytes(std::string const& field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":"))
            return std::stod(line.substr(field.size() + 1)) / 1024;
    return 0;
}

void Assembly(benchmark::State& state, Pattern pattern)
{
    Model const& model = ModelOf(pattern);
    RequireEqual(*model.Assembled(), model.Eigen());
    auto const triplets = model.ForEigen();
    auto const cholmodTriplets = model.ForCholmod();
    std::unique_ptr<KVOSrvSparseMatrix> matrix;
    EigenMatrix eigen;
    CholmodSparse cholmod;
    AgainstBest(
        state, [&] { matrix->EndAssembly(); },
        {{"eigen", [&] { eigen.setFromTriplets(triplets.begin(), triplets.end()); }},
         {"cholmod", [&] { cholmod.reset(cholmod_triplet_to_sparse(cholmodTriplets.get(), 0, s_cholmod())); }}},
        [&] {
            EigenMatrix(model.rows, model.rows).swap(eigen); // an assignment would keep its memory
            cholmod.reset();
            matrix.reset();
            KVOSrvUtilities::ReleaseMemory(); // as fresh for ours as for the peers
            matrix = model.Pending();
        });
}

// Highest memory that a process's first assembly holds, pending entries included, by that of the entries.
double AssemblyPeak(Pattern pattern)
{
    Model const model(pattern);
    double const before = StatusMegabytes("VmRSS");
    auto const matrix = model.Pending();
    if (!(std::ofstream("/proc/self/clear_refs") << 5 << std::flush)) // the peak starts anew
        throw std::runtime_error("the system does not let the peak start anew");
    matrix->EndAssembly();
    return (StatusMegabytes("VmHWM") - before) / (static_cast<double>(model.entries.size() * sizeof(KVOSrvSparseMatrixEntry)) / (1 << 20));
}

constexpr char kPeakOption[] = "--assembly-peak=";

// This program, run afresh: arrays that an earlier assembly of the same process has left to the allocator would hide what one takes.
void AssemblyMemory(benchmark::State& state, Pattern pattern)
{
    std::string const command = std::filesystem::read_symlink("/proc/self/exe").string() + " " + kPeakOption + std::to_string(pattern);
    double peak = 0;
    for (auto _ : state) {
        std::unique_ptr<std::FILE, int (*)(std::FILE*)> const output(popen(command.c_str(), "r"), pclose);
        if (output == nullptr || std::fscanf(output.get(), "%lf", &peak) != 1)
            throw std::runtime_error("no answer from " + command);
    }
    state.counters["peak"] = peak;
}

void AddData(benchmark::State& state)
{
    Model const& model = ModelOf(kElementOrder);
    std::unique_ptr<KVOSrvSparseMatrix> matrix;
    std::vector<KVOSrvSparseMatrixEntry> list;
    AgainstPeer(
        state, [&] { matrix = model.Pending(); },
        [&] {
            for (BrickTriplet const& entry : model.entries)
                list.push_back({static_cast<unsigned>(entry.row), static_cast<unsigned>(entry.column), entry.value});
        },
        [&] {
            matrix.reset();
            std::vector<KVOSrvSparseMatrixEntry>().swap(list); // an assignment would keep its memory
            KVOSrvUtilities::ReleaseMemory();
        });
}

void Transpose(benchmark::State& state, Pattern pattern)
{
    Model const& model = ModelOf(pattern);
    auto const matrix = model.Assembled();
    auto const peer = model.Cholmod();
    auto const eigen = model.Eigen();
    std::unique_ptr<KVOSrvSparseMatrix> result(matrix->Transpose());
    RequireEqual(*result, EigenMatrix(eigen.transpose()));
    EigenMatrix transposed;
    CholmodSparse peerTransposed;
    AgainstBest(
        state, [&] { result.reset(matrix->Transpose()); },
        {{"cholmod", [&] { peerTransposed.reset(cholmod_transpose(peer.get(), 1, s_cholmod())); }},
         {"eigen", [&] { transposed = eigen.transpose(); }}},
        [&] {
            result.reset();
            EigenMatrix().swap(transposed);
            peerTransposed.reset();
            KVOSrvUtilities::ReleaseMemory();
        });
}

void Permute(benchmark::State& state, Pattern pattern)
{
    Model const& model = ModelOf(pattern);
    auto const matrix = model.Assembled();
    auto const eigen = model.Eigen();
    std::vector<int> const perm = RandomPermutation(model.rows);
    Eigen::PermutationMatrix<Eigen::Dynamic, Eigen::Dynamic, int> inverse(model.rows);
    for (int k = 0; k < model.rows; ++k)
        inverse.indices()[perm[static_cast<std::size_t>(k)]] = k;
    std::unique_ptr<KVOSrvSparseMatrix> result(matrix->Permute(perm.data()));
    EigenMatrix const expected = inverse * eigen * inverse.transpose();
    RequireEqual(*result, expected);
    EigenMatrix product, twisted; // the rows of the second are left unsorted
    AgainstBest(
        state, [&] { result.reset(matrix->Permute(perm.data())); },
        {{"eigen_product", [&] { product = inverse * eigen * inverse.transpose(); }},
         {"eigen_twistedBy", [&] { twisted = eigen.twistedBy(inverse); }}},
        [&] {
            result.reset();
            EigenMatrix().swap(product);
            EigenMatrix().swap(twisted);
            KVOSrvUtilities::ReleaseMemory();
        });
}

#define KVO_PATTERNS(Case)                                                                                                                 \
    BENCHMARK_CAPTURE(Case, brick, kElementOrder)->UseManualTime()->Unit(benchmark::kMillisecond);                                         \
    BENCHMARK_CAPTURE(Case, random, kRandomPattern)->UseManualTime()->Unit(benchmark::kMillisecond)

BENCHMARK_CAPTURE(Assembly, element_order, kElementOrder)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Assembly, shuffled, kShuffled)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Assembly, random_pattern, kRandomPattern)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(AssemblyMemory, element_order, kElementOrder)->Iterations(1);
BENCHMARK_CAPTURE(AssemblyMemory, shuffled, kShuffled)->Iterations(1);
BENCHMARK(AddData)->UseManualTime()->Unit(benchmark::kMillisecond);
KVO_PATTERNS(Transpose);
KVO_PATTERNS(Permute);

} // namespace

int main(int count, char** arguments)
{
    if (std::string_view const option(count > 1 ? arguments[1] : ""); option.starts_with(kPeakOption)) {
        std::printf("%f\n", AssemblyPeak(static_cast<Pattern>(option.back() - '0')));
        return 0;
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
