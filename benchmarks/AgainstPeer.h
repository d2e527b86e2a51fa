#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <vector>

/// Times `subject`, the measured one, in turns with `peer`. The counter `ratio` is the median of their ratios, pair by pair, which cancels
/// what else the machine does; `peer_ms` is the median time of the peer.
template<class Subject, class Peer>
void AgainstPeer(benchmark::State& state, Subject const& subject, Peer const& peer)
{
    auto const seconds = [](auto const& run) {
        auto const start = std::chrono::steady_clock::now();
        run();
        benchmark::ClobberMemory();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    auto const median = [](std::vector<double>& values) {
        std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
        return values[values.size() / 2];
    };
    std::vector<double> ratios, peers;
    for (auto _ : state) {
        double const peerTime = seconds(peer), time = seconds(subject);
        state.SetIterationTime(time);
        peers.push_back(peerTime);
        ratios.push_back(time / peerTime);
    }
    if (ratios.empty())
        return;
    state.counters["ratio"] = median(ratios);
    state.counters["peer_ms"] = 1e3 * median(peers);
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
