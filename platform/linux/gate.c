// Hooks and requests. While a request reloads status tables these stand at their defaults, which allow
// everything. So a request waits until no hook is in the engine, and hooks wait for its end.

#include <linux/atomic.h>
#include <linux/wait.h>

#include "platform.h"

enum { drain_seconds = 5, fairness_seconds = 1 };

static atomic_t inside;  // hooks in the engine
static atomic_t waiting; // hooks that wait for a request's end
static bool closed;
static DECLARE_WAIT_QUEUE_HEAD(changed);

static bool came_in(void)
{
    atomic_inc(&inside);
    smp_mb__after_atomic(); // against close_gate: one of both sees the other
    if (!READ_ONCE(closed))
        return true;
    if (atomic_dec_and_test(&inside))
        wake_up_all(&changed);
    return false;
}

bool pass_gate(unsigned seconds)
{
    bool in;

    if (came_in())
        return true;
    atomic_inc(&waiting);
    in = wait_event_timeout(changed, came_in(), seconds * HZ) != 0;
    if (atomic_dec_and_test(&waiting))
        wake_up_all(&changed);
    return in;
}

void pass_gate_at_once(void)
{
    atomic_inc(&inside);
}

void leave_gate(void)
{
    if (atomic_dec_and_test(&inside) && READ_ONCE(closed))
        wake_up_all(&changed);
}

void close_gate(void)
{
    // Requests without pause would keep hooks out for ever.
    wait_event_timeout(changed, atomic_read(&waiting) == 0, fairness_seconds * HZ);
    WRITE_ONCE(closed, true);
    smp_mb();
    // Bounded, because a hook may read a file that somebody serves and never answers for.
    if (wait_event_timeout(changed, atomic_read(&inside) == 0, drain_seconds * HZ) == 0)
        pr_warn("sorvanic: a hook has not ended in %d s: the request goes on without it\n", drain_seconds);
}

void open_gate(void)
{
    WRITE_ONCE(closed, false);
    wake_up_all(&changed);
}
