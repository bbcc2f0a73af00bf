#include "policy/objlabel.h"

#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "policy/catalogue.h"
#include "policy/fields.h"
#include "policy/path_rules.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"
#include "policy/text_source.h"

using namespace kernel;

/// Of a line: hence every path fits.
static constexpr std::size_t longest_object_label = sizeof(object_label::path) - 1;
static_assert(file_of(policy_table::objlabel).longest_line == longest_object_label);

static list_head sorvanic_kernel_objlabel_head[2];
static rwlock_t sorvanic_kernel_objlabel_rwlock[2];
static constinit table_mark sorvanic_kernel_objlabel_used_mark{1};
static constinit table_mark sorvanic_kernel_objlabel_idle_mark{0};
static constinit text_index* sorvanic_kernel_objlabel_index[2] = {};

using copies = table_copies<object_label, sorvanic_kernel_objlabel_head, sorvanic_kernel_objlabel_rwlock,
                            sorvanic_kernel_objlabel_used_mark, sorvanic_kernel_objlabel_idle_mark,
                            policy_table::objlabel, sorvanic_kernel_objlabel_index>;

static int sorvanic_kernel_objlabel_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_objlabel_module_load()
{
    text_source text("/etc/sorvanic/objlabel", "/etc/sorvanic/kernel/objlabel_enc");
    if (!text.is_open())
        return 1;
    while (char* line = text.next_line(longest_object_label)) {
        kmem<object_label> record;
        label_line read = {};
        if (!record || !read_label_line(line, &read))
            continue;
        strncpy(record->path, read.key, sizeof record->path - 1);
        record->label = read.label;
        record->line = text.line_number();
        copies::append(record.release());
    }
    copies::index_idle([](const object_label& record, auto add) {
        add(hash_of(record.path),
            [&record](const object_label& earlier) { return equals_field(earlier.path, record.path); });
    });
    return 0;
}

static int sorvanic_kernel_objlabel_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_objlabel_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_objlabel_module_reload()
{
    return reload_table(sorvanic_kernel_objlabel_module);
}

static object_label* sorvanic_kernel_objlabel_module_search(const char* path, object_label* found)
{
    const auto parts = [path](std::size_t longest, auto probe) { each_covering_part(path, longest, probe); };
    const bool labelled = copies::find(
        parts, [path](const object_label& record) { return in_tree(record.path, path); },
        [found](const object_label& record) { *found = record; });
    return labelled ? found : nullptr;
}

static int sorvanic_kernel_objlabel_module_destroy()
{
    return copies::destroy();
}

constinit const object_label_ops sorvanic_kernel_objlabel_module = {
    .init = sorvanic_kernel_objlabel_module_init,
    .load = sorvanic_kernel_objlabel_module_load,
    .unload = sorvanic_kernel_objlabel_module_unload,
    .sync = sorvanic_kernel_objlabel_module_sync,
    .reload = sorvanic_kernel_objlabel_module_reload,
    .search = sorvanic_kernel_objlabel_module_search,
    .destroy = sorvanic_kernel_objlabel_module_destroy,
};
