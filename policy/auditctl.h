#ifndef SORVANIC_POLICY_AUDITCTL_H
#define SORVANIC_POLICY_AUDITCTL_H

#include "policy/table_ops.h"

inline constexpr kernel::s32 audit_switch_files = 2;
inline constexpr kernel::s32 audit_switch_programs = 3;

// The values of these two that record something.
inline constexpr kernel::u32 audit_refusals = 1;
inline constexpr kernel::u32 audit_all = 2;

/// The audit switches 0 to 6, from "/etc/sorvanic/auditlabel". 2: records of file accesses, 3:
/// of what program rules say of them (1 refusals, 2 allowances too); 5: of reloads (2 on). The others are
/// kept and not used. All 0 until a file says otherwise, and for a moment in every reload.
extern const indexed_status_ops sorvanic_kernel_auditctl_module;

#endif
