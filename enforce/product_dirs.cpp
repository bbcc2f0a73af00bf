#include "enforce/product_dirs.h"

#include "core/base/inode_numbers.h"
#include "platform/kernel/errno.h"
#include "platform/kernel/path.h"
#include "platform/kernel/security.h"
#include "platform/kernel/string.h"
#include "platform/kernel/task.h"

using namespace kernel;

static const char* const sorvanic_default_super_proc[] = {
    "sorvsource", "sorvagent",          "sorvX11lock", "sorvadd",    "sorvsearch",
    "sorvsort",   "sorvapply",          "sorvbind",    "login",      "sshd",
    "gdm-binary", "sorvguard",          "kdm",         "kcheckpass", "sorvall",
    "sorvreg",    "gdm-session-worker", "bash",        "sh",
};

namespace {

// How far above an entry a directory is looked for.
constexpr int parent = 1;
constexpr int grandparent = 2;

/// Whether `entry`, or one of the `levels` directories above it, has that inode number.
bool has_number(unsigned long number, const dentry* entry, int levels)
{
    if (number == 0)
        return false;
    for (; is_object(entry); entry = dentry_parent(entry), --levels) {
        const inode* found = dentry_inode(entry);
        if (is_object(found) && inode_number(found) == number)
            return true;
        if (levels == 0)
            return false;
    }
    return false;
}

/// The comparison runs over the length of the command name, which the system cuts short.
bool is_trusted(const char* comm)
{
    const std::size_t length = strlen(comm);
    for (const char* name : sorvanic_default_super_proc)
        if (strncasecmp(name, comm, length) == 0)
            return true;
    return false;
}

product_verdict allowed_if(bool allowed)
{
    return allowed ? product_verdict::allow : product_verdict::refuse;
}

} // namespace

product_verdict product_directories(const task_struct* task, const dentry* entry, u32 mask, decision& made)
{
    if (!is_object(entry))
        return product_verdict::elsewhere;
    if (has_number(sorvanic_kernel_common_get_readonly_exec_inode_number(), entry, parent)) {
        made.step = decided_by::program_directory;
        return allowed_if((mask & ~u32{may_read | may_exec}) == 0);
    }
    if (has_number(sorvanic_kernel_common_get_config_inode_number(), entry, grandparent)) {
        made.step = decided_by::policy_directory;
        return allowed_if(is_trusted(task_comm(task)));
    }
    return product_verdict::elsewhere;
}
