#include "platform/kernel/text.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/kernel/mm.h"
#include "platform/kernel/scoped.h"
#include "platform/user/driver/kernel_text.h"
#include "platform/user/driver/machine.h"
#include "platform/user/machine/hook_gate.h"
#include "platform/user/machine/thread_state.h"

namespace platform {

namespace {

// The kernel's own functions, before the engine takes the entries over: they refuse and do nothing. Each
// entry has its own function, so that a test notices one that was restored to the wrong entry.
template <int entry, typename... Arguments>
int allow(Arguments...)
{
    return 0;
}

void free_nothing(kernel::inode*)
{
}

union operations_page {
    kernel::security_operations operations;
    char page[kernel::page_size];
};

alignas(kernel::page_size) constinit operations_page the_operations = {{
    .bprm_check_security = allow<1>,
    .file_permission = allow<2>,
    .inode_permission = allow<3>,
    .inode_create = allow<4>,
    .inode_unlink = allow<5>,
    .inode_link = allow<6>,
    .inode_symlink = allow<7>,
    .inode_rename = allow<8>,
    .inode_mkdir = allow<9>,
    .inode_rmdir = allow<10>,
    .inode_setattr = allow<11>,
    .inode_free_security = free_nothing,
    .settime = allow<12>,
    .task_kill = allow<13>,
}};

void protect(void* page, int protection)
{
    if (::mprotect(page, kernel::page_size, protection) != 0)
        die("mprotect of kernel memory: %s", std::strerror(errno));
}

// do_fork starts the page of kernel text, and do_exit is on it too.
void* text_page()
{
    return reinterpret_cast<void*>(&do_fork);
}

void write_protect(bool on)
{
    protect(text_page(), PROT_READ | PROT_EXEC | (on ? 0 : PROT_WRITE));
    protect(&the_operations, PROT_READ | (on ? 0 : PROT_WRITE));
}

// Protected mode, paging and numeric error reporting on, as a running x86-64 kernel has them.
constinit std::atomic<unsigned long> cr0 = 0x80050033;

// The thread that has cleared the write-protect bit. The bit is one processor's, and only that
// thread runs there.
constinit std::atomic<const thread_state*> window_owner = nullptr;

/// Calls an entry of the structure in use, read once.
template <typename Result, typename... Parameters, typename... Arguments>
Result call(Result (*kernel::security_operations::*entry)(Parameters...), Arguments... arguments)
{
    return __atomic_load_n(&(security_ops->*entry), __ATOMIC_ACQUIRE)(arguments...);
}

/// The same for an entry with an answer, which waits for a driver's hold.
template <typename... Parameters, typename... Arguments>
int ask(int (*kernel::security_operations::*entry)(Parameters...), Arguments... arguments)
{
    return answer_of([&] { return call(entry, arguments...); });
}

// Protected from the first moment on, not only after the first window.
[[maybe_unused]] const bool protected_from_start = (write_protect(true), true);

} // namespace

const kernel::security_operations& security()
{
    return *security_ops;
}

int call_bprm_check_security(kernel::linux_binprm* bprm)
{
    return ask(&kernel::security_operations::bprm_check_security, bprm);
}

int call_file_permission(kernel::file* opened, int mask)
{
    return ask(&kernel::security_operations::file_permission, opened, mask);
}

int call_inode_permission(kernel::inode* asked, int mask)
{
    return ask(&kernel::security_operations::inode_permission, asked, mask);
}

int call_inode_create(kernel::inode* dir, kernel::dentry* entry, int mode)
{
    return ask(&kernel::security_operations::inode_create, dir, entry, mode);
}

int call_inode_unlink(kernel::inode* dir, kernel::dentry* entry)
{
    return ask(&kernel::security_operations::inode_unlink, dir, entry);
}

int call_inode_link(kernel::dentry* old_entry, kernel::inode* dir, kernel::dentry* new_entry)
{
    return ask(&kernel::security_operations::inode_link, old_entry, dir, new_entry);
}

int call_inode_symlink(kernel::inode* dir, kernel::dentry* entry, const char* old_name)
{
    return ask(&kernel::security_operations::inode_symlink, dir, entry, old_name);
}

int call_inode_rename(kernel::inode* old_dir, kernel::dentry* old_entry, kernel::inode* new_dir,
                      kernel::dentry* new_entry)
{
    return ask(&kernel::security_operations::inode_rename, old_dir, old_entry, new_dir, new_entry);
}

int call_inode_mkdir(kernel::inode* dir, kernel::dentry* entry, int mode)
{
    return ask(&kernel::security_operations::inode_mkdir, dir, entry, mode);
}

int call_inode_rmdir(kernel::inode* dir, kernel::dentry* entry)
{
    return ask(&kernel::security_operations::inode_rmdir, dir, entry);
}

int call_inode_setattr(kernel::dentry* entry, kernel::iattr* attributes)
{
    return ask(&kernel::security_operations::inode_setattr, entry, attributes);
}

void call_inode_free_security(kernel::inode* freed)
{
    call(&kernel::security_operations::inode_free_security, freed);
}

int call_settime(kernel::timespec* time, kernel::timezone* zone)
{
    return ask(&kernel::security_operations::settime, time, zone);
}

int call_task_kill(kernel::task_struct* target, kernel::siginfo* info, int signal, kernel::u32 security_id)
{
    return answer_of([&] {
        const kernel::rcu_guard as_in_a_kernel;
        return call(&kernel::security_operations::task_kill, target, info, signal, security_id);
    });
}

} // namespace platform

constinit kernel::security_operations* security_ops = &platform::the_operations.operations;

namespace kernel {

unsigned long read_cr0()
{
    return platform::cr0;
}

void write_cr0(unsigned long value)
{
    const platform::thread_state& thread = platform::this_thread();
    const bool was_on = (platform::cr0 & cr0_write_protect) != 0;
    const bool on = (value & cr0_write_protect) != 0;
    if (on != was_on && thread.preempt_depth == 0)
        platform::die("write_cr0 changes the write-protect bit with preemption on");
    if (on && !was_on) {
        if (platform::window_owner != &thread)
            platform::die("write_cr0 closes a write-protect window that another thread has opened");
        platform::write_protect(true);
        platform::window_owner = nullptr;
    }
    if (!on) {
        const platform::thread_state* nobody = nullptr;
        if (!platform::window_owner.compare_exchange_strong(nobody, &thread))
            platform::die("write_cr0 opens a write-protect window inside another");
        platform::write_protect(false);
    }
    platform::cr0 = value;
}

void write_text(void* at, u32 value)
{
    // Not a C++ store: sanitizers keep no record of what is in kernel text.
    asm volatile("movl %1, %0" : "=m"(*static_cast<u32*>(at)) : "r"(value) : "memory");
}

} // namespace kernel
