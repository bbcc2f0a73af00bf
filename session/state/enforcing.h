#ifndef SORVANIC_SESSION_STATE_ENFORCING_H
#define SORVANIC_SESSION_STATE_ENFORCING_H

namespace session {

/// Whether the engine refuses what its policy does not allow (system status 3 and above); below that it
/// observes or is off. When the supervisor itself fails to decide a call, it refuses it exactly then.
bool is_enforcing();

} // namespace session

#endif
