#include "policy/ptpy.h"

#include "policy/path_list.h"
#include "policy/table_copies.h"

using namespace kernel;

static list_head sorvanic_kernel_ptpy_head[2];
static rwlock_t sorvanic_kernel_ptpy_rwlock[2];
static constinit table_mark sorvanic_kernel_ptpy_used_mark{1};
static constinit table_mark sorvanic_kernel_ptpy_idle_mark{0};

using copies =
    table_copies<path_entry, sorvanic_kernel_ptpy_head, sorvanic_kernel_ptpy_rwlock,
                 sorvanic_kernel_ptpy_used_mark, sorvanic_kernel_ptpy_idle_mark, policy_table::ptpylist>;

static int sorvanic_kernel_ptpy_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_ptpy_module_load()
{
    text_source text("/etc/sorvanic/ptpylist", "/etc/sorvanic/kernel/ptpylist_enc");
    if (!text.is_open())
        return 1;
    load_path_list<copies>(text, without_memory::skip_line);
    return 0;
}

static int sorvanic_kernel_ptpy_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_ptpy_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_ptpy_module_reload()
{
    return reload_table(sorvanic_kernel_ptpy_module);
}

static int sorvanic_kernel_ptpy_module_search(const char* name)
{
    const std::size_t length = strlen(name);
    const bool listed = copies::walk(0, [name, length](const path_entry& entry) {
        return strncasecmp(final_component(entry.text), name, length) == 0;
    });
    return listed ? 0 : 1;
}

int find_protected_process(const char* path, u32* line)
{
    const char* name = final_component(path);
    const std::size_t length = strlen(name);
    const bool listed = copies::walk(0, [name, length, line](const path_entry& entry) {
        *line = entry.line;
        return strncasecmp(entry.text, name, length) == 0;
    });
    return listed ? 0 : 1;
}

static int sorvanic_kernel_ptpy_module_match(const char* path)
{
    u32 line = 0;
    return find_protected_process(path, &line);
}

static int sorvanic_kernel_ptpy_module_destroy()
{
    return copies::destroy();
}

constinit const process_list_ops sorvanic_kernel_ptpy_module = {
    .init = sorvanic_kernel_ptpy_module_init,
    .load = sorvanic_kernel_ptpy_module_load,
    .unload = sorvanic_kernel_ptpy_module_unload,
    .sync = sorvanic_kernel_ptpy_module_sync,
    .reload = sorvanic_kernel_ptpy_module_reload,
    .search = sorvanic_kernel_ptpy_module_search,
    .match = sorvanic_kernel_ptpy_module_match,
    .destroy = sorvanic_kernel_ptpy_module_destroy,
};
