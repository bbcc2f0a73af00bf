#include "process/process_map.h"

#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>

#include "bench/benchmarks.h"
#include "bench/ratio.h"

// The process map: asked on every exec and file access, copied on fork, erased on exit.

namespace {

using kernel::s64;
using name_field = std::array<char, sorvanic_user_name_size>;
using pid_row = std::vector<s64>;

constexpr const sorvanic_process_map_operations& process_map = sorvanic_kernel_hashmap_module;
constexpr const char* user = "a_user_name";

/// The same operations over a map of the library's and one lock.
template <typename Map>
class locked_map {
public:
    int insert(s64 pid, const char* name)
    {
        name_field field{};
        std::memcpy(field.data(), name, ::strnlen(name, field.size() - 1));
        const std::unique_lock guard(lock_);
        map_[pid] = field;
        return 0;
    }
    int search(s64 pid, char* name)
    {
        const std::shared_lock guard(lock_);
        const auto at = map_.find(pid);
        if (at == map_.end())
            return -1;
        std::memcpy(name, at->second.data(), std::strlen(at->second.data()));
        return 0;
    }
    int erase(s64 pid)
    {
        const std::unique_lock guard(lock_);
        map_.erase(pid);
        return 0;
    }

private:
    std::shared_mutex lock_;
    Map map_;
};

using ordered_peer = locked_map<std::map<s64, name_field>>;
using abseil_peer = locked_map<absl::flat_hash_map<s64, name_field>>;

template <typename Peer>
constexpr const char* peer_name = "std::map, shared_mutex";
template <>
constexpr const char* peer_name<abseil_peer> = "absl map, shared_mutex";

/// The engine's map behind the same three calls.
struct engine_map {
    int insert(s64 pid, const char* name) { return process_map.insert(pid, name); }
    int search(s64 pid, char* name) { return process_map.search(pid, name); }
    int erase(s64 pid) { return process_map.erase(pid); }
};

/// The engine's map and the peer, holding the first half of the pids.
template <typename Peer>
class filled_maps {
public:
    explicit filled_maps(const pid_row& pids)
    {
        process_map.init();
        for (std::size_t i = 0; i < pids.size() / 2; ++i) {
            ours.insert(pids[i], user);
            peer.insert(pids[i], user);
        }
    }
    ~filled_maps() { process_map.destroy(); }
    filled_maps(const filled_maps&) = delete;
    filled_maps& operator=(const filled_maps&) = delete;

