#include "channel/reload_mask.h"

#include "policy/tables.h"

using namespace kernel;

void reload_tables(u32 mask)
{
    for (const policy_table table : reload_order)
        if ((mask & file_of(table).reload_bit) != 0)
            (*policy_doors[static_cast<std::size_t>(table)].reload)();
}
