#include "tests/e2e/session_fixture.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tests/support/machine.h"

namespace e2e {

namespace {

constexpr const char* places = "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";

/// Why no session can run on this machine; empty when one can.
std::string forbidden()
{
    const pid_t child = fork();
    if (child == 0) {
        // Waits to be traced, then tries a filter with a listener.
        raise(SIGSTOP);
        sock_filter allow = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
        const sock_fprog program = {1, &allow};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        const long listener =
            syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                    SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, &program);
        _exit(listener < 0 ? errno : 0);
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    const bool traced = ptrace(PTRACE_SEIZE, child, nullptr, 0) == 0;
    const int error = errno;
    kill(child, SIGCONT);
    while (waitpid(child, &status, 0) == child && WIFSTOPPED(status))
        ptrace(PTRACE_CONT, child, nullptr, 0);
    if (!traced)
        return std::string("this machine forbids ptrace: ") + std::strerror(error);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::string("this machine forbids seccomp listeners: ") + std::strerror(WEXITSTATUS(status));
    return "";
}

void add_key(std::string& list, const std::string& content)
{
    const std::uint32_t key = support::key_of(content);
    list.append(reinterpret_cast<const char*>(&key), sizeof key);
}

void write(const fs::path& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace

std::vector<uid_t> users()
{
    if (geteuid() == 0)
        return {0, nobody};
    return {0};
}

std::size_t count_of(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

session_test::session_test()
{
    fs::permissions(directory(), fs::perms::all);
    fs::create_directory(policy());
}

void session_test::SetUp()
{
    static const std::string reason = forbidden();
    if (!reason.empty())
        GTEST_SKIP() << reason;
}

fs::path session_test::unlisted(const std::string& name, const std::string& content)
{
    fs::path path = directory() / name;
    write(path, content);
    fs::permissions(path, fs::perms(0755));
    return path;
}

fs::path session_test::listed(const std::string& name, const std::string& content)
{
    add_key(white_, content);
    return unlisted(name, content);
}

fs::path session_test::victim(const std::string& name)
{
    return listed(name, read_file(fs::path(VICTIM_DIRECTORY) / name));
}

fs::path session_test::of_machine(const std::string& name)
{
    if (const auto known = of_machine_.find(name); known != of_machine_.end())
        return known->second;
    std::istringstream path(places);
    for (std::string place; std::getline(path, place, ':');) {
        fs::path found = fs::path(place) / name;
        if (!fs::exists(found))
            continue;
        add_key(white_, read_file(found));
        return of_machine_[name] = found;
    }
    throw std::runtime_error("this machine has no " + name);
}

command session_test::shell(const std::string& script, const command& tools)
{
    of_machine("sleep");
    std::ranges::for_each(tools, [this](const std::string& tool) { of_machine(tool); });
    return {of_machine("sh"), "-c",
            std::string("PATH=") + places + "; cd '" + directory().string() + "'; " + script};
}

command session_test::as_nobody(const command& run)
{
    command line = {of_machine("setpriv"), "--reuid", "65534", "--regid", "65534", "--clear-groups"};
    line.insert(line.end(), run.begin(), run.end());
    return line;
}

fs::path session_test::script(const std::string& name) const
{
    fs::copy_file(fs::path(SORVANIC_SOURCE_DIR "/tests/e2e") / name, directory() / name,
                  fs::copy_options::skip_existing);
    return directory() / name;
}

std::string session_test::port() const
{
    EXPECT_TRUE(eventually([&] { return status_file("port").ends_with('\n'); }));
    return status_file("port").substr(0, status_file("port").find('\n'));
}

command session_test::client(const command& steps, const std::string& to)
{
    command line = {of_machine("python3"), script("netlink_client.py"), to};
    line.insert(line.end(), steps.begin(), steps.end());
    return line;
}

fs::path session_test::beside() const
{
    fs::create_directories(directory() / "beside");
    return directory() / "beside";
}

void session_test::enlist(const std::string& list, const fs::path& program)
{
    add_key(other_lists_[list], read_file(program));
}

void session_test::encoded(const std::string& name, const std::string& text)
{
    write(policy() / name, support::encode(text));
}

void session_test::write_policy()
{
    write(policy() / "whitelist", white_);
    for (const auto& [name, keys] : other_lists_)
        write(policy() / name, keys);
    encoded("statlabel", status + "\n");
    encoded("modllabel", "2222\n");
}

command session_test::session(const command& run, const command& options)
{
    write_policy();
    command line = {SORVANIC_PROGRAM, "run"};
    const auto is_given = [&](const char* option) {
        return std::ranges::find(options, option) != options.end();
    };
    if (!is_given("--policy"))
        line.insert(line.end(), {"--policy", policy()});
    if (!is_given("--state"))
        line.insert(line.end(), {"--state", directory() / "state"});
    if (!is_told && !is_given("--quiet"))
        line.emplace_back("--quiet");
    line.insert(line.end(), options.begin(), options.end());
    line.emplace_back("--");
    line.insert(line.end(), run.begin(), run.end());
    return line;
}

command session_test::in_root(const command& run) const
{
    const char* const script = R"(root=$1; shift
for place in /* /usr/*; do
    rmdir "$root$place" 2> /dev/null # where an earlier run has mounted
    if [ -e "$root$place" ]; then continue
    elif [ -L "$place" ]; then cp -P "$place" "$root$place"
    elif [ -d "$place" ]; then mkdir "$root$place" && mount --rbind "$place" "$root$place"
    fi
done
exec chroot "$root" "$@")";
    command line = {"/usr/bin/unshare", "-m", "/bin/sh", "-c", script, "sh", root()};
    line.insert(line.end(), run.begin(), run.end());
    return line;
}

outcome session_test::run_session(const command& run, const command& options, uid_t user)
{
    fs::remove_all(directory() / "state");
    child_process supervisor(session(run, options), directory(), user);
    return supervisor.wait();
}

} // namespace e2e