    engine_map ours;
    Peer peer;
};

/// Passes over so many records that a round is long against the start of its threads.
std::size_t passes_over(std::size_t records)
{
    return std::max<std::size_t>(1, 60'000 / records);
}

/// 2 * `records` pids as a system hands them out, every second one gone, in no order.
pid_row usual_pids(std::size_t records)
{
    pid_row pids;
    for (std::size_t i = 0; i < 2 * records; ++i)
        pids.push_back(static_cast<s64>(300 + i));
    std::shuffle(pids.begin(), pids.end(), std::mt19937(1));
    return pids;
}

/// Pids that all share one of the engine's sixteen buckets, and so one lock and one tree.
pid_row pids_of_one_bucket(std::size_t records)
{
    pid_row pids;
    for (s64 pid = 1; pids.size() < 2 * records; ++pid)
        if (static_cast<kernel::u64>(pid) * 0x9e37fffffffc0001U >> 60 == 3)
            pids.push_back(pid);
    std::shuffle(pids.begin(), pids.end(), std::mt19937(1));
    return pids;
}

/// Each thread asks for all pids, from a place of its own on. Returns the seconds and sets
/// `wrong` when one was not answered as expected.
template <typename Map>
double ask_all(Map& map, bench::team& team, int threads, const pid_row& pids, int expected,
               std::atomic<bool>& wrong)
{
    return bench::seconds([&] {
        team.run([&](int index) {
            const auto middle = pids.begin() + std::ssize(pids) * index / threads;
            bool failed = false;
            const auto ask = [&](s64 pid) {
                name_field name{};
                failed |= map.search(pid, name.data()) != expected;
                benchmark::DoNotOptimize(name);
            };
            std::for_each(middle, pids.end(), ask);
            std::for_each(pids.begin(), middle, ask);
            if (failed)
                wrong = true;
        });
    });
}

template <typename Peer>
void search(benchmark::State& state, const pid_row& pids, bool recorded, int threads)
{
    filled_maps<Peer> maps(pids);
    const auto half = pids.begin() + std::ssize(pids) / 2;
    pid_row asked;
    for (std::size_t i = 0; i < passes_over(pids.size() / 2); ++i)
        asked.insert(asked.end(), recorded ? pids.begin() : half, recorded ? half : pids.end());
    bench::team team(threads);
    std::atomic<bool> wrong = false;
    const int expected = recorded ? 0 : -1;
    bench::alternate(
        state, peer_name<Peer>, asked.size(),
        [&] { return ask_all(maps.ours, team, threads, asked, expected, wrong); },
        [&] { return ask_all(maps.peer, team, threads, asked, expected, wrong); });
    if (wrong)
        state.SkipWithError("FAILED: a search gave the wrong answer");
}

/// What a fork and the child's exit do: the parent's record searched, the child's inserted and erased.
template <typename Map>
double fork_and_exit(Map& map, bench::team& team, int threads, const pid_row& pids, std::size_t passes)
{
    const std::size_t half = pids.size() / 2;
    const std::size_t share = half / static_cast<std::size_t>(threads);
    return bench::seconds([&] {
        team.run([&](int index) {
            const std::size_t start = share * static_cast<std::size_t>(index);
            for (std::size_t pass = 0; pass < passes; ++pass)
                for (std::size_t i = start; i < start + share; ++i) {
                    name_field name{};
                    map.search(pids[i], name.data());
                    map.insert(pids[half + i], name.data());
                    map.erase(pids[half + i]);
                }
        });
    });
}

template <typename Peer>
void churn(benchmark::State& state, std::size_t records, int threads)
{
    const pid_row pids = usual_pids(records);
    filled_maps<Peer> maps(pids);
    bench::team team(threads);
    const std::size_t passes = passes_over(records);
    bench::alternate(
        state, peer_name<Peer>, passes * records / static_cast<std::size_t>(threads),
        [&] { return fork_and_exit(maps.ours, team, threads, pids, passes); },
        [&] { return fork_and_exit(maps.peer, team, threads, pids, passes); });
}

template <typename Peer>
void register_against(const bench::plan& plan)
{
    for (const std::size_t records : {std::size_t{1000}, std::size_t{30000}}) {
        const std::string size = "/" + std::to_string(records) + "_records/threads";
        for (const bool recorded : {true, false})
            benchmark::RegisterBenchmark(("map/" + std::string(recorded ? "hit" : "miss") + size).c_str(),
                                         [=](benchmark::State& state) {
                                             search<Peer>(state, usual_pids(records), recorded,
                                                          static_cast<int>(state.range(0)));
                                         })
                ->Arg(1)
                ->Arg(2)
                ->Iterations(plan.rounds(51, 3))
                ->UseManualTime();
        benchmark::RegisterBenchmark(
            ("map/fork_and_exit" + size).c_str(),
            [=](benchmark::State& state) { churn<Peer>(state, records, static_cast<int>(state.range(0))); })
            ->Arg(1)
            ->Arg(2)
            ->Iterations(plan.rounds(51, 3))
            ->UseManualTime();
    }
    benchmark::RegisterBenchmark("map/hit/worst_case/30000_records_in_one_bucket/threads",
                                 [](benchmark::State& state) {
                                     search<Peer>(state, pids_of_one_bucket(30000), true,
                                                  static_cast<int>(state.range(0)));
                                 })
        ->Arg(1)
        ->Arg(2)
        ->Iterations(plan.rounds(51, 3))
        ->UseManualTime();
}

} // namespace

void bench::register_process_map(const plan& plan)
{
    register_against<ordered_peer>(plan);
    register_against<abseil_peer>(plan);
}
