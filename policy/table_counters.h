#ifndef SORVANIC_POLICY_TABLE_COUNTERS_H
#define SORVANIC_POLICY_TABLE_COUNTERS_H

#include <atomic>
#include <cstdint>

#include "platform/kernel/types.h"
#include "policy/catalogue.h"

/// How much a policy table holds and how often it was loaded, for status displays. No decision depends on it.
/// The atomic words may be read at any time, each on its own.
struct table_counters {
    std::atomic<kernel::u32> entries;     ///< of the active copy; of a status table: its values
    std::atomic<kernel::u32> generation;  ///< how often what was loaded became active: 1 after start-up
    std::atomic<kernel::u32> appended[2]; ///< to each copy since it was emptied

    void made_active(kernel::u32 held)
    {
        entries.store(held, std::memory_order_relaxed);
        generation.fetch_add(1, std::memory_order_relaxed);
    }
};

/// In the order of the catalogue.
extern constinit table_counters policy_counters[policy_tables];

inline table_counters& counters_of(policy_table table)
{
    return policy_counters[static_cast<std::size_t>(table)];
}

/// Back to what they are before the first load. No other thread may be about.
void reset_table_counters();

#endif
