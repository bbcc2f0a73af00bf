// Which tasks are inside the engine.

#include <linux/hash.h>
#include <linux/slab.h>
#include <linux/spinlock.h>

#include "platform.h"

enum { bucket_bits = 6 };

static struct bucket {
    spinlock_t lock;
    struct hlist_head tasks;
} buckets[1 << bucket_bits] = {
    [0 ...(1 << bucket_bits) - 1] = {.lock = __SPIN_LOCK_UNLOCKED(buckets.lock)},
};

static struct bucket* bucket_of(const struct task_struct* task)
{
    return &buckets[hash_ptr(task, bucket_bits)];
}

static struct event* find(const struct bucket* in, const struct task_struct* task)
{
    struct event* one;

    hlist_for_each_entry(one, &in->tasks, node)
        if (one->task == task)
            return one;
    return NULL;
}

bool enter_event(struct event* event, bool of_exec)
{
    struct bucket* const bucket = bucket_of(current);
    bool entered = false;

    event->task = current;
    event->acting = current;
    event->of_exec = of_exec;
    event->names = 0;
    event->birth = NULL;
    spin_lock(&bucket->lock);
    if (find(bucket, current) == NULL) {
        hlist_add_head(&event->node, &bucket->tasks);
        entered = true;
    }
    spin_unlock(&bucket->lock);
    return entered;
}

void leave_event(struct event* event)
{
    struct bucket* const bucket = bucket_of(event->task);

    spin_lock(&bucket->lock);
    hlist_del(&event->node);
    spin_unlock(&bucket->lock);
    while (event->names != 0) {
        struct remembered_name* const name = &event->named[--event->names];

        kfree(name->text);
        path_put(&name->place);
    }
}

struct event* current_event(void)
{
    struct bucket* const bucket = bucket_of(current);
    struct event* found;

    // Only the task itself adds and removes its event, so what is found stays.
    spin_lock(&bucket->lock);
    found = find(bucket, current);
    spin_unlock(&bucket->lock);
    return found;
}

struct task_struct* acting_task(void)
{
    const struct event* const event = (current->flags & PF_WQ_WORKER) != 0 ? current_event() : NULL;

    return event != NULL ? event->acting : current;
}
