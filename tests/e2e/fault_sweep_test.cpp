#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

#include "tests/e2e/session_fixture.h"

// The host refuses the supervisor what it asks for: one system call after the other fails, with each error
// that it may have. What the policy refuses stays refused, and the session ends by itself and leaves nothing
// behind.
//
// strace makes them fail, as a tracer of the supervisor alone. Not in the table: calls whose failure the
// kernel does not know (close, munmap, rt_sigprocmask), as the supervisor would be left in a state that never
// is.

namespace e2e {

namespace {

struct failing_call {
    const char* name;
    std::vector<const char*> errors; ///< the likeliest first
    bool lasts = false;              ///< the cause may stay, so that all later ones fail as well
};

/// While it decides: all its threads.
const std::vector<failing_call> while_it_runs = {
    {"openat", {"EMFILE", "ENOMEM", "EACCES", "EIO", "ENFILE", "EINTR"}, true},
    {"openat2", {"EMFILE", "ENOMEM", "EIO", "ENFILE", "EAGAIN"}, true},
    {"read", {"EIO", "ENOMEM", "EINTR"}, true},
    {"pread64", {"EIO", "ENOMEM", "EINTR"}, true},
    {"newfstatat", {"ENOMEM", "EIO"}, true},
    {"statx", {"ENOMEM", "EIO"}, true},
    {"fstatfs", {"EIO", "ENOMEM"}, true},
    {"readlinkat", {"ENOMEM", "EIO"}, true},
    {"readlink", {"ENOMEM", "EACCES"}, true},
    {"process_vm_readv", {"ENOMEM", "EPERM"}, true},
    {"pidfd_open", {"EMFILE", "ENOMEM"}, true},
    {"pidfd_getfd", {"EMFILE", "EPERM"}, true},
    {"pidfd_send_signal", {"ENOMEM", "EAGAIN"}},
    {"kill", {"EAGAIN"}},
    {"ioctl", {"ENOMEM", "EINTR", "EMFILE"}},
    {"ptrace", {"EIO", "EPERM", "ENOMEM"}},
    {"wait4", {"EINTR"}},
    {"poll", {"ENOMEM", "EINTR"}},
    {"fcntl", {"EMFILE", "EAGAIN", "ENOLCK"}, true},
    {"faccessat2", {"ENOMEM", "EIO"}, true},
    {"getxattr", {"ENOMEM", "EIO"}, true},
    {"prlimit64", {"EPERM"}},
    {"write", {"ENOSPC", "EIO"}},
    {"fallocate", {"ENOSPC", "EIO"}, true},
    {"rename", {"ENOSPC", "EIO"}, true},
    {"fchmod", {"EIO"}},
    {"mmap", {"ENOMEM"}},
    {"mprotect", {"ENOMEM"}},
    {"clone3", {"EAGAIN", "ENOMEM"}, true},
    {"recvfrom", {"ENOMEM"}},
    {"recvmsg", {"ENOMEM", "EINTR"}},
    {"setfsuid", {"EPERM"}},
    {"setfsgid", {"EPERM"}},
    {"setgroups", {"ENOMEM", "EPERM"}, true},
    {"capset", {"EPERM"}},
    {"dup", {"EMFILE"}},
    {"unlinkat", {"EIO", "ENOMEM"}, true},
    {"renameat2", {"ENOMEM", "EIO"}, true},
    {"mkdirat", {"ENOSPC", "EIO"}, true},
    {"symlinkat", {"ENOSPC", "EIO"}, true},
    {"fchmodat", {"EIO"}},
    {"truncate", {"EIO"}},
};

/// From its first instruction on: its first thread, which also follows births and ends.
const std::vector<failing_call> as_it_starts = {
    {"openat", {"EMFILE", "EACCES", "EIO"}, true},
    {"read", {"EIO"}, true},
    {"newfstatat", {"ENOMEM", "EIO"}, true},
    {"readlink", {"ENOMEM"}, true},
    {"mkdir", {"ENOSPC", "EACCES"}, true},
    {"write", {"ENOSPC", "EIO"}},
    {"fallocate", {"ENOSPC"}, true},
    {"rename", {"ENOSPC"}, true},
    {"fchmod", {"EIO"}},
    {"ftruncate", {"EIO"}},
    {"flock", {"ENOLCK"}},
    {"mprotect", {"ENOMEM"}},
    {"clone", {"EAGAIN", "ENOMEM"}, true},
    {"clone3", {"EAGAIN", "ENOMEM"}, true},
    {"socketpair", {"EMFILE"}},
    {"socket", {"EMFILE", "EPROTONOSUPPORT"}, true},
    {"bind", {"EADDRINUSE", "ENOMEM"}},
    {"setsockopt", {"ENOMEM"}},
    {"eventfd2", {"EMFILE"}},
    {"epoll_create1", {"EMFILE"}},
    {"epoll_ctl", {"ENOMEM"}},
    {"pidfd_open", {"EMFILE", "ENOSYS"}, true},
    {"recvmsg", {"ENOMEM"}},
    {"prctl", {"EPERM"}},
    {"prlimit64", {"EPERM"}},
    {"ptrace", {"EPERM", "EIO"}},
    {"wait4", {"EINTR"}},
    {"getxattr", {"EIO"}, true},
    {"statx", {"ENOMEM"}, true},
    {"ioctl", {"ENOMEM"}},
    {"fcntl", {"EMFILE"}, true},
};

/// Which of the calls fail, in each thread: strace's way to say it.
const std::vector<const char*> one = {"2", "1", "3", "4", "5", "7", "9", "12", "17", "25"};
const std::vector<const char*> more = {"1+", "1+2", "2+3", "5+7", "17+"};

constexpr const char* mark_of_ours = "SORVANIC_FAULT_SWEEP_OF";

bool whole_sweep()
{
    const char* const wanted = std::getenv("SORVANIC_FAULT_SWEEP");
    return wanted != nullptr && std::string_view(wanted) == "all";
}

/// The processes that have inherited the variable `mark_of_ours` with this value.
std::vector<pid_t> left_behind(const std::string& value)
{
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 1 &&
            read_file(entry.path() / "environ").find(mark_of_ours + ("=" + value)) != std::string::npos)
            found.push_back(pid);
    }
    return found;
}

