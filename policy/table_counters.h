#ifndef SORVANIC_POLICY_TABLE_COUNTERS_H
#define SORVANIC_POLICY_TABLE_COUNTERS_H

#include <atomic>
#include <cstdint>

#include "platform/kernel/types.h"

/// How much a policy table holds and how often it was loaded, for those who look on. Nothing is
/// decided by it. The atomic words may be read at any time, each on its own.
struct table_counters {
    const char* file;                     ///< name of the table's policy file
    std::atomic<kernel::u32> entries;     ///< of the active copy; of a status table: its values
    std::atomic<kernel::u32> generation;  ///< how often what was loaded became active: 1 after start-up
    std::atomic<kernel::u32> appended[2]; ///< to each copy since it was emptied

    void made_active(kernel::u32 held)
    {
        entries.store(held, std::memory_order_relaxed);
        generation.fetch_add(1, std::memory_order_relaxed);
    }
};

extern constinit table_counters sorvanic_kernel_blacklist_counters;
extern constinit table_counters sorvanic_kernel_whitelist_counters;
extern constinit table_counters sorvanic_kernel_sprolist_counters;
extern constinit table_counters sorvanic_kernel_dirctl_counters;
extern constinit table_counters sorvanic_kernel_workdir_counters;
extern constinit table_counters sorvanic_kernel_installctl_counters;
extern constinit table_counters sorvanic_kernel_statusctl_counters;
extern constinit table_counters sorvanic_kernel_auditctl_counters;
extern constinit table_counters sorvanic_kernel_sublabel_counters;
extern constinit table_counters sorvanic_kernel_objlabel_counters;
extern constinit table_counters sorvanic_kernel_dacctl_counters;
extern constinit table_counters sorvanic_kernel_privctl_counters;
extern constinit table_counters sorvanic_kernel_pracctl_counters;
extern constinit table_counters sorvanic_kernel_modlctl_counters;
extern constinit table_counters sorvanic_kernel_ptpy_counters;
extern constinit table_counters sorvanic_kernel_uactivate_counters;

/// Those of the table at `index`, in the order in which the policy is loaded; null behind the last.
const table_counters* counters_of_table(kernel::u32 index);

/// Back to what they are before the first load. No other thread may be about.
void reset_table_counters();

#endif
