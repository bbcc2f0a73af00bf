#include <sched.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/core.h>

#include "bench/benchmarks.h"
#include "bench/command.h"
#include "bench/directory.h"
#include "bench/ratio.h"
#include "session/session.h"

// Whole commands in a session against the same commands without one.

namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

/// What the shell finds under this name, links followed; empty when there is none.
std::string find_program(const std::string& name)
{
    FILE* answer = ::popen(("command -v " + name).c_str(), "r");
    char line[4096] = {};
    const bool found = std::fgets(line, sizeof line, answer) != nullptr;
    ::pclose(answer);
    std::string path = line;
    if (!found || path.front() != '/')
        return {};
    path.pop_back();
    return fs::canonical(path);
}

/// What the compiler starts as `name`.
std::string compiler_part(const std::string& name)
{
    return find_program("\"$(cc -print-prog-name=" + name + ")\"");
}

constexpr const char* exec_control = "2000\n";
constexpr const char* file_control = "0020\n";
constexpr const char* no_control = "0000\n"; // hooks are asked, and decide at once

/// Lines of the file tables, none of which is for anything that a benchmark does.
struct file_lines {
    std::string directories, user_rules;
};

file_lines largest_policy()
{
    constexpr int most_directories = 8193;
    file_lines lines;
    for (int n = 0; n < most_directories; ++n) {
        lines.directories += fmt::format("/srv/sites/{}/htdocs\n", n);
        lines.user_rules += fmt::format("/srv/sites/{}/htdocs:operator:7\n", n);
    }
    return lines;
}

/// An enforcing policy that admits the programs, the first of which is a shell.
class session_policy {
public:
    explicit session_policy(const words& programs, const std::string& modules = exec_control,
                            const file_lines& files = {})
    {
        fs::create_directory(work_ / "source");
        std::string whitelist;
        for (const std::string& program : programs)
            whitelist += program + "\n";
        work_.write("source/whitelist", whitelist);
        work_.write("source/statlabel", "3:enforcing\n");
        work_.write("source/modllabel", modules);
        work_.write("source/dirctl", files.directories);
        for (const char* table : {"dac", "priv", "appevp"})
            work_.write(std::string("source/") + table, files.user_rules);
        if (!fs::exists(SORVANIC_PROGRAM))
            problem_ = "skipped: there is no sorvanic program in this build";
        else if (bench::run_command(
                     {SORVANIC_PROGRAM, "policy", "build", work_ / "source", work_ / "policy"}) != 0)
            problem_ = "FAILED: sorvanic policy build";
        else if (const int status = run({programs.front(), "-c", "exit 7"}); status == session::exit_failure)
            problem_ = "skipped: no session can run on this machine";
        else if (status != 7)
            problem_ = "FAILED: exit status " + std::to_string(status) + " of a session";
    }

    /// Empty when sessions work.
    const std::string& problem() const { return problem_; }

    int run(const words& command) const
    {
        words whole = {SORVANIC_PROGRAM, "run",           "--policy", work_ / "policy",
                       "--state",        work_ / "state", "--quiet",  "--"};
        whole.insert(whole.end(), command.begin(), command.end());
        return bench::run_command(whole);
    }

private:
    bench::directory work_;
    std::string problem_;
};

/// The command in a session, and as the peer runs it; `prepare` is called before each, unmeasured.
template <typename Prepare>
void in_session(benchmark::State& state, const session_policy& policy, std::size_t items,
                const words& command, Prepare prepare, const words& peer = {},
                const char* peer_name = "the bare command")
{
    words peer_command = peer;
    peer_command.insert(peer_command.end(), command.begin(), command.end());
    if (!policy.problem().empty()) {
        state.SkipWithError(policy.problem().c_str());
        return;
    }
    int our_status = 0;
    int peer_status = 0;
    bench::alternate(
        state, peer_name, items,
        [&] {
            prepare();
            return bench::seconds([&] { our_status |= policy.run(command); });
        },
        [&] {
            prepare();
            return bench::seconds([&] { peer_status |= bench::run_command(peer_command); });
        });
    if (our_status != 0 || peer_status != 0)
        state.SkipWithError("FAILED: the command did not succeed");
}

