#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/core.h>

#include "bench/benchmarks.h"
#include "bench/directory.h"
#include "bench/ratio.h"
#include "platform/user/driver/files.h"
#include "policy/base64.h"
#include "policy/dacctl.h"
#include "policy/dirctl.h"
#include "policy/path_rules.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "policy/ptpy.h"

// The tables of paths, rules and names, asked on every file access and signal: against the walk over all
// entries that their answer is defined by, from few entries to as many as a table takes.

namespace {

constexpr const char* user = "operator";

std::string encoded(std::string text)
{
    std::string all;
    constexpr std::size_t chunk = 996; // what the engine decodes at a time
    for (std::size_t at = 0; at < text.size(); at += chunk) {
        const std::string part = text.substr(at, chunk);
        std::string code(
            static_cast<std::size_t>(sorvanic_kernel_base64encode_len(static_cast<int>(part.size()))), '\0');
        code.resize(static_cast<std::size_t>(
            sorvanic_kernel_base64encode(code.data(), part.data(), static_cast<int>(part.size())) - 1));
        all += code;
    }
    return all;
}

std::string entry(std::size_t number)
{
    return fmt::format("/srv/www/sites/{}/htdocs", number);
}

std::string path_below(std::size_t number, bool listed)
{
    return fmt::format("/srv/www/{}/{}/htdocs/images/2026/logo.png", listed ? "sites" : "other", number);
}

/// A table, what its n-th entry is known by and its line, what to ask for to find that entry or none, the
/// lookup, and the walk's rule.
struct text_table {
    const char* file;
    std::string (*entry)(std::size_t number);
    std::string (*asked)(std::size_t number, bool listed);
    int (*init)();
    int (*reload)();
    int (*destroy)();
    std::string (*line)(std::size_t number);
    bool (*listed)(const std::string& asked);
    bool (*covers)(const std::string& of_entry, const std::string& asked);
};

bool covers_tree(const std::string& of_entry, const std::string& path)
{
    return in_tree(of_entry.c_str(), path.c_str());
}

std::string daemon_name(std::size_t number)
{
    return fmt::format("daemon-{}", number);
}

constexpr int every_bit = 7;

std::string user_rule_line(std::size_t number)
{
    return fmt::format("{}:{}:{}", entry(number), user, every_bit);
}

const text_table tables[] = {
    {"dirctl", entry, path_below, sorvanic_kernel_dirctl_module.init, sorvanic_kernel_dirctl_module.reload,
     sorvanic_kernel_dirctl_module.destroy, entry,
     [](const std::string& path) { return sorvanic_kernel_dirctl_module.search(path.c_str()) == 0; },
     covers_tree},
    {"dac", entry, path_below, sorvanic_kernel_dacctl_module.init, sorvanic_kernel_dacctl_module.reload,
     sorvanic_kernel_dacctl_module.destroy, user_rule_line,
     [](const std::string& path) {
         return sorvanic_kernel_dacctl_module.match(user, path.c_str(), every_bit) == dac_granted;
     },
     covers_tree},
    {"priv", entry, path_below, sorvanic_kernel_privctl_module.init, sorvanic_kernel_privctl_module.reload,
     sorvanic_kernel_privctl_module.destroy, user_rule_line,
     [](const std::string& path) {
         return sorvanic_kernel_privctl_module.match(user, path.c_str(), every_bit) == 0;
     },
     [](const std::string& of_entry, const std::string& path) {
         return is_prefix(of_entry.c_str(), path.c_str());
     }},
    {"appevp", entry, path_below, sorvanic_kernel_pracctl_module.init, sorvanic_kernel_pracctl_module.reload,
     sorvanic_kernel_pracctl_module.destroy, user_rule_line,
     [](const std::string& path) {
         return sorvanic_kernel_pracctl_module.match(path.c_str(), user, every_bit) == program_granted;
     },
     covers_tree},
    {"ptpylist", daemon_name,
     [](std::size_t number, bool listed) { return fmt::format("daemon-{}{}", number, listed ? "" : "x"); },
     sorvanic_kernel_ptpy_module.init, sorvanic_kernel_ptpy_module.reload,
     sorvanic_kernel_ptpy_module.destroy, daemon_name,
     [](const std::string& name) { return sorvanic_kernel_ptpy_module.search(name.c_str()) == 0; },
     [](const std::string& of_entry, const std::string& name) {
         return is_prefix(name.c_str(), of_entry.c_str());
     }},
};

class loaded_table {
public:
    loaded_table(const text_table& table, std::size_t entries) : table_(table)
    {
        platform::mount_memory("/etc/sorvanic/kernel");
        std::string text;
        for (std::size_t n = 0; n < entries; ++n)
            text += table.line(n) + "\n";
        policy_.write(table.file, encoded(text));
        table.init();
        table.reload();
    }
    ~loaded_table() { table_.destroy(); }
    loaded_table(const loaded_table&) = delete;
    loaded_table& operator=(const loaded_table&) = delete;

private:
    bench::mounted_directory policy_{"/etc/sorvanic"};
    const text_table& table_;
};

/// Lookups of paths in random order, below entries or below none.
void look_up(benchmark::State& state, const text_table& table, bool listed)
{
    const auto entries = static_cast<std::size_t>(state.range(0));
    const loaded_table ours(table, entries);
    std::vector<std::string> walked;
    for (std::size_t n = 0; n < entries; ++n)
        walked.push_back(table.entry(n));
    constexpr std::size_t lookups = 4000;
    constexpr std::size_t walks = 20;
    std::vector<std::string> asked;
    for (std::size_t n = 0; n < lookups; ++n)
        asked.push_back(table.asked(n * 7919 % entries, listed));

    bool wrong = false;
    bench::alternate(
        state, "linear walk", 1,
        [&] {
            return bench::seconds([&] {
                       for (const std::string& path : asked)
                           wrong |= table.listed(path) != listed;
                   }) /
                   lookups;
        },
        [&] {
            return bench::seconds([&] {
                       for (std::size_t n = 0; n < walks; ++n) {
                           bool found = false;
                           for (std::size_t at = 0; at < entries && !found; ++at)
                               found = table.covers(walked[at], asked[n]);
                           wrong |= found != listed;
                       }
                   }) /
                   walks;
        });
    if (wrong)
        state.SkipWithError("FAILED: a lookup gave the wrong answer");
}

void reload(benchmark::State& state, const text_table& table)
{
    const auto entries = static_cast<std::size_t>(state.range(0));
    const loaded_table ours(table, entries);
    bench::alternate(
        state, "as many lines into a vector", 1, [&] { return bench::seconds([&] { table.reload(); }); },
        [&] {
            return bench::seconds([&] {
                std::vector<std::string> lines;
                for (std::size_t n = 0; n < entries; ++n)
                    lines.push_back(table.line(n));
                benchmark::DoNotOptimize(lines.data());
            });
        });
}

} // namespace

void bench::register_text_tables(const plan& plan)
{
    for (const text_table& table : tables) {
        const std::string name = std::string("table/") + table.file;
        for (const int entries : {10, 1000, 8193}) {
            for (const auto& [which, listed] : {std::pair{"/hit", true}, {"/miss", false}})
                benchmark::RegisterBenchmark((name + which + "/entries").c_str(), look_up, table, listed)
                    ->Arg(entries)
                    ->Iterations(plan.rounds(11, 1))
                    ->UseManualTime();
            benchmark::RegisterBenchmark((name + "/reload/entries").c_str(), reload, table)
                ->Arg(entries)
                ->Iterations(plan.rounds(11, 1))
                ->UseManualTime();
        }
    }
}
