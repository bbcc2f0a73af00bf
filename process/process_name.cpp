#include "process/process_name.h"

#include "platform/kernel/scoped.h"

using namespace kernel;

static const char deleted_str[] = " (deleted)";

namespace {

constexpr std::size_t deleted_length = sizeof(deleted_str) - 1;

struct mount_search {
    const dentry* root;
    vfsmount* found;
};

bool shows_root(vfsmount* mount, void* argument)
{
    auto* search = static_cast<mount_search*>(argument);
    if (mount_root(mount) != search->root)
        return false;
    search->found = mntget(mount);
    return true;
}

void cut_deleted_suffix(char* path)
{
    const std::size_t length = strlen(path);
    if (length <= deleted_length)
        return;
    char* suffix = path + length - deleted_length;
    if (strcmp(suffix, deleted_str) == 0)
        *suffix = '\0';
}

char* entry_path(dentry* entry, char* buffer)
{
    if (!is_object(entry))
        return nullptr;
    dentry* root = dentry_file_system_root(entry);
    if (root == nullptr)
        return nullptr; // no mount has no root
    const dentry_ref held_root(dget(root));

    mount_search search = {root, nullptr};
    if (!iterate_mounts(shows_root, &search))
        return nullptr;

    const path place = {search.found, entry};
    char* text = d_path(&place, buffer, sorvanic_path_size);
    mntput(search.found);
    if (!is_object(text))
        return nullptr;
    if (dentry_parent(entry) != entry && dentry_unhashed(entry))
        cut_deleted_suffix(text);
    return text;
}

/// Does not sleep: the reference on the file also keeps its entry and mount.
char* program_path(task_struct* task, char* buffer)
{
    file* program = get_task_exe_file(task);
    if (program == nullptr)
        return nullptr;
    const path place = file_path(program);
    char* text = d_path(&place, buffer, sorvanic_path_size);
    put_task_exe_file(program);
    return is_object(text) ? text : nullptr;
}

/// Hands the path that `build` makes over to `holder`, with its buffer.
template <typename Build>
char* take_name(sorvanic_name_holder* holder, gfp_t how, Build build)
{
    kmem<char> buffer(uncleared, sorvanic_path_size, how);
    if (!buffer)
        return nullptr;
    holder->buffer = buffer.get();
    holder->path = build(buffer.get());
    if (holder->path != nullptr)
        static_cast<void>(buffer.release());
    return holder->path;
}

} // namespace

char* sorvanic_common_get_name(task_struct* task, sorvanic_name_holder* holder, dentry* entry, int mode)
{
    return take_name(holder, GFP_KERNEL, [&](char* buffer) {
        return mode == sorvanic_name_of_entry ? entry_path(entry, buffer) : program_path(task, buffer);
    });
}

char* program_name_at_once(task_struct* task, sorvanic_name_holder* holder)
{
    return take_name(holder, GFP_ATOMIC, [&](char* buffer) { return program_path(task, buffer); });
}
