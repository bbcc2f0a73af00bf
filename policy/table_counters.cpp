#include "policy/table_counters.h"

using namespace kernel;

constinit table_counters policy_counters[policy_tables] = {};

void reset_table_counters()
{
    for (table_counters& of : policy_counters) {
        of.entries.store(0, std::memory_order_relaxed);
        of.generation.store(0, std::memory_order_relaxed);
    }
}
