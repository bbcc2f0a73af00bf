#include "session/state/refusals.h"

#include <fmt/format.h>

#include "host/proc.h"
#include "host/text.h"
#include "session/state/notices.h"

namespace session {

void refusals::add(const std::string& path, pid_t task, bool killed)
{
    count_.fetch_add(1, std::memory_order_relaxed);
    if (shown_ && killed)
        say(fmt::format("killed: {} (pid {}): {} took the place of another program",
                        host::visible(host::command_name(task)), task, host::visible(path)));
}

} // namespace session
