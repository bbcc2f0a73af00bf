#ifndef SORVANIC_BENCH_RATIO_H
#define SORVANIC_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

// How everything here is measured: ours and a named peer take turns in one run, so that what
// disturbs the machine disturbs both, and the medians of their rounds are divided.

namespace bench {

template <typename Work>
double seconds(Work&& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The value below which that share of the values lies.
inline double quantile(std::vector<double> values, double share)
{
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * share);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

inline double median(const std::vector<double>& values)
{
    return quantile(values, 0.5);
}

/// The body of a benchmark. `ours` and `peer` do one round of `items` operations each and
/// return its seconds; they go first in turns. One round of both is not counted. Leaves the
/// ratio of their speeds (above 1: ours is faster), the seconds for one operation, and the width
/// of the middle half of our rounds against their median, in the counters that the reporter prints.
template <typename Ours, typename Peer>
void alternate(benchmark::State& state, const char* peer_name, std::size_t items, Ours ours, Peer peer)
{
    ours();
    peer();
    std::vector<double> our_rounds;
    std::vector<double> peer_rounds;
    bool ours_first = true;
    for ([[maybe_unused]] auto _ : state) {
        if (ours_first)
            our_rounds.push_back(ours());
        peer_rounds.push_back(peer());
        if (!ours_first)
            our_rounds.push_back(ours());
        ours_first = !ours_first;
        state.SetIterationTime(our_rounds.back());
    }
    const double our_median = median(our_rounds);
    const double peer_median = median(peer_rounds);
    state.SetLabel(peer_name);
    state.counters["ratio"] = peer_median / our_median;
    state.counters["spread"] = (quantile(our_rounds, 0.75) - quantile(our_rounds, 0.25)) / our_median;
    state.counters["ours"] = our_median / static_cast<double>(items);
    state.counters["peer"] = peer_median / static_cast<double>(items);
}

/// Threads that start a piece of work together; the caller is the first of them.
class team {
public:
    explicit team(int size) : gate_(size)
    {
        for (int index = 1; index < size; ++index)
            others_.emplace_back([this, index] {
                for (;;) {
                    gate_.arrive_and_wait();
                    if (work_ == nullptr)
                        return;
                    (*work_)(index);
                    gate_.arrive_and_wait();
                }
            });
    }
    ~team()
    {
        work_ = nullptr;
        gate_.arrive_and_wait();
    }
    team(const team&) = delete;
    team& operator=(const team&) = delete;

    /// work(0), work(1), ... at the same time; returns when all have returned.
    void run(const std::function<void(int)>& work)
    {
        work_ = &work;
        gate_.arrive_and_wait();
        work(0);
        gate_.arrive_and_wait();
    }

private:
    std::barrier<> gate_;
    const std::function<void(int)>* work_ = nullptr;
    std::vector<std::jthread> others_;
};

} // namespace bench

#endif
