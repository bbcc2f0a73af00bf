#include "policy/workdir.h"

#include "policy/path_list.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"

using namespace kernel;

static list_head sorvanic_kernel_workdir_head[2];
static rwlock_t sorvanic_kernel_workdir_rwlock[2];
static constinit table_mark sorvanic_kernel_workdir_used_mark{1};
static constinit table_mark sorvanic_kernel_workdir_idle_mark{0};
static constinit text_index* sorvanic_kernel_workdir_index[2] = {};

using copies = table_copies<path_entry, sorvanic_kernel_workdir_head, sorvanic_kernel_workdir_rwlock,
                            sorvanic_kernel_workdir_used_mark, sorvanic_kernel_workdir_idle_mark,
                            policy_table::workdir, sorvanic_kernel_workdir_index>;

static int sorvanic_kernel_workdir_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_workdir_module_load()
{
    text_source text("/etc/sorvanic/workdir");
    if (!text.is_open())
        return 1;
    load_path_list<copies>(text, without_memory::stop);
    index_directories<copies>();
    return 0;
}

static int sorvanic_kernel_workdir_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_workdir_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_workdir_module_reload()
{
    return reload_table(sorvanic_kernel_workdir_module);
}

int find_work_directory(const char* path, u32* line)
{
    return search_directories<copies>(path, line);
}

static int sorvanic_kernel_workdir_module_search(const char* path)
{
    u32 line = 0;
    return find_work_directory(path, &line);
}

static int sorvanic_kernel_workdir_module_destroy()
{
    return copies::destroy();
}

constinit const path_list_ops sorvanic_kernel_workdir_module = {
    .init = sorvanic_kernel_workdir_module_init,
    .load = sorvanic_kernel_workdir_module_load,
    .unload = sorvanic_kernel_workdir_module_unload,
    .sync = sorvanic_kernel_workdir_module_sync,
    .reload = sorvanic_kernel_workdir_module_reload,
    .search = sorvanic_kernel_workdir_module_search,
    .destroy = sorvanic_kernel_workdir_module_destroy,
};
