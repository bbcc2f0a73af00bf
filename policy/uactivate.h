#ifndef SORVANIC_POLICY_UACTIVATE_H
#define SORVANIC_POLICY_UACTIVATE_H

#include "policy/table_ops.h"
#include "process/process_map.h"

// First-login states of a platform user.
inline constexpr kernel::u32 first_login_pending = 0;  ///< must set a password; little else may run
inline constexpr kernel::u32 first_login_changing = 1; ///< the password program has been started
inline constexpr kernel::u32 first_login_cleared = 2;  ///< not restricted

/// The platform users, from "/etc/sorvanic/platuser", each with a first-login state that lives
/// in memory only. A reload gives every user it lists the state that the active copy holds for
/// that name, or the cleared state for a new one; a state that is set while a reload is under
/// way may be lost. Of names over 31 characters the first 31 are kept.
extern const platform_user_ops sorvanic_kernel_uactivate_module;

/// A user whose state is not the cleared one.
struct confined_user {
    char name[sorvanic_user_name_size];
    kernel::u32 state;
};

/// Puts the first `room` of them into `into`, in the list's order; returns how many. For status displays;
/// takes the active copy's read lock, and does not sleep.
kernel::u32 read_confined_users(confined_user* into, kernel::u32 room);

#endif
