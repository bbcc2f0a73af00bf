#include "session/exec/exec_verification.h"

#include <fcntl.h>
#include <linux/limits.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "session/state/enforcing.h"
#include "session/task/own_descriptors.h"
#include "session/task/tracee_memory.h"

namespace session {

namespace {

/// The new image as far as the host shows it.
struct new_image {
    explicit new_image(const caller& process)
        : who(process), file(who.program()), hidden(!file && host::is_denial(errno)),
          name(program_name(who.task())), identity(identity_of(file.get()))
    {
    }

    /// Whether there is anything to judge it by.
    bool is_shown() const { return who.is_known() && (file || hidden); }

    bool fits(const decided_exec& decided) const
    {
        // A program that may be executed but not read hides all of its process. It was decided without being
        // read, and every other such program would have got the same decision.
        if (!file)
            return hidden && !decided.readable;
        return decided.program == identity && decided.name == name &&
               (decided.arguments.empty() ||
                program_arguments(who.task(), decided.arguments.size()) == decided.arguments);
    }

    found_program program() const
    {
        if (!file)
            return unreadable_program({fmt::format("/proc/{}/exe", who.task()), false});
        return {duplicate_of(file), path_of(file.get())};
    }

    const caller& who;
    unique_fd file;
    bool hidden; ///< the host denies the supervisor a look
    std::optional<std::string> name;
    file_identity identity;
};

/// The names under which an unverified interpreter may open its script: the arguments between the first one
/// and the program's name, with which the kernel's additions to a script's arguments end.
std::vector<script_link> possible_scripts(const new_image& image)
{
    std::vector<script_link> links;
    const std::string arguments = program_arguments(image.who.task(), std::size_t{4} * PATH_MAX);
    std::size_t begin = arguments.find('\0');
    while (image.name && begin != std::string::npos && begin + 1 < arguments.size()) {
        const std::size_t end = arguments.find('\0', begin + 1);
        if (end == std::string::npos)
            break;
        links.push_back({arguments.substr(begin + 1, end - begin - 1), std::nullopt});
        if (links.back().name == *image.name)
            return links;
        begin = end;
    }
    return {};
}

} // namespace

exec_outcome verify_exec(const caller& who, pid_t former, pending_execs& pending, const exec_bounds& bounds)
{
    exec_outcome outcome;
    const new_image image(who);
    const found_program program = image.program();
    if (image.file)
        outcome.program = pinned_file(program.file.get(), program.path);

    const platform::task_handle task = platform::find_task(former);
    std::optional<decided_exec> decided = pending.take(former);
    if (!image.is_shown() && is_enforcing()) {
        outcome.refused = image.name.value_or(program.path.text);
        return outcome;
    }
    if (task && image.name && !(decided && image.fits(*decided))) {
        decided.reset();
        const exec_request request{AT_FDCWD, *image.name, 0};
        if (auto named = find_program(image.who, request)) {
            exec_answer answer = decide_exec(image.who, task.get(), std::move(*named), request, bounds);
            if (answer.verdict == exec_verdict::refused) {
                outcome.refused = std::move(answer.refused);
                return outcome;
            }
            if (answer.verdict == exec_verdict::allowed)
                decided = std::move(answer.decided);
        }
    }

    std::vector<script_link> scripts;
    if (decided && image.fits(*decided)) {
        scripts = std::move(decided->scripts);
    } else {
        if (!task || !ask_hook(task.get(), program, image.name.value_or(program.path.text), bounds)) {
            outcome.refused = program.path.text;
            return outcome;
        }
        scripts = possible_scripts(image);
    }
    if (!scripts.empty())
        outcome.watch = std::make_unique<script_watch>(who.task(), image.name.value_or(program.path.text),
                                                       std::move(scripts));
    return outcome;
}

} // namespace session
