#ifndef BENCHMARKS_SIDEBYSIDE_H
#define BENCHMARKS_SIDEBYSIDE_H

#include <algorithm>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/stopwatch.h"

/**
 * The times of two things that took turns. What is reported is a ratio per turn and not one of two averages: what
 * disturbs the machine hits both things of a turn alike.
 */
class SideBySide
{
public:
    /// One turn: nanoseconds per call of either.
    void add(double ours, double peer)
    {
        m_ours.push_back(ours);
        m_peer.push_back(peer);
        m_ratios.push_back(ours / peer);
    }

    /// Writes median and quartiles of the ratio, and the median times, into the counters of @p state.
    void report(benchmark::State& state)
    {
        state.counters["ratio"] = quantile(m_ratios, 0.5);
        state.counters["ratio_low"] = quantile(m_ratios, 0.25);
        state.counters["ratio_high"] = quantile(m_ratios, 0.75);
        state.counters["ours_ns"] = quantile(m_ours, 0.5);
        state.counters["peer_ns"] = quantile(m_peer, 0.5);
        state.counters["turns"] = static_cast<double>(m_ratios.size());
    }

private:
    static double quantile(std::vector<double>& values, double share)
    {
        const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
        std::nth_element(values.begin(), place, values.end());
        return *place;
    }

    std::vector<double> m_ours;
    std::vector<double> m_peer;
    std::vector<double> m_ratios;
};

/// Runs two measurements in turns, the first one first in every other turn. Each returns nanoseconds per call.
template<typename Ours, typename Peer>
void measureInTurns(benchmark::State& state, Ours&& measureOurs, Peer&& measurePeer)
{
    SideBySide times;
    bool oursFirst = true;
    for (auto _ : state) {
        const Stopwatch stopwatch;
        double ours = oursFirst ? measureOurs() : 0;
        const double peer = measurePeer();
        if (!oursFirst)
            ours = measureOurs();
        oursFirst = !oursFirst;
        times.add(ours, peer);
        state.SetIterationTime(stopwatch.nanoseconds() * 1e-9);
    }
    times.report(state);
}

/// Something to measure, with as many calls in one measurement as the precision of the clock needs.
template<typename Action>
class Batch
{
public:
    explicit Batch(Action& action) : m_action(action)
    {
        while (m_calls < kMostCalls && run() * m_calls < kLeastNanoseconds)
            m_calls *= 2;
    }

    /// Nanoseconds per call.
    double run()
    {
        const Stopwatch stopwatch;
        for (int call = 0; call < m_calls; ++call)
            m_action();
        return stopwatch.nanoseconds() / m_calls;
    }

private:
    // Long compared with the cost of reading the clock, short compared with disturbances of the machine.
    static constexpr double kLeastNanoseconds = 50000;
    static constexpr int kMostCalls = 1 << 20;

    Action& m_action;
    int m_calls = 1;
};

/// Runs two actions in turns, batch against batch.
template<typename Ours, typename Peer>
void runSideBySide(benchmark::State& state, Ours&& ours, Peer&& peer)
{
    Batch oursBatch(ours);
    Batch peerBatch(peer);
    measureInTurns(
        state, [&] { return oursBatch.run(); }, [&] { return peerBatch.run(); });
}

#endif
