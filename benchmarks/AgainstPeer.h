#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <ctime>
#include <vector>

/// Times `subject`, the measured one, in turns with `peer`. The counter `ratio` is the median of their ratios, pair by pair, which cancels
/// what else the machine does; `cpu_ratio` is the same by processor time, which a busy machine disturbs less; `peer_ms` is the median time
/// of the peer. `prepare` comes before each pair and is not timed.
template<class Subject, class Peer, class Prepare>
void AgainstPeer(benchmark::State& state, Subject const& subject, Peer const& peer, Prepare const& prepare)
{
    struct Times {
        double wall, cpu;
    };
    auto const times = [](auto const& run) {
        std::clock_t const cpuStart = std::clock();
        auto const start = std::chrono::steady_clock::now();
        run();
        benchmark::ClobberMemory();
        double const wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return Times{wall, static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC};
    };
    auto const median = [](std::vector<double>& values) {
        std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
        return values[values.size() / 2];
    };
    std::vector<double> ratios, cpuRatios, peers;
    for (auto _ : state) {
        prepare();
        Times const ofPeer = times(peer), ofSubject = times(subject);
        state.SetIterationTime(ofSubject.wall);
        peers.push_back(ofPeer.wall);
        ratios.push_back(ofSubject.wall / ofPeer.wall);
        cpuRatios.push_back(ofSubject.cpu / ofPeer.cpu);
    }
    if (ratios.empty())
        return;
    state.counters["ratio"] = median(ratios);
    state.counters["cpu_ratio"] = median(cpuRatios);
    state.counters["peer_ms"] = 1e3 * median(peers);
}

template<class Subject, class Peer>
void AgainstPeer(benchmark::State& state, Subject const& subject, Peer const& peer)
{
    AgainstPeer(state, subject, peer, [] {});
}

/// Times `subject` against the memcpy that moves as many bytes: it reads one half and writes the other.
template<class Subject>
void AgainstMemcpy(benchmark::State& state, double bytesReadAndWritten, int times, Subject const& subject)
{
    auto const bytes = static_cast<std::size_t>(bytesReadAndWritten / 2);
    std::vector<char> const source(bytes, 1);
    std::vector<char> target(bytes, 2);
    AgainstPeer(
        state,
        [&] {
            for (int i = 0; i < times; ++i) {
                subject();
                benchmark::ClobberMemory();
            }
        },
        [&] {
            for (int i = 0; i < times; ++i) {
                std::memcpy(target.data(), source.data(), bytes);
                benchmark::DoNotOptimize(target.data());
                benchmark::ClobberMemory();
            }
        });
    state.counters["GB/s"] = benchmark::Counter(bytesReadAndWritten * times * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}
