#include "session/engine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include <fmt/format.h>

#include "core/entry.h"
#include "host/text.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/objects.h"
#include "platform/user/driver/tasks.h"
#include "session/state/channel.h"
#include "session/state/notices.h"
#include "session/state/policy_directory.h"
#include "session/state/state_directory.h"
#include "session/state/trouble.h"
#include "session/task/caller.h"
#include "session/task/program_file.h"

namespace session {

void check_user(const std::string& user)
{
    constexpr std::size_t longest = 31;
    if (user.size() > longest)
        throw trouble(
            fmt::format("user name {} is longer than {} characters, the most that is recorded; give a "
                        "shorter one with --user",
                        host::visible(user), longest));
}

engine::engine(const options& wanted)
{
    check_user(wanted.user);
    check_policy_directory(wanted.policy);
    const std::string state = make_state_directory(wanted.state);
    policy_.emplace("policy directory", wanted.policy);
    state_.emplace("state directory", state);
    status_.emplace(*state_);
    open_log(wanted.log.empty() ? state + "/kernel.log" : wanted.log);

    platform::unmount_all();
    platform::mount_directory("/", "/");
    platform::mount_directory("/etc/sorvanic", policy_->link());
    // Decoded policy text stays out of every disk, and readable to an unprivileged supervisor.
    platform::mount_memory("/etc/sorvanic/kernel");
    platform::mount_directory("/var/log", state_->link() + "/log");
    platform::serve_text("/proc/kallsyms", platform::symbol_text());
    platform::watch_reads_below("/etc/sorvanic");
    port_ = prepare_channel(wanted);
    const unsigned long unread = platform::reads_that_failed().count;
    if (sorvanic_init() != 0)
        throw trouble(fmt::format("the engine did not start; the kernel log tells why: {}",
                                  host::visible(wanted.log.empty() ? state + "/kernel.log" : wanted.log)));
    if (const platform::failed_reads now = platform::reads_that_failed(); now.count != unread)
        throw trouble(fmt::format("policy files cannot be read: {}", host::error_text(now.error)));
}

engine::~engine()
{
    platform::empty_inode_cache();
    sorvanic_exit();
    platform::reset_tasks();
    platform::unmount_all();
    platform::use_netlink_bus();
    platform::set_kernel_log({});
}

void engine::open_log(const std::string& path)
{
    if (path == "-") {
        platform::set_kernel_log([](std::string_view text) { show(std::string(text)); });
        return;
    }
    log_.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
    if (!log_)
        throw trouble(fmt::format("kernel log {}: {}; name another file with --log", host::visible(path),
                                  host::error_text(errno)));
    platform::set_kernel_log([this](std::string_view text) { log(text); });
}

void engine::log(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(log_.get(), text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return lost_.add(losses::kind::kernel_log, written < 0 ? errno : ENOSPC);
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void engine::add_first_process(pid_t process)
{
    const caller supervisor(getpid());
    const unique_fd program = supervisor.program();
    platform::file_handle file;
    if (program)
        file = pinned_file(program.get(), path_of(program.get()));
    if (!platform::add_task(process, 1, "sorvanic", file.get()))
        throw trouble(fmt::format("process id {} is already in the process table", process));
}

} // namespace session
