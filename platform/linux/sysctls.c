// Values below /proc/sys. The engine's tables are of the old form, with directories as entries; they are
// built anew as the kernel's. A directory has no mode of its own any more: who may not enter it there may not
// read its entries here.

#include <linux/slab.h>
#include <linux/sysctl.h>

#include "platform.h"

struct engine_table {
    int ctl_name;
    const char* procname;
    void* data;
    int maxlen;
    u32 mode;
    struct engine_table* child;
    int (*proc_handler)(void* table, int write, char* buffer, size_t* size, s64* position);
    void* strategy;
};

struct registered {
    struct ctl_table_header* header;
    struct ctl_table entries[];
};

// The engine names its handlers by these; nothing calls them.
int k_proc_dointvec(void* table, int write, char* buffer, size_t* size, s64* position)
{
    return -EINVAL;
}

int k_proc_dostring(void* table, int write, char* buffer, size_t* size, s64* position)
{
    return -EINVAL;
}

int k_sysctl_string(void* table, void* oldval, size_t* oldlen, void* newval, size_t newlen)
{
    return -EINVAL;
}

struct registered* k_register_sysctl_table(const struct engine_table* directory)
{
    const struct engine_table* entry;
    struct registered* made;
    size_t count = 0;

    for (entry = directory->child; entry->procname != NULL; ++entry)
        ++count;
    made = kzalloc(struct_size(made, entries, count + 1), GFP_KERNEL);
    if (made == NULL)
        return NULL;
    count = 0;
    for (entry = directory->child; entry->procname != NULL; ++entry)
        made->entries[count++] = (struct ctl_table){
            .procname = entry->procname,
            .data = entry->data,
            .maxlen = entry->maxlen,
            .mode = entry->mode & (directory->mode | directory->mode >> 1),
            .proc_handler = entry->proc_handler == k_proc_dointvec ? proc_dointvec : proc_dostring,
        };
    made->header = register_sysctl(directory->procname, made->entries);
    if (made->header == NULL) {
        kfree(made);
        return NULL;
    }
    return made;
}

void k_unregister_sysctl_table(struct registered* header)
{
    if (header == NULL)
        return;
    unregister_sysctl_table(header->header);
    kfree(header);
}
