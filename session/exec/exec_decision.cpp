#include "session/exec/exec_decision.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include "platform/user/driver/decisions.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/reading.h"
#include "session/exec/script.h"
#include "session/state/decision_log.h"
#include "session/state/enforcing.h"
#include "session/task/content.h"
#include "session/task/own_descriptors.h"
#include "session/task/resolve.h"

#ifndef AT_EXECVE_CHECK
#define AT_EXECVE_CHECK 0x10000 // Linux 6.14: only ask whether the file could be executed
#endif

namespace session {

std::string exec_request::kernel_name() const
{
    if (directory == AT_FDCWD || name.starts_with('/'))
        return name;
    return name.empty() ? fmt::format("/dev/fd/{}", directory)
                        : fmt::format("/dev/fd/{}/{}", directory, name);
}

host::result<found_program> find_program(const caller& who, const exec_request& request)
{
    resolved found = resolve(who, request.directory, request.name, request.flags);
    if (found.error != 0)
        return host::failure(found.error);
    const as_caller rights(who.rights());
    if (!may_execute(found.file.get()))
        return host::failure(EACCES);
    host_path path = path_of(found.file.get());
    return found_program{std::move(found.file), std::move(path)};
}

found_program unreadable_program(host_path path)
{
    // A symbolic link itself cannot be opened.
    return {unique_fd(::open("/proc/self/exe", O_PATH | O_NOFOLLOW | O_CLOEXEC)), std::move(path)};
}

namespace {

/// Tells what was decided about the program, in which `refused` has the last word.
void tell(kernel::task_struct* task, const found_program& program, const kernel::decision& made, bool refused)
{
    const judged_event about{kernel::task_pid(task), "execve", "execute", program.path.text};
    // A refusal that is not the policy's.
    if (refused && !made.refused)
        tell_own_refusal(about, "its content cannot be vouched for");
    else if (is_told(made))
        tell_decision(made, about);
}

bool ask_by_path(kernel::task_struct* task, const found_program& program, const std::string& name,
                 const exec_bounds& bounds)
{
    const platform::file_handle file = pinned_file(program.file.get(), program.path);
    const content_trust trust = trust_in_content(program.file.get(), bounds.largest_program);
    // Reading these may take for ever, or tell nothing.
    const bool unreadable = !file || trust == content_trust::unknown || trust == content_trust::unvouched;
    if (trust == content_trust::too_large || (unreadable && is_enforcing())) {
        const bool refused = is_enforcing();
        tell(task, program, {}, refused);
        return !refused;
    }
    const platform::exec_parameters parameters(file.get(), name);
    const platform::event running(task);
    const platform::reading watched(bounds.given_up);
    const platform::decision_watch decisions;
    const bool allowed = platform::call_bprm_check_security(parameters.get()) == 0;
    const bool judged = trust == content_trust::trusted && watched.complete();
    const bool refused = !allowed || (!judged && is_enforcing());
    tell(task, program, decisions.last(), refused);
    return !refused;
}

} // namespace

bool ask_hook(kernel::task_struct* task, const found_program& program, const std::string& name,
              const exec_bounds& bounds)
{
    return ask_by_path(task, program, name, bounds) &&
           std::ranges::all_of(program.path.others, [&](const std::string& other) {
               const found_program same{duplicate_of(program.file), {other, program.path.deleted}};
               return ask_by_path(task, same, name, bounds);
           });
}

exec_answer decide_exec(const caller& who, kernel::task_struct* task, found_program program,
                        const exec_request& request, const exec_bounds& bounds)
{
    exec_answer answer{exec_verdict::unknown, {}, {}};
    decided_exec& decided = answer.decided;
    decided.name = request.kernel_name();
    std::string name = decided.name;
    for (int interpreters = 0;; ++interpreters) {
        // Taken before the content is read, so that a later change shows at the exec's end.
        const file_identity identity = settled_identity(program.file.get());
        if (!ask_hook(task, program, decided.name, bounds)) {
            answer.verdict = exec_verdict::refused;
            answer.refused = program.path.text;
            return answer;
        }
        const auto line = parse_interpreter_line(read_head(program.file.get()));
        if (!line || (request.flags & AT_EXECVE_CHECK) != 0) {
            decided.program = identity;
            decided.readable = may_read(program.file.get());
            answer.verdict = exec_verdict::allowed;
            return answer;
        }
        if (interpreters == interpreter_limit)
            return answer;

        std::string front = line->interpreter + '\0';
        if (line->argument)
            front += *line->argument + '\0';
        decided.arguments.insert(0, interpreters == 0 ? front + name + '\0' : front);
        decided.scripts.push_back({std::move(name), identity});

        auto next = find_program(who, {AT_FDCWD, line->interpreter, 0});
        if (!next) {
            if (host::is_shortage(next.error()) && is_enforcing()) {
                answer.verdict = exec_verdict::refused;
                answer.refused = line->interpreter;
            }
            return answer;
        }
        program = std::move(*next);
        name = line->interpreter;
    }
}

void pending_execs::put(pid_t task, decided_exec decided)
{
    const std::lock_guard guard(lock_);
    entries_.insert_or_assign(task, std::move(decided));
}

void pending_execs::started(pid_t task, pid_t process)
{
    const std::lock_guard guard(lock_);
    unsettled_.insert(process);
    if (auto node = task != process ? entries_.extract(task) : decltype(entries_)::node_type()) {
        node.key() = process;
        entries_.erase(process);
        entries_.insert(std::move(node));
    }
}

void pending_execs::settled(pid_t process)
{
    const std::lock_guard guard(lock_);
    unsettled_.erase(process);
}

bool pending_execs::is_in_exec(pid_t process)
{
    const std::lock_guard guard(lock_);
    return unsettled_.contains(process) || std::ranges::any_of(entries_, [process](const auto& entry) {
               return platform::process_of(entry.first) == process;
           });
}

std::optional<decided_exec> pending_execs::take(pid_t task)
{
    const std::lock_guard guard(lock_);
    const auto node = entries_.extract(task);
    if (node.empty())
        return std::nullopt;
    return std::move(node.mapped());
}

} // namespace session
