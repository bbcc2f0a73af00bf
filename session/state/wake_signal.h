#ifndef SORVANIC_SESSION_STATE_WAKE_SIGNAL_H
#define SORVANIC_SESSION_STATE_WAKE_SIGNAL_H

#include <signal.h>

namespace session {

/// Interrupts a blocking call of one of the supervisor's threads and does nothing else.
inline constexpr int wake_signal = SIGURG;

} // namespace session

#endif