class fault_sweep : public session_test {
protected:
    void SetUp() override
    {
        session_test::SetUp();
        if (IsSkipped())
            return;
        if (access("/usr/bin/strace", X_OK) != 0)
            GTEST_SKIP() << "this machine has no strace";
        victim("try_both");
        listed("protected", read_file(directory() / "try_both"));
        unlisted("unlisted", read_file(directory() / "try_both") + "unlisted");
        const std::string line = "#!" + (directory() / "try_both").string() + " ran\n";
        listed("listed_script", line);
        unlisted("unlisted_script", line + "# not on the list\n");
        encoded("dirctl", (directory() / "closed").string() + "\n");
        encoded("ptpylist", "protected\n");
        std::ofstream(directory() / "free") << "free\n";
        setenv(mark_of_ours, directory().c_str(), 1);
    }
    ~fault_sweep() override { unsetenv(mark_of_ours); }

    /// Files as before each session.
    void restore()
    {
        for (const char* gone : {"state", "closed", "self", "nobody", "go", "faults", "strace-says"})
            fs::remove_all(directory() / gone);
        for (const char* name : {"closed", "self", "nobody"}) {
            fs::create_directory(directory() / name);
            fs::permissions(directory() / name, fs::perms::all);
        }
        std::ofstream(directory() / "closed/file") << "closed\n";
        fs::permissions(directory() / "closed/file", fs::perms(0666));
    }

    command line() { return session({directory() / "try_both", directory()}, {"--stop-timeout", "1"}); }

    command strace(const failing_call& call, const char* error, const char* when) const
    {
        return {"/usr/bin/strace",
                "-qq",
                "-o",
                directory() / "faults",
                "-e",
                std::string("trace=") + call.name,
                "-e",
                std::string("inject=") + call.name + ":error=" + error + ":when=" + when};
    }

    /// Runs a session whose supervisor is traced once it runs.
    outcome run_attached(const command& injecting)
    {
        restore();
        child_process supervisor(line(), directory());
        EXPECT_TRUE(eventually([&] { return status_file("port").ends_with('\n'); }));
        command tracer = injecting;
        tracer.insert(tracer.end(), {"-f", "-p", std::to_string(supervisor.pid())});
        child_process attached(tracer, beside());
        EXPECT_TRUE(eventually([&] { return is_traced(supervisor.pid()); }));
        std::ofstream(directory() / "go").flush();
        const outcome told = supervisor.wait(30s);
        if (told.status == -1)
            supervisor.send(SIGKILL);
        attached.wait();
        return told;
    }

