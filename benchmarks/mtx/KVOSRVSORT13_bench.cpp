// KVOSRVSORT13 against the way around it: sort an index (or key and index together) with std::sort, then gather keys, tags and columns into
// fresh arrays. The peers are given what favours them: their arrays exist before the clock starts and the result is not copied back.

#include "AgainstPeer.h"
#include "KVOFortran.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{

constexpr int kItems = 1000000;

struct Items {
    Items(int n, int rowCount) : rows(rowCount), keys(n), tags(n), columns(static_cast<std::size_t>(n) * static_cast<std::size_t>(rowCount))
    {
    }

    void Gather(Items const& source, int place, int from)
    {
        keys[place] = source.keys[from];
        tags[place] = source.tags[from];
        std::memcpy(columns.data() + std::ptrdiff_t{place} * rows, source.columns.data() + std::ptrdiff_t{from} * rows,
                    sizeof(double) * static_cast<std::size_t>(rows));
    }

    int rows;
    std::vector<double> keys;
    std::vector<int> tags;
    std::vector<double> columns;
};

enum Order { kRandom, kSorted, kReversed, kFewValues };
constexpr char const* kOrderNames[] = {"random", "sorted", "reversed", "100_values"};

Items MakeItems(Order order, int rows)
{
    std::mt19937_64 random(1);
    Items items(kItems, rows);
    for (int k = 0; k < kItems; ++k)
        items.keys[k] = order == kRandom     ? std::uniform_real_distribution<>()(random)
                        : order == kSorted   ? k
                        : order == kReversed ? kItems - k
                                             : static_cast<double>(random() % 100);
    std::iota(items.tags.begin(), items.tags.end(), 0);
    std::iota(items.columns.begin(), items.columns.end(), 0.0);
    return items;
}

class Sort13
{
public:
    explicit Sort13(Items const& source) : m_source(source), m_work(source) {}
    void Prepare() { m_work = m_source; }
    void Run()
    {
        int status = 0;
        KVOSRVSORT13(m_work.keys.data(), m_work.columns.data(), m_work.tags.data(), &m_work.rows, &kItems, &status);
        if (status != 0)
            throw std::runtime_error("status");
    }
    Items const& Result() const { return m_work; }

private:
    Items const& m_source;
    Items m_work;
};

class IndexSort
{
public:
    explicit IndexSort(Items const& source) : m_source(source), m_index(kItems), m_result(source) {}
    void Run()
    {
        std::iota(m_index.begin(), m_index.end(), 0);
        std::sort(m_index.begin(), m_index.end(), [keys = m_source.keys.data()](int a, int b) { return keys[a] < keys[b]; });
        for (int k = 0; k < kItems; ++k)
            m_result.Gather(m_source, k, m_index[k]);
    }
    Items const& Result() const { return m_result; }

private:
    Items const& m_source;
    std::vector<int> m_index;
    Items m_result;
};

class PairSort
{
public:
    explicit PairSort(Items const& source) : m_source(source), m_pairs(kItems), m_result(source) {}
    void Run()
    {
        for (int k = 0; k < kItems; ++k)
            m_pairs[k] = {m_source.keys[k], k};
        std::sort(m_pairs.begin(), m_pairs.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
        for (int k = 0; k < kItems; ++k)
            m_result.Gather(m_source, k, m_pairs[k].second);
    }
    Items const& Result() const { return m_result; }

private:
    Items const& m_source;
    std::vector<std::pair<double, int>> m_pairs;
    Items m_result;
};

// Every tag still names the item it came with, each once, and the keys ascend.
void Check(Items const& result, Items const& source)
{
    std::vector<bool> seen(kItems);
    for (int k = 0; k < kItems; ++k) {
        int const from = result.tags[k];
        bool const inOrder = k == 0 || result.keys[k - 1] <= result.keys[k];
        auto const column = source.columns.begin() + std::ptrdiff_t{from} * source.rows;
        bool const sameColumn = std::equal(column, column + source.rows, result.columns.begin() + std::ptrdiff_t{k} * source.rows);
        if (seen[from] || !inOrder || result.keys[k] != source.keys[from] || !sameColumn)
            throw std::runtime_error("wrong result at " + std::to_string(k));
        seen[from] = true;
    }
}

void Sort(benchmark::State& state, Order order, int rows)
{
    Items const source = MakeItems(order, rows);
    Sort13 sort(source);
    IndexSort indexSort(source);
    PairSort pairSort(source);
    auto const check = [&source](auto& method) {
        method.Run();
        Check(method.Result(), source);
    };
    check(sort), check(indexSort), check(pairSort);
    AgainstBest(
        state, [&] { sort.Run(); }, {{"index_sort", [&] { indexSort.Run(); }}, {"pair_sort", [&] { pairSort.Run(); }}},
        [&] { sort.Prepare(); });
    state.SetItemsProcessed(state.iterations() * kItems);
}

} // namespace

int main(int argc, char** argv)
{
    for (Order const order : {kRandom, kSorted, kReversed, kFewValues})
        for (int const rows : {0, 1, 6}) {
            std::string const name = std::string("Sort/") + kOrderNames[order] + "/nrow:" + std::to_string(rows);
            benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { Sort(state, order, rows); })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
