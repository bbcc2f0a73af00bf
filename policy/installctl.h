#ifndef SORVANIC_POLICY_INSTALLCTL_H
#define SORVANIC_POLICY_INSTALLCTL_H

#include "policy/table_ops.h"

inline constexpr kernel::s32 installations_permitted = 2;

/// The install status, from "/etc/sorvanic/installlabel": 2 permits installations, any other
/// value does not. 1 until a file says otherwise.
extern const status_ops sorvanic_kernel_installctl_module;

#endif
