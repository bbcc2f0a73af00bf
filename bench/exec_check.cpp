#include <fcntl.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/directory.h"
#include "bench/loaded_engine.h"
#include "bench/ratio.h"
#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/objects.h"
#include "platform/user/driver/tasks.h"

// One execution check through the hook, in this process. Its peer is nothing but the digest of
// the same file: the ratio is the digest's share of the check.

namespace {

constexpr int shell = 100; // 1 ── 98 ── 99 ── 100, each running /bin/shell

std::uint32_t key_of(const std::string& path)
{
    kernel::u8 digest[md5_digest_size] = {};
    kernel::u32 key = 0;
    sorvanic_kernel_md5sum_module.handler(path.c_str(), digest);
    sorvanic_common_make_16to4(digest, &key);
    return key;
}

std::string keys(const std::vector<std::uint32_t>& list)
{
    return {reinterpret_cast<const char*>(list.data()), list.size() * sizeof(std::uint32_t)};
}

/// An enforcing machine with a shell that starts programs of one size.
class exec_machine {
public:
    exec_machine(std::size_t size, const std::vector<std::uint32_t>& super_processes)
    {
        platform::mount_directory("/bin", programs_ / "");
        for (const char* name : {"shell", "white", "black", "unknown"}) {
            std::string content(size, '\0');
            for (std::size_t i = 0; i < size; ++i)
                content[i] = static_cast<char>(i * 167 + i / 251);
            programs_.write(name, name + content);
        }
        module_.write("whitelist", keys({key_of("/bin/white"), key_of("/bin/shell")}));
        module_.write("blacklist", keys({key_of("/bin/black")}));
        module_.write("supertrustfile", keys(super_processes));
        module_.write("statlabel", "Mw==");     // 3: enforcing
        module_.write("modllabel", "MjAwMA=="); // 2000: execution control
        module_.load();
        const platform::file_handle program = open("shell");
        for (int pid = shell - 2; pid <= shell; ++pid)
            platform::add_task(pid, pid == shell - 2 ? 1 : pid - 1, "shell", program.get());
    }
    ~exec_machine() { platform::reset_tasks(); }

    platform::file_handle open(const std::string& name) const
    {
        return platform::make_pinned_file(
            host::unique_fd(::open((programs_ / name).c_str(), O_PATH | O_CLOEXEC)), "/bin/" + name);
    }

private:
    bench::directory programs_;
    bench::loaded_engine module_;
};

/// The seconds of `repeats` checks. A wrong answer is put into `problem`.
double checks(const platform::exec_parameters& exec, bool admitted, std::size_t repeats, std::string& problem)
{
    const platform::task_handle task = platform::find_task(shell);
    return bench::seconds([&] {
        for (std::size_t i = 0; i < repeats; ++i) {
            const platform::event running(task.get());
            if ((platform::call_bprm_check_security(exec.get()) == 0) != admitted)
                problem = "FAILED: a wrong verdict";
        }
    });
}

std::size_t repeats_for(std::size_t size)
{
    return 1 + 500'000 / (size + 10'000);
}

void one_check(benchmark::State& state, const std::string& name)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const exec_machine machine(size, {});
    const platform::exec_parameters exec(machine.open(name).get(), "/bin/" + name);
    const std::size_t repeats = repeats_for(size);
    std::string problem;
    kernel::u8 digest[md5_digest_size] = {};
    bench::alternate(
        state, "the digest alone", repeats, [&] { return checks(exec, name == "white", repeats, problem); },
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < repeats; ++i)
                    sorvanic_kernel_md5sum_module.handler(("/bin/" + name).c_str(), digest);
            });
        });
    if (!problem.empty())
        state.SkipWithError(problem.c_str());
}

/// With a list that holds nobody's key, both ancestors are digested before the white list is asked.
void without_super_processes(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::size_t repeats = repeats_for(size);
    std::string problem;
    const auto round = [&](const std::vector<std::uint32_t>& super_processes) {
        const exec_machine machine(size, super_processes);
        const platform::exec_parameters exec(machine.open("white").get(), "/bin/white");
        return checks(exec, true, repeats, problem);
    };
    bench::alternate(
        state, "a super process list of strangers", repeats, [&] { return round({}); },
        [&] { return round({0x01020304}); });
    if (!problem.empty())
        state.SkipWithError(problem.c_str());
}

} // namespace

void bench::register_exec_check(const plan& plan)
{
    for (const char* name : {"white", "black", "unknown"})
        benchmark::RegisterBenchmark((std::string("exec_check/") + name).c_str(), one_check, name)
            ->Arg(40'000)
            ->Arg(1'200'000)
            ->Iterations(plan.rounds(101, 5))
            ->UseManualTime();
    benchmark::RegisterBenchmark("exec_check/empty_super_process_list", without_super_processes)
        ->Arg(1'200'000)
        ->Iterations(plan.rounds(51, 3))
        ->UseManualTime();
}
