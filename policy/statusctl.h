#ifndef SORVANIC_POLICY_STATUSCTL_H
#define SORVANIC_POLICY_STATUSCTL_H

#include "policy/table_ops.h"

inline constexpr kernel::s32 system_status_off = 1;
inline constexpr kernel::s32 system_status_observing = 2;
inline constexpr kernel::s32 system_status_enforcing = 3;

/// The system status, from "/etc/sorvanic/statlabel": 1 everything is allowed unchecked, 2
/// observing (checks run and report, refusals become allowances), 3 enforcing; other values
/// enforce without the protection of the product itself. 1 until a file says otherwise, and
/// for a moment in every reload.
extern const status_ops sorvanic_kernel_statusctl_module;

#endif
