#ifndef SORVANIC_POLICY_TABLE_COPIES_H
#define SORVANIC_POLICY_TABLE_COPIES_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/kernel/list.h"
#include "platform/kernel/rwlock.h"
#include "platform/kernel/scoped.h"
#include "policy/table_counters.h"

/// Which copy a table's readers (used mark) or its loader (idle mark) have: 0 or 1.
using table_mark = std::atomic<std::uint8_t>;
static_assert(sizeof(table_mark) == 1 && table_mark::is_always_lock_free);

/// Double-buffered storage of a policy table: readers walk the active copy while the idle one
/// is emptied and filled, and `sync` makes the filled one active in one step.
///
/// Owns nothing: the table's own static storage is passed in. `Head` and `Lock` are arrays
/// with one element for each list of copy 0 and then for each list of copy 1 (one list, or the
/// buckets of a hash table); the marks are `Used` and `Idle`; `Table` says whose
/// counters tell others how much there is. `Entry` is a trivial struct whose first member is
/// `kernel::list_head link`; entries come from kmalloc and belong to the list that holds them.
template <typename Entry, auto& Head, auto& Lock, auto& Used, auto& Idle, policy_table Table>
struct table_copies {
    static_assert(std::is_trivial_v<Entry> && offsetof(Entry, link) == 0);
    static_assert(std::extent_v<std::remove_reference_t<decltype(Head)>> ==
                  std::extent_v<std::remove_reference_t<decltype(Lock)>>);

    static constexpr std::size_t copies = 2;
    static constexpr std::size_t lists = std::extent_v<std::remove_reference_t<decltype(Head)>> / copies;

    /// Makes all lists empty and copy 1 the active one, so that the first load fills copy 0.
    /// No other thread may be about.
    static int init()
    {
        for (std::size_t at = 0; at < copies * lists; ++at) {
            kernel::init_list_head(&Head[at]);
            kernel::rwlock_init(&Lock[at]);
        }
        Idle.store(0, std::memory_order_relaxed);
        Used.store(1, std::memory_order_release);
        return 0;
    }

    /// Empties the idle copy and frees its entries; waits, list by list, for readers that are
    /// still in it.
    static int unload()
    {
        empty(Idle.load(std::memory_order_relaxed));
        return 0;
    }

    /// Exchanges the copies.
    static int sync()
    {
        const std::uint8_t filled = Idle.load(std::memory_order_relaxed);
        Idle.store(Used.load(std::memory_order_relaxed), std::memory_order_relaxed);
        Used.store(filled, std::memory_order_release);
        counters_of(Table).made_active(counters_of(Table).appended[filled].load(std::memory_order_relaxed));
        return 0;
    }

    /// Empties both copies.
    static int destroy()
    {
        empty(0);
        empty(1);
        counters_of(Table).entries.store(0, std::memory_order_relaxed);
        return 0;
    }

    /// Links `entry` at the end of list `list` of the idle copy, which owns it from then on.
    static void append(Entry* entry, std::size_t list = 0)
    {
        const std::uint8_t copy = Idle.load(std::memory_order_relaxed);
        const std::size_t at = copy * lists + list;
        counters_of(Table).appended[copy].fetch_add(1, std::memory_order_relaxed);
        kernel::write_guard guard(Lock[at]);
        kernel::list_add_tail(&entry->link, &Head[at]);
    }

    /// Whether the idle copy has no entries. For the one thread that loads and syncs, which alone
    /// links and unlinks there: no lock is taken.
    static bool idle_is_empty()
    {
        const std::size_t copy = Idle.load(std::memory_order_relaxed);
        for (std::size_t at = copy * lists; at < (copy + 1) * lists; ++at)
            if (!kernel::list_empty(&Head[at]))
                return false;
        return true;
    }

    /// Calls `visit` with the entries of list `list` of the active copy, in the order in which
    /// they were appended, until it returns true; returns whether it did. `visit` runs under
    /// the list's read lock: it must not sleep, nor keep the entry.
    template <typename Visit>
    static bool walk(std::size_t list, Visit visit)
    {
        for (;;) {
            const std::uint8_t copy = Used.load(std::memory_order_acquire);
            const std::size_t at = copy * lists + list;
            kernel::read_guard guard(Lock[at]);
            // A reader that was held up before the lock may have got it in the middle of a later reload,
            // which refills this very copy.
            if (Used.load(std::memory_order_acquire) == copy)
                return walk_list(Head[at], visit);
        }
    }

private:
    static Entry* entry_of(kernel::list_head* link) { return reinterpret_cast<Entry*>(link); }

    template <typename Visit>
    static bool walk_list(const kernel::list_head& head, Visit& visit)
    {
        for (kernel::list_head* link = head.next; link != &head; link = link->next)
            if (visit(*entry_of(link)))
                return true;
        return false;
    }

    static void empty(std::size_t copy)
    {
        counters_of(Table).appended[copy].store(0, std::memory_order_relaxed);
        for (std::size_t at = copy * lists; at < (copy + 1) * lists; ++at) {
            kernel::write_guard guard(Lock[at]);
            while (!kernel::list_empty(&Head[at])) {
                kernel::list_head* link = Head[at].next;
                kernel::list_del(link);
                kernel::kfree(entry_of(link));
            }
        }
    }
};

#endif
