#include "session/state/losses.h"

#include <fmt/format.h>

#include "host/text.h"
#include "session/state/notices.h"

namespace session {

void losses::add(kind what, int error, unsigned long count)
{
    if (counts_[static_cast<std::size_t>(what)].fetch_add(count) != 0)
        return;
    constexpr const char* names[] = {"the kernel log", "a log below the state directory",
                                     "the status directory"};
    say(fmt::format("{} cannot be written: {}; its content is being lost",
                    names[static_cast<std::size_t>(what)], host::error_text(error)));
}

} // namespace session
