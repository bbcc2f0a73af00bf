#ifndef SORVANIC_CORE_COUNTERS_H
#define SORVANIC_CORE_COUNTERS_H

#include "platform/kernel/types.h"
#include "policy/uactivate.h"

// What the engine shows of itself: read-only figures that no decision depends on. Each word is read on its
// own while hooks and reloads run, so they need not agree. read_confined_users (policy/uactivate.h) lists who
// must set a password.

struct engine_counters {
    kernel::s32 system_status;
    kernel::s32 install_status;
    kernel::u32 audit_switches[7];
    kernel::u32 module_switches[4]; ///< modl_switch_on or modl_switch_off
    kernel::u32 agent;              ///< process id, 0 when none is connected
    kernel::u32 calls_in_flight;
    kernel::u64 records_dropped;    ///< that could not be delivered to an agent
    kernel::u64 records_suppressed; ///< that only repeated the last one of their kind
    kernel::u64 execs_undecided;    ///< let through without memory or a path
};

struct table_state {
    const char* file;       ///< name of its policy file
    kernel::u32 entries;    ///< that lookups see; of a status table the number of its values
    kernel::u32 generation; ///< how often it was loaded
};

/// Any thread, between start-up and shut-down; neither sleeps nor takes a lock.
void read_engine_counters(engine_counters* into);

/// Whether file control is on and a controlled directory lies below `directory`, an absolute path: a
/// driver that knows files by their paths must not let such a directory be moved away. Between start-up
/// and shut-down; takes a table's lock.
bool is_above_controlled(const char* directory);

/// The table at `index` (from 0 on) in the order in which the policy is loaded. False when there
/// are no more. As above.
bool read_table_state(kernel::u32 index, table_state* into);

#endif
