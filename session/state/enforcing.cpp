#include "session/state/enforcing.h"

#include "core/counters.h"

namespace session {

bool is_enforcing()
{
    constexpr kernel::s32 enforcing = 3;
    engine_counters now;
    read_engine_counters(&now);
    return now.system_status >= enforcing;
}

} // namespace session
