// The four-byte locks of the engine's tables. A kernel's own are larger, and there are 131 072 of them.

#include <linux/delay.h>
#include <linux/preempt.h>
#include <linux/rcupdate.h>
#include <linux/sched.h>
#include <linux/timekeeping.h>
#include <linux/wait_bit.h>

#define writer (1U << 31)
#define writer_waits (1U << 30)

void k__read_lock(u32* token)
{
    preempt_disable();
    for (;;) {
        const u32 seen = READ_ONCE(*token);
        if ((seen & (writer | writer_waits)) == 0 && cmpxchg_acquire(token, seen, seen + 1) == seen)
            return;
        cpu_relax();
    }
}

void k__read_unlock(u32* token)
{
    atomic_dec_return_release((atomic_t*)token);
    preempt_enable();
}

void k__write_lock(u32* token)
{
    preempt_disable();
    for (;;) {
        const u32 seen = READ_ONCE(*token);
        if ((seen & ~writer_waits) == 0) {
            if (cmpxchg_acquire(token, seen, writer) == seen)
                return;
        } else if ((seen & (writer | writer_waits)) == 0) {
            // Readers that come later wait, or a busy table would never be reloaded.
            cmpxchg_relaxed(token, seen, seen | writer_waits);
        }
        cpu_relax();
    }
}

void k__write_unlock(u32* token)
{
    atomic_fetch_andnot_release((int)writer, (atomic_t*)token);
    preempt_enable();
}

void k__spin_lock(u32* token)
{
    preempt_disable();
    while (READ_ONCE(*token) != 0 || cmpxchg_acquire(token, 0, 1) != 0)
        cpu_relax();
}

void k__spin_unlock(u32* token)
{
    smp_store_release(token, 0);
    preempt_enable();
}

void k_mutex_lock(u32* token)
{
    might_sleep();
    wait_var_event(token, cmpxchg_acquire(token, 0, 1) == 0);
}

void k_mutex_unlock(u32* token)
{
    smp_store_release(token, 0);
    smp_mb(); // before the look for waiters
    wake_up_var(token);
}

void k_preempt_disable(void)
{
    preempt_disable();
}

void k_preempt_enable(void)
{
    preempt_enable();
}

void k_rcu_read_lock(void)
{
    rcu_read_lock();
}

void k_rcu_read_unlock(void)
{
    rcu_read_unlock();
}

void k_msleep(unsigned milliseconds)
{
    msleep(milliseconds);
}

unsigned long k_get_seconds(void)
{
    return ktime_get_real_seconds();
}

void k__cond_resched(void)
{
    cond_resched();
}
