// cow_Btree against std::map, both with pointers as values, over keys 0 to n - 1. Times are of all n operations.

#include "cow_Btree.h"

#include "AgainstPeer.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

namespace
{

using Map = cow_Btree<int, KVOSrvDenseMatrix*>;
using Peer = std::map<int, KVOSrvDenseMatrix*>;

enum Order { kAscending, kRandom };

std::vector<int> Keys(int count, std::int64_t order, unsigned seed)
{
    std::vector<int> keys(static_cast<std::size_t>(count));
    std::iota(keys.begin(), keys.end(), 0);
    if (order == kRandom)
        std::shuffle(keys.begin(), keys.end(), std::mt19937(seed));
    return keys;
}

// Distinct addresses to map to; they are never followed.
KVOSrvDenseMatrix* ValueOf(int key)
{
    return reinterpret_cast<KVOSrvDenseMatrix*>(std::intptr_t{16} * (key + 1));
}

void Fill(Map& map, std::vector<int> const& keys)
{
    for (int const key : keys)
        map.InsertUnlessMember(key, ValueOf(key));
}
void Fill(Peer& map, std::vector<int> const& keys)
{
    for (int const key : keys)
        map.try_emplace(key, ValueOf(key));
}

void RequireRightResult(bool condition)
{
    if (!condition)
        throw std::runtime_error("wrong result");
}

void Check(Map const& map, int count)
{
    RequireRightResult(map.Size() == count);
    for (int key = 0; key < count; ++key)
        RequireRightResult(map.ConstLookup(key) == ValueOf(key));
}

// All maps live until the clock has stopped, hence the fixed number of iterations below.
template<class Object>
using Built = std::vector<std::unique_ptr<Object>>;

void Insert(benchmark::State& state)
{
    std::vector<int> const keys = Keys(static_cast<int>(state.range(0)), state.range(1), 1);
    Built<Map> maps;
    Built<Peer> peers;
    AgainstPeer(
        state, [&] { Fill(*maps.emplace_back(std::make_unique<Map>()), keys); },
        [&] { Fill(*peers.emplace_back(std::make_unique<Peer>()), keys); });
    Check(*maps.back(), static_cast<int>(state.range(0)));
}

void Find(benchmark::State& state)
{
    auto const count = static_cast<int>(state.range(0));
    Map map;
    Peer peer;
    Fill(map, Keys(count, state.range(1), 1));
    Fill(peer, Keys(count, state.range(1), 1));
    Check(map, count);
    std::vector<int> const wanted = Keys(count, state.range(2), 2);
    AgainstPeer(
        state,
        [&] {
            for (int const key : wanted)
                benchmark::DoNotOptimize(map.ConstLookup(key));
        },
        [&] {
            for (int const key : wanted)
                benchmark::DoNotOptimize(peer.find(key)->second);
        });
}

void Copy(benchmark::State& state)
{
    auto const count = static_cast<int>(state.range(0));
    Map map;
    Peer peer;
    Fill(map, Keys(count, kRandom, 1));
    Fill(peer, Keys(count, kRandom, 1));
    Built<Map> copies;
    Built<Peer> peerCopies;
    AgainstPeer(
        state, [&] { copies.push_back(std::make_unique<Map>(map)); }, [&] { peerCopies.push_back(std::make_unique<Peer>(peer)); });
    Check(*copies.back(), count);
}

constexpr std::int64_t kFew = 100000, kMany = 1000000;

BENCHMARK(Insert)
    ->ArgNames({"keys", "random"})
    ->ArgsProduct({{kFew, kMany}, {kAscending, kRandom}})
    ->Iterations(7)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(Find)
    ->ArgNames({"keys", "inserted_random", "wanted_random"})
    ->ArgsProduct({{kFew, kMany}, {kAscending, kRandom}, {kAscending, kRandom}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(Copy)->ArgName("keys")->Arg(kFew)->Arg(kMany)->Iterations(7)->UseManualTime()->Unit(benchmark::kNanosecond);

} // namespace

BENCHMARK_MAIN();
