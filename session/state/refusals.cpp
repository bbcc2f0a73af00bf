#include "session/state/refusals.h"

#include <fmt/format.h>

#include "host/proc.h"
#include "host/text.h"
#include "session/state/notices.h"

namespace session {

void refusals::add(const std::string& path, pid_t task, bool killed)
{
    count_.fetch_add(1, std::memory_order_relaxed);
    if (!shown_)
        return;
    say(fmt::format("refused: {} (pid {}, {}){}", host::visible(path), task,
                    host::visible(host::command_name(task)),
                    killed ? ", killed: it took the place of another program" : ""));
}

void refusals::add_up() const
{
    const unsigned long count = count_.load(std::memory_order_relaxed);
    if (shown_ && count > 1)
        say(fmt::format("{} execs were refused in all", count));
}

} // namespace session
