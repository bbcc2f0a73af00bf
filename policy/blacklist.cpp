#include "policy/blacklist.h"

#include "policy/digest_list.h"
#include "policy/table_copies.h"

using namespace kernel;

static constexpr std::size_t buckets = 4096;
static list_head sorvanic_kernel_blacklist_head[2 * buckets];
static rwlock_t sorvanic_kernel_blacklist_rwlock[2 * buckets];
static constinit table_mark sorvanic_kernel_blacklist_used_mark{1};
static constinit table_mark sorvanic_kernel_blacklist_idle_mark{0};

using copies = table_copies<digest_entry, sorvanic_kernel_blacklist_head, sorvanic_kernel_blacklist_rwlock,
                            sorvanic_kernel_blacklist_used_mark, sorvanic_kernel_blacklist_idle_mark,
                            policy_table::blacklist>;

static constexpr digest_file source = {
    .path = "/etc/sorvanic/blacklist",
    .most_records = most_records_of(policy_table::blacklist),
    .whole_records = false,
};

static int sorvanic_kernel_blacklist_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_blacklist_module_load()
{
    return load_digest_list<copies>(source);
}

static int sorvanic_kernel_blacklist_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_blacklist_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_blacklist_module_reload()
{
    return reload_table(sorvanic_kernel_blacklist_module);
}

int find_blacklisted(const u32* key, u32* record)
{
    return search_digest_list<copies>(key, record);
}

static int sorvanic_kernel_blacklist_module_search(const u32* key)
{
    u32 record = 0;
    return find_blacklisted(key, &record);
}

static int sorvanic_kernel_blacklist_module_destroy()
{
    return copies::destroy();
}

constinit const digest_list_ops sorvanic_kernel_blacklist_module = {
    .init = sorvanic_kernel_blacklist_module_init,
    .load = sorvanic_kernel_blacklist_module_load,
    .unload = sorvanic_kernel_blacklist_module_unload,
    .sync = sorvanic_kernel_blacklist_module_sync,
    .reload = sorvanic_kernel_blacklist_module_reload,
    .search = sorvanic_kernel_blacklist_module_search,
    .destroy = sorvanic_kernel_blacklist_module_destroy,
};
