#include <atomic>

#include "platform/kernel/mutex.h"
#include "platform/kernel/rwlock.h"
#include "platform/kernel/spinlock.h"
#include "platform/user/machine/lock_token.h"
#include "platform/user/machine/thread_state.h"

using platform::count;
using platform::counted;
using platform::die;

void kernel::_read_lock(rwlock_t* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    platform::lock_shared(lock->token);
    count(counted::locks, 1);
}

void kernel::_read_unlock(rwlock_t* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    if (!platform::unlock_shared(lock->token))
        die("_read_unlock of a lock that no reader holds");
    count(counted::locks, -1);
}

void kernel::_write_lock(rwlock_t* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    platform::lock_exclusive(lock->token);
    count(counted::locks, 1);
}

void kernel::_write_unlock(rwlock_t* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    if (!platform::unlock_exclusive(lock->token))
        die("_write_unlock of a lock that no writer holds");
    count(counted::locks, -1);
}

void kernel::_spin_lock(spinlock_t* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    platform::waiter patience;
    while (__atomic_exchange_n(&lock->token, 1U, __ATOMIC_ACQUIRE) != 0) {
        while (__atomic_load_n(&lock->token, __ATOMIC_RELAXED) != 0)
            patience.wait();
    }
    count(counted::locks, 1);
}

void kernel::_spin_unlock(spinlock_t* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    if (__atomic_exchange_n(&lock->token, 0U, __ATOMIC_RELEASE) == 0)
        die("_spin_unlock of a lock that nobody holds");
    count(counted::locks, -1);
}

void kernel::mutex_lock(mutex* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    platform::might_sleep("mutex_lock");
    const std::atomic_ref token(lock->token);
    while (token.exchange(1, std::memory_order_acquire) != 0)
        token.wait(1);
    ++platform::this_thread().mutexes;
}

void kernel::mutex_unlock(mutex* lock) K_NO_THREAD_SAFETY_ANALYSIS
{
    const std::atomic_ref token(lock->token);
    if (token.exchange(0, std::memory_order_release) == 0)
        die("mutex_unlock of a lock that nobody holds");
    token.notify_one();
    --platform::this_thread().mutexes;
}
