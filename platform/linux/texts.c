// What the engine patches. It looks for a near call in do_fork and do_exit and rewrites its displacement, and
// fills the structure that security_ops points at. Here all of that is data of this module: nothing of the
// kernel is written, and the calls are decoded instead of executed.

#include <linux/slab.h>

#include "platform.h"

enum { near_call = 0xE8, near_call_size = 5, call_window = 257 };

struct call_text {
    u8 before[3];
    u8 opcode;
    s32 displacement; // aligned, so one store changes it
    u8 after[call_window];
} __packed __aligned(8);

static struct call_text do_fork_text;
static struct call_text do_exit_text;

static int allow(void)
{
    return 0;
}

struct security_table security_table; // filled by begin_texts
static struct security_table* security_ops = &security_table;

/// The kernel's own functions as far as the engine is concerned: it calls them behind its own work.
struct task_struct* kernel_birth(unsigned long flags, unsigned long stack, void* regs, unsigned long size,
                                 int* child_tid, struct pid* pid, int trace);

static void kernel_exit(struct task_struct* task)
{
}

static unsigned long site_end(const struct call_text* text)
{
    return (unsigned long)&text->opcode + near_call_size;
}

static int aim(struct call_text* text, const void* target)
{
    const long displacement = (long)((unsigned long)target - site_end(text));

    text->opcode = near_call;
    text->displacement = (s32)displacement;
    return text->displacement == displacement ? 0 : -ERANGE;
}

static void* target(const struct call_text* text)
{
    return (void*)(site_end(text) + (long)READ_ONCE(text->displacement));
}

birth_function* births_target(void)
{
    return target(&do_fork_text);
}

exit_function* exits_target(void)
{
    return target(&do_exit_text);
}

int begin_texts(void)
{
    void** const entries = (void**)&security_table;
    size_t i;

    for (i = 0; i < sizeof security_table / sizeof *entries; ++i)
        entries[i] = allow;
    return aim(&do_fork_text, kernel_birth) ?: aim(&do_exit_text, kernel_exit);
}

char* symbol_list(void)
{
    return kasprintf(GFP_KERNEL,
                     "%016lx T do_fork\n%016lx T do_exit\n%016lx t copy_process\n%016lx T profile_task_exit\n"
                     "%016lx D security_ops\n",
                     (unsigned long)&do_fork_text, (unsigned long)&do_exit_text, (unsigned long)kernel_birth,
                     (unsigned long)kernel_exit, (unsigned long)&security_ops);
}

// The write-protect bit of the processor stays as it is: no protected page is written.
unsigned long k_read_cr0(void)
{
    return 1UL << 16;
}

void k_write_cr0(unsigned long value)
{
}

void k_write_text(void* at, u32 value)
{
    WRITE_ONCE(*(u32*)at, value);
}
