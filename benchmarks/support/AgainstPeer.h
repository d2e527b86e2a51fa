#pragma once

#include "LargePages.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

inline double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

/// Seconds by the clock, and of the processor time of all threads of the process.
struct Seconds {
    double clock, processor;
};

template<class Run>
Seconds Time(Run const& run)
{
    auto const processor = [] {
        timespec time;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    double const before = processor();
    auto const start = std::chrono::steady_clock::now();
    run();
    benchmark::ClobberMemory();
    double const clock = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return {clock, processor() - before};
}

/// One that the measured subject is timed in turns with, and what came out: medians over the turns.
struct Peer {
    std::string name;
    std::function<void()> run;
    double ratio = 0.0, processorRatio = 0.0; ///< the subject's time over its own in the same turn
    double seconds = 0.0;                     ///< its own time
};

/// Times the peers and then `subject`, turn by turn, which cancels what else the machine does. `prepare` comes before each turn and is not
/// timed: what the turn before has made goes there, or the one that still has to release it pays for that.
inline void TakeTurns(
    benchmark::State& state, std::function<void()> const& subject, std::vector<Peer>& peers, std::function<void()> const& prepare = [] {})
{
    struct Series {
        std::vector<double> ratios, processorRatios, seconds;
    };
    std::vector<Series> series(peers.size());
    std::vector<Seconds> times(peers.size());
    for (auto _ : state) {
        prepare();
        std::transform(peers.begin(), peers.end(), times.begin(), [](Peer const& peer) { return Time(peer.run); });
        Seconds const own = Time(subject);
        state.SetIterationTime(own.clock);
        for (std::size_t k = 0; k < peers.size(); ++k) {
            series[k].ratios.push_back(own.clock / times[k].clock);
            series[k].processorRatios.push_back(own.processor / times[k].processor);
            series[k].seconds.push_back(times[k].clock);
        }
    }
    for (std::size_t k = 0; k < peers.size() && !series[k].ratios.empty(); ++k) {
        peers[k].ratio = Median(series[k].ratios);
        peers[k].processorRatio = Median(series[k].processorRatios);
        peers[k].seconds = Median(series[k].seconds);
    }
}

/// The counter `ratio` is the subject's time over that of the fastest peer, `cpu_ratio` the same by processor time, which a busy machine
/// disturbs less; one more for each peer, by its name, over its time.
inline void ReportBest(benchmark::State& state, std::vector<Peer> const& peers)
{
    for (Peer const& peer : peers)
        state.counters[peer.name] = peer.ratio;
    state.counters["ratio"] = std::ranges::max(peers, {}, &Peer::ratio).ratio;
    state.counters["cpu_ratio"] = std::ranges::max(peers, {}, &Peer::processorRatio).processorRatio;
}

inline void AgainstBest(
    benchmark::State& state, std::function<void()> const& subject, std::vector<Peer> peers, std::function<void()> const& prepare = [] {})
{
    TakeTurns(state, subject, peers, prepare);
    ReportBest(state, peers);
}

/// As AgainstBest() with one peer, whose time is the counter `peer_ms`.
inline void AgainstPeer(
    benchmark::State& state, std::function<void()> const& subject, std::function<void()> const& run,
    std::function<void()> const& prepare = [] {})
{
    std::vector<Peer> peers{{"peer", run}};
    TakeTurns(state, subject, peers, prepare);
    state.counters["ratio"] = peers.front().ratio;
    state.counters["cpu_ratio"] = peers.front().processorRatio;
    state.counters["peer_ms"] = 1e3 * peers.front().seconds;
}

/// Times `subject` against the memcpy that moves as many bytes, between arrays in large pages: it reads one half and writes the other.
inline void AgainstMemcpy(benchmark::State& state, double bytesReadAndWritten, int times, std::function<void()> const& subject)
{
    auto const bytes = static_cast<std::size_t>(bytesReadAndWritten / 2);
    LargePages<char> const source(bytes, 1), target(bytes, 2);
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
                std::memcpy(target.Data(), source.Data(), bytes);
                benchmark::DoNotOptimize(target.Data());
                benchmark::ClobberMemory();
            }
        });
    state.counters["GB/s"] = benchmark::Counter(bytesReadAndWritten * times * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}
