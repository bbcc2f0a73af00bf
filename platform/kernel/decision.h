#ifndef SORVANIC_PLATFORM_KERNEL_DECISION_H
#define SORVANIC_PLATFORM_KERNEL_DECISION_H

#include "platform/kernel/types.h"

namespace kernel {

/// The step of a check that gave its answer.
enum class decided_by : u8 {
    nothing, ///< no check was reached: the hook does not judge such a call
    switched_off,
    without_path,
    without_memory,

    // of programs
    first_login,
    installed_program,
    product_tool,
    session_switcher,
    black_list,
    work_directory,
    super_process,
    white_list,
    installation,
    unknown_program,

    // of files
    program_directory,
    policy_directory,
    uncontrolled,
    rename,
    program_rule,
    privilege,
    user_rule,
    labels,
    no_rule,

    // of signals
    product_process,
    protected_process,
    unprotected_process,
};

inline constexpr u8 no_table = 0xFF;

/// One decision of a hook, filled by the check on its way. What the deciding step did not look at is zero.
struct decision {
    decided_by step = decided_by::nothing;
    u8 table = no_table;    ///< of the entry that decided, a policy_table (catalogue.h)
    bool refused = false;   ///< the answer
    bool refusing = false;  ///< the answer before the observing mode changed it
    u32 line = 0;           ///< of that entry in the table's text, from 1; of a program list, its record
    u32 directory = 0;      ///< line of the controlled directory in table dirctl, 0 outside
    u32 directory_size = 0; ///< of its name, in bytes: the object's path begins with it
    u32 mask = 0;           ///< the accesses asked for, folded to those that rules know
    u32 granted = 0;        ///< the accesses that the first rule for the program grants, 0 without one
    u32 key = 0;            ///< the program's digest key, once taken
    u32 ancestor = 0;       ///< whose program is a super process: 0 the caller, 1 its parent, ...
    u16 subject[2] = {};    ///< confidentiality and integrity of the user's label
    u16 object[2] = {};     ///< the same of the object's label
    char user[32] = {};     ///< whose rules were asked, zero-terminated
};

/// Hands over a hook's decision at its exit, in the context of the acting process. The decision lives until
/// the return. Never sleeps; an empty body will do.
void decided(const decision* made) asm("k_decided");

} // namespace kernel

#endif
