#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <list>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <stop_token>
#include <thread>

#include "bench/benchmarks.h"
#include "bench/directory.h"
#include "bench/ratio.h"
#include "policy/digest_list.h"
#include "policy/whitelist.h"

// The white list: 4-byte keys in a file, looked up on every exec.

namespace {

using kernel::u32;
using key_row = std::vector<u32>;

constexpr const digest_list_ops& whitelist = sorvanic_kernel_whitelist_module;
constexpr std::size_t whitelist_buckets = 65536;

/// What a program would use that need not live in a kernel.
class abseil_list {
public:
    /// As a reload: the file is read in one go into a new set, which then replaces the other.
    void reload(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        key_row keys(std::filesystem::file_size(path) / sizeof(u32));
        file.read(reinterpret_cast<char*>(keys.data()),
                  static_cast<std::streamsize>(keys.size() * sizeof(u32)));
        absl::flat_hash_set<u32> filled(keys.begin(), keys.end());
        const std::unique_lock guard(lock_);
        keys_.swap(filled);
    }
    bool holds(u32 key)
    {
        const std::shared_lock guard(lock_);
        return keys_.contains(key);
    }

private:
    std::shared_mutex lock_;
    absl::flat_hash_set<u32> keys_;
};

/// What one would write first.
class linear_list {
public:
    explicit linear_list(const key_row& keys) : keys_(keys.begin(), keys.end()) {}
    bool holds(u32 key)
    {
        const std::shared_lock guard(lock_);
        return std::find(keys_.begin(), keys_.end(), key) != keys_.end();
    }

private:
    std::shared_mutex lock_;
    std::list<u32> keys_;
};

/// `count` keys, all different, the first half to be listed, the other not.
key_row different_keys(std::size_t count)
{
    std::mt19937 random(1);
    absl::flat_hash_set<u32> seen;
    key_row keys;
    while (keys.size() < count)
        if (const u32 key = static_cast<u32>(random()); seen.insert(key).second)
            keys.push_back(key);
    return keys;
}

/// As different_keys, all in one bucket: the list that somebody would write to make lookups slow.
key_row keys_of_one_bucket(std::size_t count)
{
    constexpr u32 bucket = 4711;
    key_row keys;
    for (u32 three_bytes = 0; three_bytes < 1U << 24; ++three_bytes) {
        const u32 last_byte =
            (bucket - static_cast<u32>(digest_bucket(three_bytes, whitelist_buckets))) % whitelist_buckets;
        if (last_byte < 256)
            keys.push_back(three_bytes | last_byte << 24);
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    keys.resize(count);
    return keys;
}

/// The engine's white list, loaded with the first half of the keys.
class loaded_whitelist {
public:
    explicit loaded_whitelist(const key_row& keys)
    {
        policy_.write("whitelist", std::string_view(reinterpret_cast<const char*>(keys.data()),
                                                    keys.size() / 2 * sizeof(u32)));
        whitelist.init();
        whitelist.reload();
    }
    ~loaded_whitelist() { whitelist.destroy(); }
    loaded_whitelist(const loaded_whitelist&) = delete;
    loaded_whitelist& operator=(const loaded_whitelist&) = delete;

    std::string path() const { return policy_ / "whitelist"; }

private:
    bench::mounted_directory policy_{"/etc/sorvanic"};
};

/// Each thread of the team asks for all keys, from a place of its own on. Returns the seconds
/// and sets `wrong` when one was not answered as expected.
template <typename Holds>
double ask_all(bench::team& team, int threads, const key_row& keys, bool expected, std::atomic<bool>& wrong,
               Holds holds)
{
    return bench::seconds([&] {
        team.run([&](int index) {
            const auto middle = keys.begin() + std::ssize(keys) * index / threads;
            bool failed = false;
            const auto ask = [&](u32 key) { failed |= holds(key) != expected; };
            std::for_each(middle, keys.end(), ask);
            std::for_each(keys.begin(), middle, ask);
            if (failed)
                wrong = true;
        });
    });
}

/// The seconds of `work`, during which `reload` runs again and again on another thread.
template <typename Reload, typename Work>
double while_reloading(Reload reload, Work work)
{
    const std::jthread reloads([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            reload();
    });
    return work();
}

constexpr auto whitelist_holds = [](u32 key) { return whitelist.search(&key) == 0; };

void against_abseil(benchmark::State& state, bool listed, bool reloading)
{
    const int threads = static_cast<int>(state.range(0));
    const key_row keys = different_keys(2 * 65536);
    const loaded_whitelist ours(keys);
    abseil_list peer;
    peer.reload(ours.path());
    const auto peer_holds = [&peer](u32 key) { return peer.holds(key); };

    // A round with reloads is to see several of them.
    const int passes = reloading ? 16 : 1;
    const auto half = keys.begin() + 65536;
    key_row asked;
    for (int i = 0; i < passes; ++i)
        asked.insert(asked.end(), listed ? keys.begin() : half, listed ? half : keys.end());
    std::shuffle(asked.begin(), asked.end(), std::mt19937(2));

    bench::team team(threads);
    std::atomic<bool> wrong = false;
    const auto ask_ours = [&] { return ask_all(team, threads, asked, listed, wrong, whitelist_holds); };
    const auto ask_peer = [&] { return ask_all(team, threads, asked, listed, wrong, peer_holds); };
    constexpr const char* peer_name = "absl set, shared_mutex";
    if (reloading)
        bench::alternate(
            state, peer_name, asked.size(),
            [&] { return while_reloading([] { whitelist.reload(); }, ask_ours); },
            [&] { return while_reloading([&] { peer.reload(ours.path()); }, ask_peer); });
    else
        bench::alternate(state, peer_name, asked.size(), ask_ours, ask_peer);
    if (wrong)
        state.SkipWithError("FAILED: a lookup gave the wrong answer");
}

/// The `most` keys at the end of the list, or as many that are not listed.
void against_linear(benchmark::State& state, const key_row& keys, std::size_t most, bool listed)
{
    const loaded_whitelist ours(keys);
    const auto half = keys.begin() + std::ssize(keys) / 2;
    linear_list peer({keys.begin(), half});
    const auto last = listed ? half : keys.end();
    const key_row asked(last - static_cast<std::ptrdiff_t>(most), last);

    bench::team team(1);
    std::atomic<bool> wrong = false;
    bench::alternate(
        state, "linear walk, shared_mutex", asked.size(),
        [&] { return ask_all(team, 1, asked, listed, wrong, whitelist_holds); },
        [&] { return ask_all(team, 1, asked, listed, wrong, [&peer](u32 key) { return peer.holds(key); }); });
    if (wrong)
        state.SkipWithError("FAILED: a lookup gave the wrong answer");
}

void reload(benchmark::State& state)
{
    const loaded_whitelist ours(different_keys(2 * static_cast<std::size_t>(state.range(0))));
    abseil_list peer;
    bench::alternate(
        state, "file in one go into an absl set", 1,
        [] { return bench::seconds([] { whitelist.reload(); }); },
        [&] { return bench::seconds([&] { peer.reload(ours.path()); }); });
}

} // namespace

void bench::register_program_lists(const plan& plan)
{
    for (const bool listed : {true, false}) {
        const std::string answer = listed ? "hit" : "miss";
        benchmark::RegisterBenchmark(("list/" + answer + "/65536_keys/threads").c_str(), against_abseil,
                                     listed, false)
            ->Arg(1)
            ->Arg(2)
            ->Iterations(plan.rounds(101, 7))
            ->UseManualTime();
        benchmark::RegisterBenchmark(("list/" + answer + "/65536_keys/reloading/threads").c_str(),
                                     against_abseil, listed, true)
            ->Arg(1)
            ->Arg(2)
            ->Iterations(plan.rounds(51, 5))
            ->UseManualTime();
        benchmark::RegisterBenchmark(
            ("list/" + answer + "/1000_keys").c_str(),
            [listed](benchmark::State& state) { against_linear(state, different_keys(2000), 1000, listed); })
            ->Iterations(plan.rounds(101, 5))
            ->UseManualTime();
        benchmark::RegisterBenchmark(("list/" + answer + "/worst_case/20000_keys_in_one_bucket").c_str(),
                                     [listed](benchmark::State& state) {
                                         against_linear(state, keys_of_one_bucket(40000), 100, listed);
                                     })
            ->Iterations(plan.rounds(51, 3))
            ->UseManualTime();
    }
    benchmark::RegisterBenchmark("list/reload/keys", reload)
        ->Arg(1000)
        ->Arg(65536)
        ->Iterations(plan.rounds(101, 5))
        ->UseManualTime();
}
