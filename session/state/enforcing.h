#ifndef SORVANIC_SESSION_STATE_ENFORCING_H
#define SORVANIC_SESSION_STATE_ENFORCING_H

namespace session {

/// Whether the engine refuses what its policy does not allow (system status 3 and above); below that
/// it observes or is off. What cannot be decided for a reason of the supervisor's own is refused
/// exactly then.
bool is_enforcing();

} // namespace session

#endif
