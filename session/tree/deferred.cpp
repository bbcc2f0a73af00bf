#include "session/tree/deferred.h"

#include <sys/wait.h>

#include <algorithm>

namespace session {

void deferred_reports::put(pid_t task, int status, until what)
{
    const auto [place, is_new] = reports_.try_emplace(task, report{status, what, clock::now()});
    place->second.status = status;
    place->second.what = what;
}

std::optional<int> deferred_reports::take(pid_t task)
{
    const auto node = reports_.extract(task);
    return node.empty() ? std::nullopt : std::optional(node.mapped().status);
}

std::optional<int> deferred_reports::take_end(pid_t task)
{
    const auto found = reports_.find(task);
    if (found == reports_.end() || found->second.what == until::birth || WIFSTOPPED(found->second.status))
        return std::nullopt;
    return take(task);
}

std::vector<pid_t> deferred_reports::tasks(until what, std::chrono::milliseconds age) const
{
    const clock::time_point youngest = clock::now() - age;
    std::vector<pid_t> found;
    for (const auto& [task, of] : reports_) {
        if (of.what == what && of.since <= youngest)
            found.push_back(task);
    }
    return found;
}

bool deferred_reports::any(until what) const
{
    return std::ranges::any_of(reports_, [what](const auto& entry) { return entry.second.what == what; });
}

} // namespace session