words repeat(const std::string& command, std::size_t times)
{
    return {find_program("sh"), "-c",
            "i=0; while [ $i -lt " + std::to_string(times) + " ]; do i=$((i + 1)); " + command + "; done"};
}

void admitted(benchmark::State& state)
{
    const auto times = static_cast<std::size_t>(state.range(0));
    const std::string program = find_program("env"); // no shell has it built in
    const session_policy policy({find_program("sh"), program});
    in_session(state, policy, times, repeat(program, times), [] {});
}

/// Programs that cannot be executed: unlisted ones in the session, and without the permission
/// for both, so that bare fails too.
void refused(benchmark::State& state)
{
    const auto times = static_cast<std::size_t>(state.range(0));
    const bench::directory work;
    const std::string program = work / "unlisted";
    fs::copy_file(find_program("env"), program);
    std::ofstream(program, std::ios::app) << '\n';
    const session_policy policy({find_program("sh")});
    if (!policy.problem().empty()) {
        state.SkipWithError(policy.problem().c_str());
        return;
    }
    const words command = repeat("{ " + program + "; } 2>/dev/null && exit 1", times);
    int status = 0;
    const auto measure = [&](bool executable, auto run) {
        fs::permissions(program, executable ? fs::perms::owner_all : fs::perms::owner_read);
        return bench::seconds([&] { status |= run(command) != 126; });
    };
    bench::alternate(
        state, "bare, refused by the file's mode", times,
        [&] { return measure(true, [&](const words& whole) { return policy.run(whole); }); },
        [&] { return measure(false, [](const words& whole) { return bench::run_command(whole); }); });
    if (status != 0)
        state.SkipWithError("FAILED: the program was not refused");
}

/// This process, and what it starts, on one processor for a scope.
class one_processor {
public:
    one_processor()
    {
        sched_getaffinity(0, sizeof former_, &former_);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++cpu)
            if (CPU_ISSET(cpu, &former_))
                CPU_SET(cpu, &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~one_processor() { sched_setaffinity(0, sizeof former_, &former_); }
    one_processor(const one_processor&) = delete;
    one_processor& operator=(const one_processor&) = delete;

private:
    cpu_set_t former_;
};

void system_calls(benchmark::State& state, const std::string& what, bool against_strace)
{
    const auto times = static_cast<std::size_t>(state.range(0));
    const std::string shell = find_program("sh");
    const session_policy policy({shell}, no_control);
    const bench::directory work;
    constexpr std::size_t page_of_a_server = 16 << 10;
    work.write("file", std::string(page_of_a_server, 'x'));
    const words command = {shell, "-c",
                           "cd " + (work / "") + " && exec " + SORVANIC_MAKE_CALLS + " " + what + " " +
                               std::to_string(times)};
    const one_processor alone;
    if (!against_strace)
        return in_session(state, policy, times, command, [] {});
    const std::string strace = find_program("strace");
    if (strace.empty())
        return state.SkipWithError("skipped: there is no strace");
    const std::string calls = "trace=" + what.substr(0, what.find('_')) + ",openat,unlink";
    in_session(
        state, policy, times, command, [] {}, {strace, "-f", "--seccomp-bpf", "-o", "/dev/null", "-e", calls},
        "strace --seccomp-bpf of the call");
}

/// A session with file control and as large a policy as there is, against one with an empty policy.
void largest_against_empty(benchmark::State& state, const std::string& what)
{
    const auto times = static_cast<std::size_t>(state.range(0));
    const std::string shell = find_program("sh");
    const session_policy largest({shell}, file_control, largest_policy());
    const session_policy empty({shell}, file_control);
    if (!empty.problem().empty())
        return state.SkipWithError(empty.problem().c_str());
    const bench::directory work;
    work.write("file", "x");
    int status = 0;
    const one_processor alone;
    // Both sessions load their policy at the start, which is left out.
    const auto calls_in = [&](const session_policy& policy) {
        const auto run = [&](std::size_t calls) {
            return bench::seconds([&] {
                status |= policy.run({shell, "-c",
                                      "cd " + (work / "") + " && exec " + SORVANIC_MAKE_CALLS + " " + what +
                                          " " + std::to_string(calls)});
            });
        };
        const double start = run(1);
        return run(times + 1) - start;
    };
    bench::alternate(
        state, "a session with an empty policy", times, [&] { return calls_in(largest); },
        [&] { return calls_in(empty); });
    if (status != 0)
        state.SkipWithError("FAILED: the command did not succeed");
}

void compile_large(benchmark::State& state, const char* modules)
{
    const words programs = {find_program("sh"), find_program("g++"), compiler_part("cc1plus"),
                            compiler_part("as")};
    if (programs[1].empty())
        return state.SkipWithError("skipped: there is no C++ compiler");
    const bench::directory work;
    work.write("large.cpp", "#include <regex>\n#include <string>\nbool f(const std::string& s) "
                            "{ return std::regex_match(s, std::regex(\"a*b|c\")); }\n");
    const session_policy policy(programs, modules);
    in_session(state, policy, 1, {programs[1], "-O2", "-c", "-o", work / "large.o", work / "large.cpp"},
               [] {});
}

void make_job(benchmark::State& state, const char* modules)
{
    const words programs = {find_program("sh"), find_program("make"), find_program("cc"),
                            compiler_part("cc1"), compiler_part("as")};
    for (const std::string& program : programs)
        if (program.empty()) {
            state.SkipWithError("skipped: make or a C compiler is missing");
            return;
        }
    const auto files = static_cast<int>(state.range(0));
    const bench::directory work;
    work.write("Makefile", "all: $(patsubst %.c,%.o,$(wildcard *.c))\n%.o: %.c\n\tcc -c -O1 -o $@ $<\n");
    for (int i = 0; i < files; ++i) {
        const std::string number = std::to_string(i);
        work.write("part_" + number + ".c",
                   fmt::format("int part_{0}(int x) {{ return x * {0}; }}\n", number));
    }
    const session_policy policy(programs, modules);
    in_session(state, policy, 1, {"make", "-s", "-j2", "-C", work / ""}, [&] {
        for (int i = 0; i < files; ++i)
            fs::remove(work / ("part_" + std::to_string(i) + ".o"));
    });
}

} // namespace

