#include "replay/world.h"

#include <fmt/format.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "channel/wire.h"
#include "core/entry.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"

namespace replay {

namespace {

template <typename Fields>
std::string bytes_of(const Fields& fields)
{
    std::string bytes(sizeof fields, '\0');
    std::memcpy(bytes.data(), &fields, sizeof fields);
    return bytes;
}

std::string without_line_end(std::string_view text)
{
    return std::string(text.substr(0, text.find_last_not_of('\n') + 1));
}

std::string_view name_of(std::string_view path)
{
    return path.substr(path.rfind('/') + 1); // all of it when there is none
}

/// How the engine is asked about an operation on the object at the event's path.
int decide(const file_event& what, const tree& files)
{
    using enum file_operation;
    const bool on_object =
        what.operation == inode_permission || what.operation == file_permission || what.operation == setattr;
    const platform::dentry_handle entry =
        files.entry(what.path, on_object ? tree::last_link::followed : tree::last_link::meant);
    kernel::inode* const directory = tree::directory_of(entry);
    const int mode = static_cast<int>(what.mode);
    switch (what.operation) {
    case create:
        return platform::call_inode_create(directory, entry.get(), mode);
    case symlink:
        return platform::call_inode_symlink(directory, entry.get(), what.to.c_str());
    case unlink:
        return platform::call_inode_unlink(directory, entry.get());
    case mkdir:
        return platform::call_inode_mkdir(directory, entry.get(), mode);
    case rmdir:
        return platform::call_inode_rmdir(directory, entry.get());
    case link:
    case rename: {
        const platform::dentry_handle to = files.entry(what.to, tree::last_link::meant);
        kernel::inode* const new_directory = tree::directory_of(to);
        return what.operation == link
                   ? platform::call_inode_link(entry.get(), new_directory, to.get())
                   : platform::call_inode_rename(directory, entry.get(), new_directory, to.get());
    }
    case inode_permission: {
        kernel::inode* const asked = kernel::dentry_inode(entry.get());
        return asked != nullptr ? platform::call_inode_permission(asked, what.mask) : 0;
    }
    case file_permission:
        return platform::call_file_permission(files.file(entry.get()).get(), what.mask);
    case setattr: {
        const platform::attribute_request request(what.mode);
        return platform::call_inode_setattr(entry.get(), request.get());
    }
    }
    return 0;
}

} // namespace

world::world(const options& wanted) : tree_(wanted.root, wanted.policy)
{
    const auto real = [](const std::string& path) { return std::filesystem::canonical(path).string(); };
    platform::unmount_all();
    platform::mount_directory("/", real(wanted.root));
    platform::mount_directory("/etc/sorvanic", real(wanted.policy));
    platform::mount_memory("/etc/sorvanic/kernel");
    platform::mount_memory("/var/log");
    platform::serve_text("/proc/kallsyms", platform::symbol_text());
    platform::use_netlink_bus();
    platform::set_clock(wanted.now);
    platform::set_kernel_log([this](std::string_view text) { log_.push_back(without_line_end(text)); });
    if (sorvanic_init() != 0) {
        std::string said;
        for (const std::string& text : log_)
            said += "\n  " + text;
        platform::set_kernel_log({});
        throw std::runtime_error("the engine did not start; its log:" + said);
    }
    log_.clear();
}

world::~world()
{
    peers_.clear();
    // While the engine still frees marks: the programs of tasks may bear some.
    platform::reset_tasks();
    platform::empty_inode_cache();
    sorvanic_exit();
    platform::unmount_all();
    platform::set_clock({});
    platform::set_kernel_log({});
}

void world::connect_agent()
{
    perform(message_event{own_agent_pid, message_helo});
}

answer world::perform(const event& what)
{
    log_.clear();
    const result decided = std::visit([this](const auto& one) { return happen(one); }, what);
    return {decided, std::exchange(log_, {}), received()};
}

// --- Tasks ---

platform::task_handle world::task(int pid)
{
    platform::task_handle found = platform::find_task(pid);
    if (!found)
        throw bad_event(
            fmt::format("there is no task {}; introduce it first, with a task or a fork event", pid));
    return found;
}

void world::check_free(int pid)
{
    if (platform::find_task(pid))
        throw bad_event(fmt::format("there is a task {} already; take another number, or let it exit", pid));
}

void world::set_arguments(int pid, const argument_area& said)
{
    if (said)
        arguments_[pid] = *said;
    if (const auto known = arguments_.find(pid); known != arguments_.end())
        platform::set_arguments(task(pid).get(), known->second);
}

world::result world::happen(const task_event& what)
{
    check_free(what.pid);
    task(what.parent);
    const platform::file_handle program = what.exe ? tree_.program(*what.exe) : nullptr;
    platform::add_task(what.pid, what.parent, what.comm, program.get());
    set_arguments(what.pid, what.arguments);
    return std::nullopt;
}

world::result world::happen(const fork_event& what)
{
    const platform::task_handle parent = task(what.pid);
    check_free(what.child);
    platform::run_do_fork(parent.get(), 0, what.child);
    if (const auto known = arguments_.find(what.pid); known != arguments_.end())
        arguments_[what.child] = known->second;
    return std::nullopt;
}

world::result world::happen(const exit_event& what)
{
    const platform::task_handle ending = task(what.pid);
    if (what.pid == 1)
        throw bad_event("task 1 never exits; leave the event out");
    platform::run_do_exit(ending.get(), 0);
    arguments_.erase(what.pid);
    peers_.erase(what.pid);
    return std::nullopt;
}

world::result world::happen(const exec_event& what)
{
    const platform::task_handle caller = task(what.pid);
    const platform::file_handle program = tree_.program(what.path);
    int decided = 0;
    {
        const platform::exec_parameters parameters(program.get(), what.filename);
        const platform::event running(caller.get());
        decided = platform::call_bprm_check_security(parameters.get());
    }
    if (decided == 0) {
        platform::replace_program(what.pid, what.pid, program.get(), name_of(what.filename));
        set_arguments(what.pid, what.arguments);
    }
    return decided;
}

// --- What tasks do ---

world::result world::happen(const file_event& what)
{
    const platform::task_handle actor = task(what.pid);
    const platform::event running(actor.get());
    return decide(what, tree_);
}

world::result world::happen(const kill_event& what)
{
    const platform::task_handle sender = task(what.pid);
    const platform::task_handle target = task(what.target);
    const platform::event running(sender.get());
    return platform::call_task_kill(target.get(), nullptr, what.signal, 0);
}

world::result world::happen(const settime_event& what)
{
    const platform::task_handle actor = task(what.pid);
    const platform::clock_request request(what.seconds);
    const platform::event running(actor.get());
    return platform::call_settime(request.get(), nullptr);
}

// --- What reaches the engine over netlink ---

void world::send(int pid, std::uint16_t type, std::string_view payload)
{
    const wire_header header = {.nlmsg_len = static_cast<std::uint32_t>(sizeof header + payload.size()),
                                .nlmsg_type = type,
                                .nlmsg_flags = 0,
                                .nlmsg_seq = 0,
                                .nlmsg_pid = static_cast<std::uint32_t>(pid)};
    platform::netlink_send(bytes_of(header).append(payload), pid);
}

world::result world::happen(const login_event& what)
{
    task(what.pid);
    // The answer goes to the login process, which waits for it at a socket of its own.
    std::optional<platform::netlink_peer> waiting;
    if (!peers_.contains(what.pid))
        waiting.emplace(static_cast<std::uint32_t>(what.pid));
    const login_request request = {policy_login, static_cast<std::uint32_t>(what.pid), what.mode};
    send(what.pid, message_policy, bytes_of(request) + what.user + '\0');
    return std::nullopt;
}

world::result world::happen(const reload_event& what)
{
    send(what.pid, message_policy, bytes_of(reload_request{policy_reload, what.mask}));
    return std::nullopt;
}

world::result world::happen(const message_event& what)
{
    if (what.type == message_helo && !peers_.contains(what.pid))
        peers_.emplace(what.pid,
                       std::make_unique<platform::netlink_peer>(static_cast<std::uint32_t>(what.pid)));
    send(what.pid, what.type);
    return std::nullopt;
}

std::vector<agent::record> world::received()
{
    std::vector<agent::record> records;
    for (const auto& [pid, peer] : peers_)
        while (const std::optional<std::string> datagram = peer->receive())
            if (auto record = agent::decode(*datagram))
                records.push_back(std::move(*record));
    return records;
}

} // namespace replay
