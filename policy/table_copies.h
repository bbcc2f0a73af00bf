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
#include "policy/text_index.h"

/// Which copy a table's readers (used mark) or its loader (idle mark) have: 0 or 1.
using table_mark = std::atomic<std::uint8_t>;
static_assert(sizeof(table_mark) == 1 && table_mark::is_always_lock_free);

/// For tables that are found by other means than an index.
inline constinit text_index* not_indexed[2] = {};

/// Double-buffered storage of a policy table: readers walk the active copy while the idle one
/// is emptied and filled, and `sync` makes the filled one active in one step.
///
/// Owns nothing: the table's own static storage is passed in. `Head` and `Lock` are arrays
/// with one element for each list of copy 0 and then for each list of copy 1 (one list, or the
/// buckets of a hash table); the marks are `Used` and `Idle`; `Table` says whose
/// counters tell others how much there is; `Index` has an index for each copy, of which a table without one
/// passes none. `Entry` is a trivial struct whose first member is
/// `kernel::list_head link`; entries come from kmalloc and belong to the list that holds them.
template <typename Entry, auto& Head, auto& Lock, auto& Used, auto& Idle, policy_table Table,
          auto& Index = not_indexed>
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

    /// Indexes what the idle copy holds, for `find`: to be called at the end of a load. `keys_of(entry, add)`
    /// calls `add(key, same)` for each key of the entry, where `same(earlier)` tells that an earlier entry
    /// with the same key is wanted whenever this one is. Without memory there is no index. May sleep.
    template <typename Keys>
    static void index_idle(Keys keys_of)
    {
        static_assert(lists == 1 && &Index != &not_indexed);
        const std::size_t copy = Idle.load(std::memory_order_relaxed);
        std::size_t entries = 0;
        std::size_t keys = 0;
        const auto count_key = [&keys](const text_hash&, auto) { ++keys; };
        const auto count = [&](Entry& entry) {
            ++entries;
            keys_of(entry, count_key);
            return false;
        };
        walk_list(Head[copy], count);
        text_index* made = entries == 0 ? nullptr : text_index::make(entries, keys);
        const auto add_entry = [&](Entry& entry) {
            made->add(&entry.link);
            keys_of(entry, [made](const text_hash& key, auto same) {
                made->add_key(key, [&same](kernel::list_head* earlier) { return same(*entry_of(earlier)); });
            });
            return false;
        };
        if (made != nullptr)
            walk_list(Head[copy], add_entry);
        kernel::write_guard guard(Lock[copy]);
        kernel::kfree(Index[copy]);
        Index[copy] = made;
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
        return in_active(list, [&visit](std::size_t at) { return walk_list(Head[at], visit); });
    }

    /// Calls `use` with the first entry of the active copy for which `is_wanted` is true; returns whether
    /// there is one. `keys(longest, probe)` calls `probe` with every key
    /// under which such an entry can be, but need not with one above that length; only entries with these are
    /// judged, in any order; all in turn where there is no index. What is called runs
    /// as in `walk`.
    template <typename Keys, typename Wanted, typename Use>
    static bool find(Keys keys, Wanted is_wanted, Use use)
    {
        return in_active(0, [&](std::size_t at) {
            const text_index* index = Index[at];
            if (index == nullptr)
                return walk_list(Head[at], [&](Entry& entry) {
                    const bool wanted = is_wanted(entry);
                    if (wanted)
                        use(entry);
                    return wanted;
                });
            text_index::place best = text_index::nowhere;
            keys(index->longest(), [&](const text_hash& key) {
                best = index->first(key, best,
                                    [&](kernel::list_head* entry) { return is_wanted(*entry_of(entry)); });
            });
            if (best != text_index::nowhere)
                use(*entry_of(index->entry(best)));
            return best != text_index::nowhere;
        });
    }

private:
    /// `use` of the active copy's element for `list`, under its read lock.
    template <typename Use>
    static bool in_active(std::size_t list, Use use)
    {
        for (;;) {
            const std::uint8_t copy = Used.load(std::memory_order_acquire);
            const std::size_t at = copy * lists + list;
            kernel::read_guard guard(Lock[at]);
            // A reader that was held up before the lock may have got it in the middle of a later reload,
            // which refills this very copy.
            if (Used.load(std::memory_order_acquire) == copy)
                return use(at);
        }
    }

    static Entry* entry_of(kernel::list_head* link) { return reinterpret_cast<Entry*>(link); }

    template <typename Visit>
    static bool walk_list(const kernel::list_head& head, Visit&& visit)
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
            if constexpr (&Index != &not_indexed) {
                kernel::kfree(Index[at]);
                Index[at] = nullptr;
            }
        }
    }
};

#endif