void bench::register_session(const plan& plan)
{
    benchmark::RegisterBenchmark("session/fork_and_exec/programs", admitted)
        ->Arg(plan.smoke ? 20 : 300)
        ->Iterations(plan.rounds(15, 1))
        ->UseManualTime();
    benchmark::RegisterBenchmark("session/refused_exec/programs", refused)
        ->Arg(plan.smoke ? 20 : 300)
        ->Iterations(plan.rounds(15, 1))
        ->UseManualTime();
    for (const char* what :
         {"stat", "open_close", "create_unlink", "rename", "serve_file", "watch", "signal"})
        benchmark::RegisterBenchmark(("session/one_cpu/" + std::string(what)).c_str(), system_calls, what,
                                     false)
            ->Arg(plan.smoke ? 100 : 20'000)
            ->Iterations(plan.rounds(7, 1))
            ->UseManualTime();
    for (const char* what : {"open_close", "create_unlink"})
        benchmark::RegisterBenchmark(("session/largest_policy/" + std::string(what)).c_str(),
                                     largest_against_empty, what)
            ->Arg(plan.smoke ? 100 : 20'000)
            ->Iterations(plan.rounds(7, 1))
            ->UseManualTime();
    benchmark::RegisterBenchmark("session/one_cpu/open_close/strace", system_calls, "open_close", true)
        ->Arg(plan.smoke ? 100 : 20'000)
        ->Iterations(plan.rounds(7, 1))
        ->UseManualTime();
    for (const auto& [suffix, modules] : {std::pair{"", exec_control}, {"/undigested", no_control}}) {
        benchmark::RegisterBenchmark(("session/make_j2/files" + std::string(suffix)).c_str(), make_job,
                                     modules)
            ->Arg(plan.smoke ? 4 : 24)
            ->Iterations(plan.rounds(7, 1))
            ->UseManualTime();
        if (!plan.smoke)
            benchmark::RegisterBenchmark(("session/large_cpp" + std::string(suffix)).c_str(), compile_large,
                                         modules)
                ->Iterations(plan.rounds(5, 1))
                ->UseManualTime();
    }
}
