#ifndef SORVANIC_POLICY_MODLCTL_H
#define SORVANIC_POLICY_MODLCTL_H

#include "policy/table_ops.h"

inline constexpr kernel::s32 modl_switch_execution = 0;
inline constexpr kernel::s32 modl_switch_files = 2;
inline constexpr kernel::u32 modl_switch_on = 50;  // '2'
inline constexpr kernel::u32 modl_switch_off = 48; // '0'

/// The engine switches 0 to 3, from "/etc/sorvanic/modllabel": the character '2' (50) for on,
/// '0' (48) for off. 0 is execution control, 2 file access control; 1 and 3 are kept and not
/// used. All off until a file says otherwise, and for a moment in every reload.
extern const indexed_status_ops sorvanic_kernel_modlctl_module;

#endif
