#ifndef SORVANIC_POLICY_UACTIVATE_H
#define SORVANIC_POLICY_UACTIVATE_H

#include "policy/table_ops.h"

// First-login states of a platform user.
inline constexpr kernel::u32 first_login_pending = 0;  ///< must set a password; little else may run
inline constexpr kernel::u32 first_login_changing = 1; ///< the password program has been started
inline constexpr kernel::u32 first_login_cleared = 2;  ///< not restricted

/// The platform users, from "/etc/sorvanic/platuser", each with a first-login state that lives
/// in memory only. A reload gives every user it lists the state that the active copy holds for
/// that name, or the cleared state for a new one; a state that is set while a reload is under
/// way may be lost. Of names over 31 characters the first 31 are kept.
extern const platform_user_ops sorvanic_kernel_uactivate_module;

#endif
