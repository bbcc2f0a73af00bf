#include <filesystem>
#include <optional>
#include <string>
#include <vector>

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

/// An enforcing policy that admits the programs.
class session_policy {
public:
    explicit session_policy(const words& programs)
    {
        fs::create_directory(work_ / "source");
        std::string whitelist;
        for (const std::string& program : programs)
            whitelist += program + "\n";
        work_.write("source/whitelist", whitelist);
        work_.write("source/statlabel", "3:enforcing\n");
        work_.write("source/modllabel", "2000\n");
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

/// The command in a session and bare; `prepare` is called before each, unmeasured.
template <typename Prepare>
void in_session(benchmark::State& state, const session_policy& policy, std::size_t items,
                const words& command, Prepare prepare)
{
    if (!policy.problem().empty()) {
        state.SkipWithError(policy.problem().c_str());
        return;
    }
    int our_status = 0;
    int peer_status = 0;
    bench::alternate(
        state, "the bare command", items,
        [&] {
            prepare();
            return bench::seconds([&] { our_status |= policy.run(command); });
        },
        [&] {
            prepare();
            return bench::seconds([&] { peer_status |= bench::run_command(command); });
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

void make_job(benchmark::State& state)
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
                   "int part_" + number + "(int x) { return x * " + number + "; }\n");
    }
    const session_policy policy(programs);
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
    benchmark::RegisterBenchmark("session/make_j2/files", make_job)
        ->Arg(plan.smoke ? 4 : 24)
        ->Iterations(plan.rounds(7, 1))
        ->UseManualTime();
}
