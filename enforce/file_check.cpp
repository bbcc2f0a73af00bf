#include "enforce/file_check.h"

#include "channel/audit_messages.h"
#include "enforce/first_password.h"
#include "enforce/label_test.h"
#include "enforce/product_dirs.h"
#include "platform/kernel/decision.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/security.h"
#include "policy/auditctl.h"
#include "policy/catalogue.h"
#include "policy/dacctl.h"
#include "policy/dirctl.h"
#include "policy/modlctl.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "policy/statusctl.h"
#include "process/process_map.h"
#include "process/process_name.h"

using namespace kernel;

namespace {

// What the records say.
constexpr u32 verdict_no_rule = 0;
constexpr u32 verdict_allowed = 1;
constexpr u32 verdict_refused = 2;
constexpr u32 verdict_none = static_cast<u32>(-1);

/// One access in a controlled directory.
struct file_access {
    const char* path;
    const char* user;
    const char* comm;
    u32 mask;
    u32 file_audit; // the switches, as they were when the decision began
    u32 program_audit;
    decision& made;
};

/// Notes the step that decides, and the entry by which it does.
void by(decision& made, decided_by step, policy_table table, u32 line)
{
    made.step = step;
    made.table = static_cast<u8>(table);
    made.line = line;
}

bool is_recorded(u32 audit_switch, bool allowed)
{
    return audit_switch == audit_all || (audit_switch == audit_refusals && !allowed);
}

/// The rules and labels know four of the kernel's bits.
u32 fold(u32 mask)
{
    if ((mask & may_access) != 0)
        mask = (mask & ~u32{may_access}) | may_write;
    if ((mask & may_open_bits) != 0)
        mask = (mask & ~u32{may_open_bits}) | may_read;
    return mask;
}

bool granted_by_privilege(const file_access& access)
{
    u32 line = 0;
    const bool granted = find_privilege(access.user, access.path, access.mask, &line) == 0;
    if (granted)
        by(access.made, decided_by::privilege, policy_table::priv, line);
    return granted;
}

bool granted_by_rule_or_labels(const file_access& access)
{
    u32 line = 0;
    const int rule = find_user_rule(access.user, access.path, access.mask, &line);
    const bool allowed =
        rule == dac_granted || labels_permit(access.user, access.path, access.mask, access.made);
    // A rule for the user says more than labels that do not help either.
    if (rule == dac_granted || (rule == dac_denied && !allowed))
        by(access.made, decided_by::user_rule, policy_table::dac, line);
    const u32 verdict = allowed ? verdict_allowed : rule == dac_denied ? verdict_refused : verdict_no_rule;
    if (is_recorded(access.file_audit, allowed))
        sorvanic_common_send_faau_message(access.path, access.user, access.comm, verdict);
    return allowed;
}

u32 program_verdict(int match)
{
    switch (match) {
    case program_granted:
        return verdict_allowed;
    case program_of_other_rules:
        return verdict_no_rule;
    case program_denied:
        return verdict_refused;
    default:
        return verdict_none;
    }
}

bool is_allowed(const file_access& access)
{
    matched_rule matched;
    const int rule = find_program_rule(access.path, access.comm, access.mask, &matched);
    const bool allowed =
        rule == program_granted || granted_by_privilege(access) || granted_by_rule_or_labels(access);
    if (rule == program_granted || (rule == program_denied && !allowed))
        by(access.made, decided_by::program_rule, policy_table::appevp, matched.line);
    access.made.granted = matched.mask;
    const u32 verdict = program_verdict(rule);
    if (verdict != verdict_none && is_recorded(access.program_audit, allowed))
        sorvanic_common_send_pcau_message(access.path, access.user, access.comm, verdict);
    return allowed;
}

/// The answer before the observing mode changes it.
bool refuses(task_struct* task, dentry* entry, u32 mask, file_operation operation, decision& made)
{
    const s32 system_status = sorvanic_kernel_statusctl_module.getstatus();
    const u32 file_control = sorvanic_kernel_modlctl_module.getstatus(modl_switch_files);
    const u32 file_audit = sorvanic_kernel_auditctl_module.getstatus(audit_switch_files);
    const u32 program_audit = sorvanic_kernel_auditctl_module.getstatus(audit_switch_programs);

    made.mask = fold(mask);
    if (system_status == system_status_observing || system_status == system_status_enforcing) {
        const product_verdict verdict = product_directories(task, entry, mask, made);
        if (verdict != product_verdict::elsewhere) {
            made.refused = verdict == product_verdict::refuse; // observing or not
            return made.refused;
        }
    }
    made.step = decided_by::switched_off;
    if (file_control != modl_switch_on || system_status == system_status_off)
        return false;

    made.step = decided_by::without_path;
    const held_name name(task, entry, sorvanic_name_of_entry);
    if (name.path() == nullptr)
        return false;
    static_assert(sizeof made.user >= sorvanic_user_name_size);
    if (sorvanic_kernel_hashmap_module.search(task_pid(task), made.user) == 0)
        note_first_password(task, made.user, name.path(), mask);
    else
        memcpy(made.user, unknown_user_name, sizeof(unknown_user_name));
    u32 directory = 0;
    made.step = decided_by::uncontrolled;
    if (find_controlled_directory(name.path(), &directory, &made.directory_size) != 0)
        return false;

    made.directory = directory;
    by(made, operation == file_operation::rename ? decided_by::rename : decided_by::no_rule,
       policy_table::dirctl, directory);
    const file_access access = {name.path(),   made.user, task_comm(task), made.mask, file_audit,
                                program_audit, made};
    const bool allowed = operation != file_operation::rename && is_allowed(access);
    made.refused = !allowed && system_status != system_status_observing;
    return !allowed;
}

} // namespace

int sorvanic_kernel_hook_dentry_has_permission(task_struct* task, dentry* entry, u32 mask,
                                               file_operation operation, decision* made)
{
    *made = {};
    made->refusing = refuses(task, entry, mask, operation, *made);
    return made->refused ? -1 : 0;
}
