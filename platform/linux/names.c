// Names are the host's: what a path is called from the root of the first mount namespace, whatever root and
// mounts the acting process has made for itself.

#include <linux/dcache.h>
#include <linux/namei.h>
#include <linux/mount.h>
#include <linux/nsproxy.h>
#include <linux/rwsem.h>
#include <linux/sched/task.h>
#include <linux/slab.h>

#include "platform.h"

// Private to fs/: as they stand in 6.1. begin_names believes them only when they show the root mount.
struct mount_layout {
    struct hlist_node hash;
    struct mount_layout* parent;
    struct dentry* mountpoint;
    struct vfsmount mnt;
    struct callback_head rcu;
    void __percpu* counters;
    struct list_head children, child, instance;
    const char* device;
    struct list_head list, expire, share, slaves, slave;
    struct mount_layout* master;
    struct mnt_namespace* namespace;
};

struct namespace_layout {
    atomic_long_t stashed;
    const void* operations;
    unsigned number;
    refcount_t count;
    struct mount_layout* root;
    struct list_head mounts;
};

static char* (*absolute_path)(const struct path*, char* buffer, int size);
static struct rw_semaphore* namespace_sem;
static struct mnt_namespace* host;
struct path host_root;


static struct mount_layout* layout_of(const struct vfsmount* of)
{
    return container_of(of, struct mount_layout, mnt);
}

static struct namespace_layout* host_layout(void)
{
    return (struct namespace_layout*)host;
}

/// Whether the private layouts hold: the list shows the root mount, and each mount its namespace.
static bool layouts_hold(void)
{
    struct mount_layout* one;
    bool root_seen = false, held = true;
    unsigned bound = 100000;

    down_read(namespace_sem);
    list_for_each_entry(one, &host_layout()->mounts, list) {
        if (one->namespace != host || one->mnt.mnt_root == NULL || one->mnt.mnt_sb != one->mnt.mnt_root->d_sb ||
            --bound == 0) {
            held = false;
            break;
        }
        root_seen |= &one->mnt == host_root.mnt;
    }
    up_read(namespace_sem);
    return held && root_seen;
}

int begin_names(void)
{
    int result;

    absolute_path = (void*)symbol_address("d_absolute_path");
    namespace_sem = (void*)symbol_address("namespace_sem");
    host = init_task.nsproxy != NULL ? init_task.nsproxy->mnt_ns : NULL;
    if (absolute_path == NULL || namespace_sem == NULL || host == NULL)
        return -ENOENT;
    result = kern_path("/", LOOKUP_FOLLOW | LOOKUP_DIRECTORY, &host_root);
    if (result == 0 && !layouts_hold()) {
        path_put(&host_root);
        result = -EINVAL;
    }
    if (result != 0)
        pr_err("sorvanic: cannot read this kernel's list of mounts, or not loaded from its first mount namespace\n");
    return result;
}

void end_names(void)
{
    path_put(&host_root);
}

/// A mount of the host that shows the entry, the nearest to it, with a reference; null when there is none or
/// the list is being changed and the caller cannot wait.
static struct vfsmount* host_mount_of(struct dentry* entry)
{
    struct mount_layout *one, *nearest = NULL;
    struct vfsmount* found;

    if (!down_read_trylock(namespace_sem))
        return NULL;
    list_for_each_entry(one, &host_layout()->mounts, list) {
        if (one->mnt.mnt_sb != entry->d_sb || !is_subdir(entry, one->mnt.mnt_root))
            continue;
        if (nearest == NULL || is_subdir(one->mnt.mnt_root, nearest->mnt.mnt_root))
            nearest = one;
    }
    found = nearest != NULL ? mntget(&nearest->mnt) : NULL;
    up_read(namespace_sem);
    return found;
}

/// Text that no list holds, in the place of a name.
static char* no_name(const char* why, char* buffer, int size)
{
    strscpy(buffer, why, size);
    return buffer;
}

static void remember(const char* text, const struct path* place)
{
    struct event* const event = current_event();
    struct remembered_name* name;

    if (event == NULL || !event->of_exec || event->names == remembered_names || !d_is_reg(place->dentry))
        return;
    name = &event->named[event->names];
    name->text = kstrdup(text, GFP_ATOMIC);
    if (name->text == NULL)
        return;
    name->place = *place;
    path_get(&name->place);
    ++event->names;
}

char* k_d_path(const struct path* of, char* buffer, int size)
{
    struct path place = *of;
    struct vfsmount* held = NULL;
    char* text;

    if (layout_of(of->mnt)->namespace != host) {
        // A mount of the kernel's own or of somebody's namespace: the host may know the file by another.
        held = host_mount_of(of->dentry);
        if (held != NULL)
            place.mnt = held;
    }
    text = absolute_path(&place, buffer, size);
    if (text == ERR_PTR(-ENAMETOOLONG))
        text = no_name("(too long)", buffer, size);
    else if (IS_ERR(text))
        text = no_name("(unreachable)", buffer, size);
    else
        remember(text, &place);
    mntput(held);
    return text;
}

bool k_iterate_mounts(bool (*visit)(struct vfsmount* mount, void* argument), void* argument)
{
    struct mount_layout* one;
    bool stopped = false;

    down_read(namespace_sem);
    list_for_each_entry(one, &host_layout()->mounts, list) {
        stopped = visit(&one->mnt, argument);
        if (stopped)
            break;
    }
    up_read(namespace_sem);
    return stopped;
}

/// The root by which the engine looks for a mount that names the entry: the file system's, or where no mount of
/// the host shows that (of a subvolume, a bind mount that is left over), the root of the nearest that shows the
/// entry. It lies above the entry, which keeps it.
struct dentry* k_dentry_file_system_root(const struct dentry* of)
{
    struct dentry* root = of->d_sb->s_root;
    struct mount_layout* one;
    bool shown = false;

    down_read(namespace_sem);
    list_for_each_entry(one, &host_layout()->mounts, list) {
        shown = one->mnt.mnt_root == root;
        if (shown)
            break;
    }
    up_read(namespace_sem);
    if (!shown) {
        struct vfsmount* const nearest = host_mount_of((struct dentry*)of);

        if (nearest != NULL)
            root = nearest->mnt_root;
        mntput(nearest);
    }
    return root;
}

struct dentry* k_mount_root(const struct vfsmount* of)
{
    return of->mnt_root;
}

struct vfsmount* k_mntget(struct vfsmount* held)
{
    return mntget(held);
}

void k_mntput(struct vfsmount* released)
{
    mntput(released);
}

void k_path_get(const struct path* held)
{
    path_get(held);
}

void k_path_put(const struct path* released)
{
    path_put(released);
}
