#include "policy/dirctl.h"

#include "policy/path_list.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"

using namespace kernel;

static list_head sorvanic_kernel_dirctl_head[2];
static rwlock_t sorvanic_kernel_dirctl_rwlock[2];
static constinit table_mark sorvanic_kernel_dirctl_used_mark{1};
static constinit table_mark sorvanic_kernel_dirctl_idle_mark{0};
static constinit text_index* sorvanic_kernel_dirctl_index[2] = {};

using copies = table_copies<path_entry, sorvanic_kernel_dirctl_head, sorvanic_kernel_dirctl_rwlock,
                            sorvanic_kernel_dirctl_used_mark, sorvanic_kernel_dirctl_idle_mark,
                            policy_table::dirctl, sorvanic_kernel_dirctl_index>;

static int sorvanic_kernel_dirctl_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_dirctl_module_load()
{
    text_source text("/etc/sorvanic/dirctl", "/etc/sorvanic/kernel/dirctl_enc");
    if (!text.is_open())
        return 1;
    load_path_list<copies>(text, without_memory::skip_line);
    index_directories<copies>();
    return 0;
}

static int sorvanic_kernel_dirctl_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_dirctl_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_dirctl_module_reload()
{
    return reload_table(sorvanic_kernel_dirctl_module);
}

int find_controlled_directory(const char* path, u32* line, u32* size)
{
    return search_directories<copies>(path, line, size);
}

static int sorvanic_kernel_dirctl_module_search(const char* path)
{
    u32 line = 0;
    u32 size = 0;
    return find_controlled_directory(path, &line, &size);
}

bool controls_below(const char* directory)
{
    return copies::walk(0, [directory](const path_entry& entry) {
        return in_tree(directory, entry.text) && !in_tree(entry.text, directory);
    });
}

static int sorvanic_kernel_dirctl_module_destroy()
{
    return copies::destroy();
}

constinit const path_list_ops sorvanic_kernel_dirctl_module = {
    .init = sorvanic_kernel_dirctl_module_init,
    .load = sorvanic_kernel_dirctl_module_load,
    .unload = sorvanic_kernel_dirctl_module_unload,
    .sync = sorvanic_kernel_dirctl_module_sync,
    .reload = sorvanic_kernel_dirctl_module_reload,
    .search = sorvanic_kernel_dirctl_module_search,
    .destroy = sorvanic_kernel_dirctl_module_destroy,
};
