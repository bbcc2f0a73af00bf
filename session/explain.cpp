#include "session/explain.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "channel/wire.h"
#include "core/entry.h"
#include "host/text.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/tasks.h"
#include "session/calls/calls.h"
#include "session/calls/question.h"
#include "session/exec/exec_decision.h"
#include "session/state/decision_log.h"
#include "session/state/decision_words.h"
#include "session/state/policy_directory.h"
#include "session/state/refusals.h"
#include "session/state/trouble.h"
#include "session/task/program_file.h"

namespace session {

namespace {

constexpr int first_parent = 4'194'305; // ids that Linux never gives

/// Keeps every decision.
class collector : public decision_listener {
public:
    collector(std::vector<explained_step>& into, const source_lines& sources, std::string comm)
        : into_(into), sources_(sources), comm_(std::move(comm))
    {
        tell_decisions_to(this);
    }
    ~collector() override { tell_decisions_to(nullptr); }

    bool takes(const kernel::decision&) const override { return true; }

    void add(const kernel::decision& made, const judged_event& about) override
    {
        explained_step step;
        step.access = fmt::format("{} {}{}", about.access, host::visible(about.object),
                                  about.second.empty() ? "" : " as " + host::visible(about.second));
        step.reason = about.reason.empty() ? reason_of(made) : about.reason;
        step.place = place_of(made, sources_);
        step.refused = made.refused;
        step.refusing = made.refused || made.refusing;
        if (step.refusing) {
            step.change = change_for(made, about, comm_);
            step.to_allow = in_words(step.change, made, about);
        }
        into_.push_back(std::move(step));
    }

private:
    std::vector<explained_step>& into_;
    const source_lines& sources_;
    const std::string comm_;
};

/// Nobody waits for these answers.
class no_listener : public listener {
public:
    int receive(seccomp_notif&) override { return ENOSYS; }
    bool ended() override { return true; }
    int send(const seccomp_notif_resp&) override { return ENOSYS; }
    int hand_over(std::uint64_t, int, bool) override { return ENOSYS; }
    bool is_waiting(std::uint64_t) override { return true; }
};

/// A process of that command name that does nothing, for the time of an explanation.
class idle_process {
public:
    explicit idle_process(const std::string& name)
    {
        char own[16] = {};
        prctl(PR_GET_NAME, own);
        prctl(PR_SET_NAME, name.c_str()); // before the fork, so that it has the name from the start
        pid_ = fork();
        if (pid_ != 0)
            prctl(PR_SET_NAME, own);
        if (pid_ < 0)
            throw trouble(fmt::format("no process for the receiver: {}", host::error_text(errno)));
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;)
                pause();
        }
    }
    ~idle_process()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    idle_process(const idle_process&) = delete;
    idle_process& operator=(const idle_process&) = delete;
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

bool is_number(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string command_name_of(const std::string& program)
{
    constexpr std::size_t longest = 15;
    return program.substr(program.rfind('/') + 1).substr(0, longest);
}

platform::file_handle program_file(const std::string& path)
{
    const unique_fd file(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!file)
        throw trouble(fmt::format("{}: {}", host::visible(path), host::error_text(errno)));
    return pinned_file(file.get(), path_of(file.get()));
}

void add_task(pid_t pid, pid_t parent, const std::string& program)
{
    const bool named = program.find('/') == std::string::npos;
    const platform::file_handle file = program_file(named ? "/proc/self/exe" : program);
    if (!platform::add_task(pid, parent, command_name_of(program), file.get()))
        throw trouble(fmt::format("process id {} is taken", pid));
}

std::uint64_t address(const std::string& text)
{
    return reinterpret_cast<std::uintptr_t>(text.c_str());
}

/// A call as a task would make it. The texts must outlive it.
seccomp_notif system_call(const explained_call& call, pid_t receiver)
{
    const std::uint64_t object = address(call.object);
    const std::uint64_t second = address(call.second);
    const std::uint64_t here = static_cast<std::uint32_t>(AT_FDCWD);
    constexpr std::uint64_t new_mode = 0777;
    const std::uint64_t access =
        static_cast<unsigned>(call.writes ? call.reads ? O_RDWR : O_WRONLY : O_RDONLY);
    struct stat about = {};
    const bool is_directory = lstat(call.object.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
    const auto number = static_cast<std::uint64_t>(call.number);
    struct form {
        std::string_view what;
        int number;
        std::array<std::uint64_t, 6> arguments;
    };
    const form known[] = {
        {"exec", SYS_execve, {object}},
        {"open", SYS_openat, {here, object, access}},
        {"create", SYS_openat, {here, object, O_WRONLY | O_CREAT, new_mode}},
        {"delete", SYS_unlinkat, {here, object, is_directory ? std::uint64_t{AT_REMOVEDIR} : 0}},
        {"rename", SYS_renameat2, {here, object, here, second}},
        {"link", SYS_linkat, {here, object, here, second}},
        {"symlink", SYS_symlinkat, {second, here, object}},
        {"mkdir", SYS_mkdirat, {here, object, new_mode}},
        {"chmod", SYS_fchmodat, {here, object, number}},
        {"signal", SYS_kill, {static_cast<std::uint64_t>(receiver), number}},
    };
    const auto* const found = std::ranges::find(known, call.what, &form::what);
    if (found == std::end(known))
        throw trouble(fmt::format("there is no call {}", host::visible(call.what)));
    seccomp_notif made = {};
    made.pid = static_cast<std::uint32_t>(getpid());
    made.data.nr = found->number;
    std::ranges::copy(found->arguments, std::begin(made.data.args));
    return made;
}

void report_login(pid_t pid, const std::string& user)
{
    constexpr std::uint32_t password_is_set = 1;
    const login_request request = {policy_login, static_cast<std::uint32_t>(pid), password_is_set};
    const wire_header header = {static_cast<std::uint32_t>(sizeof header + sizeof request + user.size() + 1),
                                message_policy, 0, 0, 0};
    std::string message(reinterpret_cast<const char*>(&header), sizeof header);
    message.append(reinterpret_cast<const char*>(&request), sizeof request);
    message.append(user.c_str(), user.size() + 1);
    const platform::netlink_peer answered(static_cast<std::uint32_t>(pid));
    platform::netlink_send(message, pid);
}

} // namespace

/// The stand-in kernel with the engine in it.
class explainer::machine {
public:
    explicit machine(const std::string& policy)
    {
        check_policy_directory(policy);
        platform::unmount_all();
        platform::mount_directory("/", "/");
        platform::mount_directory("/etc/sorvanic", policy);
        platform::mount_memory("/etc/sorvanic/kernel");
        platform::mount_memory("/var/log");
        platform::serve_text("/proc/kallsyms", platform::symbol_text());
        platform::use_netlink_bus();
        platform::set_kernel_log([](std::string_view) {});
        if (sorvanic_init() != 0)
            throw trouble("the engine did not start with this policy");
    }
    ~machine()
    {
        platform::reset_tasks();
        platform::empty_inode_cache();
        sorvanic_exit();
        platform::unmount_all();
        platform::set_kernel_log({});
    }
    machine(const machine&) = delete;
    machine& operator=(const machine&) = delete;
};

bool explanation::refused() const
{
    return std::ranges::any_of(steps, &explained_step::refused);
}

bool explanation::refusing() const
{
    return std::ranges::any_of(steps, &explained_step::refusing);
}

explainer::explainer(const std::string& policy, source_lines sources)
    : machine_(std::make_unique<machine>(policy)), sources_(std::move(sources))
{
}

explainer::~explainer() = default;

explanation explainer::explain(const explained_call& call)
{
    const pid_t self = getpid();
    if (const platform::task_handle former = platform::find_task(self))
        platform::run_do_exit(former.get(), 0); // with its login
    platform::reset_tasks();
    pid_t parent = 1;
    for (std::size_t at = call.parents.size(); at > 0; --at) {
        const pid_t id = first_parent + static_cast<pid_t>(at);
        add_task(id, parent, call.parents[at - 1]);
        parent = id;
    }
    add_task(self, parent, call.program);
    if (!call.user.empty())
        report_login(self, call.user);
    std::optional<idle_process> named;
    pid_t receiver = 0;
    if (call.what == "signal" && is_number(call.object))
        receiver = std::stoi(call.object);
    else if (call.what == "signal") {
        receiver = named.emplace(command_name_of(call.object)).pid();
        add_task(receiver, 1, call.object);
    }

    pending_execs pending;
    refusals told(false);
    known_tasks tasks;
    const held_directory nowhere("directory", "/proc/self");
    session_parts parts{pending, told, tasks, nowhere, nowhere, session_rules()};
    no_listener nobody;
    const seccomp_notif made = system_call(call, receiver);
    const call_rule* const rule = notified_rule(made.data.nr, made.data.args, parts.rules);
    explanation result;
    if (rule == nullptr)
        return result;
    notification waiting(made, nobody, parts);
    planned way = rule->planner(waiting);
    if (!way) {
        result.error = static_cast<int>(-way.error().value);
        return result;
    }
    result.error = way->rights ? way->rights() : 0;
    const collector heard(result.steps, sources_, command_name_of(call.program));
    if (call.what == "exec" && way->carry_out)
        way->carry_out(); // which only decides
    else
        each_allowed(waiting, way->questions);
    return result;
}

} // namespace session
