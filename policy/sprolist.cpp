#include "policy/sprolist.h"

#include <atomic>

#include "policy/digest_list.h"
#include "policy/table_copies.h"

using namespace kernel;

static constexpr std::size_t buckets = 8192;
static list_head sorvanic_kernel_sprolist_head[2 * buckets];
static rwlock_t sorvanic_kernel_sprolist_rwlock[2 * buckets];
static constinit table_mark sorvanic_kernel_sprolist_used_mark{1};
static constinit table_mark sorvanic_kernel_sprolist_idle_mark{0};

using copies = table_copies<digest_entry, sorvanic_kernel_sprolist_head, sorvanic_kernel_sprolist_rwlock,
                            sorvanic_kernel_sprolist_used_mark, sorvanic_kernel_sprolist_idle_mark,
                            policy_table::supertrustfile>;

static constexpr digest_file source = {
    .path = "/etc/sorvanic/supertrustfile",
    .most_records = most_records_of(policy_table::supertrustfile),
    .whole_records = true,
};

/// False only while the active copy is empty: set before a copy with keys becomes active,
/// cleared after an empty one has.
static constinit std::atomic<bool> may_hold_keys{false};

bool super_process_list_is_empty()
{
    return !may_hold_keys.load(std::memory_order_acquire);
}

static int sorvanic_kernel_sprolist_module_init()
{
    may_hold_keys.store(false, std::memory_order_relaxed);
    return copies::init();
}

static int sorvanic_kernel_sprolist_module_load()
{
    return load_digest_list<copies>(source);
}

static int sorvanic_kernel_sprolist_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_sprolist_module_sync()
{
    const bool keys = !copies::idle_is_empty();
    if (keys)
        may_hold_keys.store(true, std::memory_order_release);
    copies::sync();
    if (!keys)
        may_hold_keys.store(false, std::memory_order_release);
    return 0;
}

static int sorvanic_kernel_sprolist_module_reload()
{
    return reload_table(sorvanic_kernel_sprolist_module);
}

int find_super_process(const u32* key, u32* record)
{
    return search_digest_list<copies>(key, record);
}

static int sorvanic_kernel_sprolist_module_search(const u32* key)
{
    u32 record = 0;
    return find_super_process(key, &record);
}

static int sorvanic_kernel_sprolist_module_destroy()
{
    return copies::destroy();
}

constinit const digest_list_ops sorvanic_kernel_sprolist_module = {
    .init = sorvanic_kernel_sprolist_module_init,
    .load = sorvanic_kernel_sprolist_module_load,
    .unload = sorvanic_kernel_sprolist_module_unload,
    .sync = sorvanic_kernel_sprolist_module_sync,
    .reload = sorvanic_kernel_sprolist_module_reload,
    .search = sorvanic_kernel_sprolist_module_search,
    .destroy = sorvanic_kernel_sprolist_module_destroy,
};
