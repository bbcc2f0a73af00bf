#include "session/calls/question.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "host/proc.h"
#include "host/result.h"
#include "platform/kernel/security.h"
#include "platform/user/driver/decisions.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/tasks.h"
#include "session/calls/calls.h"
#include "session/calls/changed_name.h"
#include "session/calls/notification.h"
#include "session/exec/exec_decision.h"
#include "session/state/decision_log.h"
#include "session/state/decision_words.h"
#include "session/state/remedy.h"
#include "session/task/own_descriptors.h"
#include "session/task/program_file.h"

namespace session {

namespace {

/// The receiver of a signal as the host shows it. Throws when the supervisor lacks what it takes to see the
/// program: without one, nothing would protect the receiver.
platform::task_handle task_on_host(pid_t receiver)
{
    const caller stranger(receiver);
    platform::file_handle program;
    if (const unique_fd file = stranger.program())
        program = pinned_file(file.get(), path_of(file.get()));
    else if (host::is_shortage(errno))
        throw std::system_error(errno, std::generic_category(), "a process's program");
    return platform::outside_task(receiver, host::command_name(receiver), program.get());
}

/// The entry that is asked about; `made` owns it when it has to be made.
kernel::dentry* entry_of(const question& asked, platform::dentry_handle& made)
{
    if (asked.object)
        return asked.object->entry.get();
    made = asked.name->entry();
    return made.get();
}

bool allows_use(const question& asked)
{
    platform::dentry_handle made;
    kernel::dentry* const entry = entry_of(asked, made);
    if (entry == nullptr)
        return false;
    const platform::file_handle opened = platform::make_pinned_file(entry);
    return platform::call_file_permission(opened.get(), asked.value) == 0;
}

bool allows_access(const question& asked)
{
    platform::dentry_handle made;
    kernel::dentry* const entry = entry_of(asked, made);
    return entry != nullptr && platform::call_inode_permission(kernel::dentry_inode(entry), asked.value) == 0;
}

bool allows_attributes(const question& asked)
{
    const platform::attribute_request request(static_cast<unsigned>(asked.value));
    return platform::call_inode_setattr(asked.object->entry.get(), request.get()) == 0;
}

bool allows_signal(const platform::task_handle& task, int signal)
{
    return platform::call_task_kill(task.get(), nullptr, signal, 0) == 0;
}

/// For the receiver as the engine knows it, or as a task outside the session.
bool allows_signal(const question& asked)
{
    platform::task_handle task = platform::find_task(asked.receiver);
    if (!task)
        task = task_on_host(asked.receiver);
    return allows_signal(task, asked.value);
}

/// A process in an exec runs a program that the engine does not know of yet: its signals must be allowed for
/// that program, too.
bool allows_signal_in_exec(pending_execs& pending, const question& asked)
{
    const auto is_in_exec = [&] { return pending.is_in_exec(platform::process_of(asked.receiver)); };
    const bool before = is_in_exec();
    return allows(asked) &&
           (!(before || is_in_exec()) || allows_signal(task_on_host(asked.receiver), asked.value));
}

bool allows_clock_change(const question& asked)
{
    const platform::clock_request time(asked.seconds.value_or(0));
    return platform::call_settime(asked.seconds ? time.get() : nullptr, nullptr) == 0;
}

bool allows_rename(const question& asked)
{
    const platform::dentry_handle from = asked.name->entry();
    const platform::dentry_handle to = asked.new_name->entry();
    return platform::call_inode_rename(asked.name->directory->inode(), from.get(),
                                       asked.new_name->directory->inode(), to.get()) == 0;
}

bool allows_change(const question& asked)
{
    const platform::dentry_handle made = asked.name->entry();
    kernel::dentry* const entry = made.get();
    kernel::inode* const directory = asked.name->directory->inode();
    switch (asked.asked) {
    case on_create:
        return platform::call_inode_create(directory, entry, asked.value) == 0;
    case on_unlink:
        return platform::call_inode_unlink(directory, entry) == 0;
    case on_link:
        return platform::call_inode_link(asked.object->entry.get(), directory, entry) == 0;
    case on_symlink:
        return platform::call_inode_symlink(directory, entry, asked.text.c_str()) == 0;
    case on_mkdir:
        return platform::call_inode_mkdir(directory, entry, asked.value) == 0;
    case on_rmdir:
        return platform::call_inode_rmdir(directory, entry) == 0;
    default:
        return false;
    }
}

/// By the `which`-th other path of an object, as far as it has so many; `found` tells.
target other_target(const target& object, std::size_t which, bool& found)
{
    if (!object || which >= object->path.others.size())
        return object;
    found = true;
    return std::make_shared<const pinned_object>(by_other_path(*object, which));
}

shared_name other_name(const shared_name& name, std::size_t which, bool& found)
{
    if (!name || which >= name->directory->path.others.size())
        return name;
    return std::make_shared<const changed_name>(
        changed_name{other_target(name->directory, which, found), name->last,
                     name->object ? duplicate_of(name->object) : unique_fd(), name->about, name->certain});
}

/// The same about other paths of what is asked about, until none has so many.
bool allows_by_other_paths(const question& asked)
{
    for (std::size_t which = 0;; ++which) {
        bool found = false;
        question other = asked;
        // Newer entries of an object go before: this is the one that a hook finds by the inode.
        other.object = other_target(asked.object, which, found);
        other.name = other_name(asked.name, which, found);
        other.new_name = other_name(asked.new_name, which, found);
        if (!found)
            return true;
        if (!allows(other))
            return false;
    }
}

} // namespace

question access_to(target object, int mask)
{
    return {on_inode_permission, mask, std::move(object)};
}

question change_of_names(target directory)
{
    return access_to(std::move(directory), kernel::may_write | kernel::may_exec);
}

question attributes_of(target object, std::optional<mode_t> mode)
{
    const mode_t value = mode ? (*mode & 07777) | (object->about.st_mode & S_IFMT) : 0;
    return {on_setattr, static_cast<int>(value), std::move(object)};
}

bool allows(const question& asked)
{
    switch (asked.asked) {
    case on_inode_permission:
        return allows_access(asked);
    case on_file_permission:
        return allows_use(asked);
    case on_setattr:
        return allows_attributes(asked);
    case on_rename:
        return allows_rename(asked);
    case on_kill:
        return allows_signal(asked);
    case on_settime:
        return allows_clock_change(asked);
    default:
        return allows_change(asked);
    }
}

namespace {

const char* call_name(int number)
{
    for (const call_rule& rule : call_rules())
        if (rule.number == number)
            return rule.name;
    return "";
}

std::string access_of(const question& asked)
{
    struct word {
        hook asked;
        const char* text;
    };
    constexpr word known[] = {{on_create, "create"},   {on_unlink, "delete"},  {on_link, "link"},
                              {on_symlink, "symlink"}, {on_rename, "rename"},  {on_mkdir, "mkdir"},
                              {on_rmdir, "rmdir"},     {on_setattr, "change"}, {on_settime, "set"}};
    for (const word& one : known)
        if (one.asked == asked.asked)
            return one.text;
    if (asked.asked == on_kill)
        return fmt::format("send signal {} to", asked.value);
    return access_words(static_cast<unsigned>(asked.value));
}

std::string path_of_name(const shared_name& name)
{
    const std::string& directory = name->directory->path.text;
    return directory + (directory.ends_with('/') ? "" : "/") + name->last;
}

judged_event event_of(const notification& call, const question& asked, unsigned also)
{
    judged_event about{call.who().task(), call_name(call.system_call()), access_of(asked), {}};
    about.is_directory = asked.object && asked.object->is_directory();
    about.also = also;
    if (asked.asked == on_kill)
        about.receiver = host::command_name(asked.receiver);
    if (asked.asked == on_kill)
        about.object = fmt::format("{} (pid {})", host::command_name(asked.receiver), asked.receiver);
    else if (asked.asked == on_settime)
        about.object = "the clock";
    else
        about.object = asked.object ? asked.object->path.text : path_of_name(asked.name);
    if (asked.asked == on_link)
        about.second = path_of_name(asked.name);
    else if (asked.new_name)
        about.second = path_of_name(asked.new_name);
    return about;
}

/// The directory below which a rule about this question would be.
std::string directory_of(const question& asked)
{
    if (!asked.object)
        return asked.name ? asked.name->directory->path.text : "";
    const std::string& path = asked.object->path.text;
    return asked.object->is_directory() ? path : path.substr(0, path.rfind('/'));
}

/// What a rule that allows the whole call has to grant there.
unsigned accesses_below(const std::string& directory, std::span<const question> questions)
{
    unsigned all = 0;
    for (const question& one : questions) {
        if (one.asked == on_kill || one.asked == on_settime || directory_of(one) != directory)
            continue;
        if (one.asked == on_unlink || one.asked == on_rmdir)
            all |= access_to_remove;
        else if (one.asked == on_rename)
            all |= access_to_rename;
        else if (one.asked != on_inode_permission && one.asked != on_file_permission)
            all |= kernel::may_write;
        else
            all |= static_cast<unsigned>(one.value);
    }
    return all;
}

/// Asks, and tells the answer. `all` are the questions of the call.
template <typename Ask>
bool told(const notification& call, const question& asked, std::span<const question> all, Ask ask)
{
    const platform::decision_watch decisions;
    const bool allowed = ask();
    kernel::decision made = decisions.last();
    made.refused = !allowed;
    if (is_told(made))
        tell_decision(made, event_of(call, asked, accesses_below(directory_of(asked), all)));
    return allowed;
}

/// In an event of the caller.
bool ask(notification& call, const question& one, std::span<const question> all)
{
    return told(call, one, all, [&call, &one] {
        return one.asked == on_kill ? allows_signal_in_exec(call.parts().pending, one)
                                    : allows(one) && allows_by_other_paths(one);
    });
}

} // namespace

bool allowed(notification& call, std::span<const question> questions)
{
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return false;
    if (questions.empty())
        return true;
    const platform::event running(task);
    return std::ranges::all_of(questions, [&](const question& one) { return ask(call, one, questions); });
}

bool each_allowed(notification& call, std::span<const question> questions)
{
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return false;
    const platform::event running(task);
    bool all = true;
    for (const question& one : questions)
        all = ask(call, one, questions) && all;
    return all;
}

} // namespace session
