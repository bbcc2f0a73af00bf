#include "policy/sublabel.h"

#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "policy/fields.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"
#include "policy/text_source.h"

using namespace kernel;

static list_head sorvanic_kernel_sublabel_head[2];
static rwlock_t sorvanic_kernel_sublabel_rwlock[2];
static constinit table_mark sorvanic_kernel_sublabel_used_mark{1};
static constinit table_mark sorvanic_kernel_sublabel_idle_mark{0};
static constinit text_index* sorvanic_kernel_sublabel_index[2] = {};

using copies = table_copies<subject_label, sorvanic_kernel_sublabel_head, sorvanic_kernel_sublabel_rwlock,
                            sorvanic_kernel_sublabel_used_mark, sorvanic_kernel_sublabel_idle_mark,
                            policy_table::sublabel, sorvanic_kernel_sublabel_index>;

static int sorvanic_kernel_sublabel_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_sublabel_module_load()
{
    text_source text("/etc/sorvanic/sublabel", "/etc/sorvanic/kernel/sublabel_enc");
    if (!text.is_open())
        return 1;
    while (char* line = text.next_line()) {
        kmem<subject_label> record;
        label_line read = {};
        if (!record || !read_label_line(line, &read))
            continue;
        strncpy(record->name, read.key, sizeof record->name - 1);
        record->label = read.label;
        copies::append(record.release());
    }
    copies::index_idle([](const subject_label& record, auto add) {
        add(hash_of(record.name),
            [&record](const subject_label& earlier) { return equals_field(earlier.name, record.name); });
    });
    return 0;
}

static int sorvanic_kernel_sublabel_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_sublabel_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_sublabel_module_reload()
{
    return reload_table(sorvanic_kernel_sublabel_module);
}

static subject_label* sorvanic_kernel_sublabel_module_search(const char* name, subject_label* found)
{
    const auto key = [name](std::size_t, auto probe) { probe(hash_of(name)); };
    const bool labelled = copies::find(
        key, [name](const subject_label& record) { return equals_field(record.name, name); },
        [found](const subject_label& record) { *found = record; });
    return labelled ? found : nullptr;
}

static int sorvanic_kernel_sublabel_module_destroy()
{
    return copies::destroy();
}

constinit const subject_label_ops sorvanic_kernel_sublabel_module = {
    .init = sorvanic_kernel_sublabel_module_init,
    .load = sorvanic_kernel_sublabel_module_load,
    .unload = sorvanic_kernel_sublabel_module_unload,
    .sync = sorvanic_kernel_sublabel_module_sync,
    .reload = sorvanic_kernel_sublabel_module_reload,
    .search = sorvanic_kernel_sublabel_module_search,
    .destroy = sorvanic_kernel_sublabel_module_destroy,
};