    /// Runs one that is traced from its start.
    outcome run_from_start(const command& injecting)
    {
        restore();
        std::ofstream(directory() / "go").flush();
        command whole = injecting;
        const command untraced = line();
        whole.insert(whole.end(), untraced.begin(), untraced.end());
        child_process supervisor(whole, directory());
        const outcome told = supervisor.wait(30s);
        if (told.status == -1)
            for (const pid_t each : left_behind(directory()))
                kill(each, SIGKILL);
        return told;
    }

    enum class traced { from_start, once_it_runs };

    outcome run(traced from, const command& injecting)
    {
        return from == traced::from_start ? run_from_start(injecting) : run_attached(injecting);
    }

    /// What is wrong with how it ended; empty when nothing is.
    std::string faults_of(const outcome& told, const std::string& undisturbed)
    {
        std::ostringstream wrong;
        std::istringstream lines(told.out);
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with("refused ") && line.ends_with(": done"))
                wrong << line << "\n";
        if (read_file(directory() / "closed/file") != "closed\n" ||
            std::distance(fs::directory_iterator(directory() / "closed"), {}) != 1 ||
            fs::status(directory() / "closed/file").permissions() != fs::perms(0666))
            wrong << "the closed directory was changed\n";
        if (told.status == -1)
            wrong << "the session does not end\n";
        // The platform says why when it ends the process.
        const bool on_purpose = told.err.find("platform: ") != std::string::npos;
        for (const int crash : {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE})
            if (told.status == 128 + crash && !on_purpose)
                wrong << "the supervisor crashed\n";
        if (told.status == 0 && told.out != undisturbed)
            wrong << "the exit status hides a failure\n";
        if (!left_behind(directory()).empty() &&
            !eventually([&] { return left_behind(directory()).empty(); }, 2s))
            wrong << "a process is left\n";
        return wrong.str();
    }

    static std::vector<const char*> failing(const failing_call& call, std::string_view error)
    {
        if (!whole_sweep())
            return {one.front()};
        std::vector<const char*> all = one;
        if (call.lasts && error != "EINTR")
            all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    bool has_failed_calls() const
    {
        return read_file(directory() / "faults").find("(INJECTED)") != std::string::npos;
    }

    void sweep(const std::vector<failing_call>& calls, traced from)
    {
        restore();
        std::ofstream(directory() / "go").flush();
        child_process undisturbed_session(line(), directory());
        const outcome undisturbed = undisturbed_session.wait();
        ASSERT_EQ(undisturbed.status, 0) << undisturbed.out << undisturbed.err;
        const char* const only = std::getenv("SORVANIC_FAULT_CALL");
        int failed_calls = 0;
        for (const failing_call& call : calls) {
            if (only != nullptr && std::string_view(only) != call.name)
                continue;
            for (std::size_t error = 0; error < (whole_sweep() ? call.errors.size() : 1); ++error) {
                for (const char* const when : failing(call, call.errors[error])) {
                    const outcome told = run(from, strace(call, call.errors[error], when));
                    const std::string wrong = faults_of(told, undisturbed.out);
                    EXPECT_EQ(wrong, "") << call.name << " fails with " << call.errors[error] << ", when "
                                         << when << ": status " << told.status << "\n"
                                         << told.out << told.err;
                    failed_calls += has_failed_calls() ? 1 : 0;
                }
            }
        }
        EXPECT_GT(failed_calls, 0);
        RecordProperty("sessions_with_failed_calls", failed_calls);
    }

private:
    static bool is_traced(pid_t process)
    {
        std::error_code gone;
        const fs::directory_iterator threads("/proc/" + std::to_string(process) + "/task", gone);
        return !gone && std::all_of(begin(threads), end(threads), [](const fs::directory_entry& thread) {
            return read_file(thread.path() / "status").find("TracerPid:\t0\n") == std::string::npos;
        });
    }
};

TEST_F(fault_sweep, nothing_refused_is_allowed_when_a_call_of_its_start_fails)
{
    sweep(as_it_starts, traced::from_start);
}

TEST_F(fault_sweep, nothing_refused_is_allowed_when_a_call_of_a_decision_fails)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may trace a running supervisor";
    sweep(while_it_runs, traced::once_it_runs);
}

} // namespace

} // namespace e2e
