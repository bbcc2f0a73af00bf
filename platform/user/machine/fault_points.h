#ifndef SORVANIC_PLATFORM_USER_MACHINE_FAULT_POINTS_H
#define SORVANIC_PLATFORM_USER_MACHINE_FAULT_POINTS_H

#include "platform/user/driver/faults.h"

namespace platform {

/// Counts one call of that kind; true when it is the one that is to fail.
bool fails_now(fault kind);

} // namespace platform

#endif
