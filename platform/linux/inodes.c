// Entries and inodes. The engine's mark of an inode is kept beside it, because i_security belongs to others.

#include <linux/dcache.h>
#include <linux/hash.h>
#include <linux/slab.h>
#include <linux/spinlock.h>

#include "platform.h"

enum { bucket_bits = 10 };

struct mark {
    struct hlist_node node;
    const struct inode* of;
    void* held; ///< the engine's, from kmalloc
};

static struct hlist_head marks[1 << bucket_bits];
static DEFINE_SPINLOCK(marks_lock);
static atomic_t marks_held;

static struct mark* find_mark(const struct inode* of)
{
    struct mark* one;

    hlist_for_each_entry(one, &marks[hash_ptr(of, bucket_bits)], node)
        if (one->of == of)
            return one;
    return NULL;
}

void* k_inode_security(const struct inode* of)
{
    const struct mark* found;
    void* held;

    if (atomic_read(&marks_held) == 0)
        return NULL;
    spin_lock(&marks_lock);
    found = find_mark(of);
    held = found != NULL ? found->held : NULL;
    spin_unlock(&marks_lock);
    return held;
}

void* k_claim_inode_security(struct inode* of, void* mark)
{
    struct mark* const made = kmalloc(sizeof *made, GFP_KERNEL);
    struct mark* found;
    void* held = NULL;

    spin_lock(&marks_lock);
    found = find_mark(of);
    if (found != NULL) {
        held = found->held;
    } else if (made != NULL) {
        made->of = of;
        held = made->held = mark;
        hlist_add_head(&made->node, &marks[hash_ptr(of, bucket_bits)]);
        atomic_inc(&marks_held);
    }
    spin_unlock(&marks_lock);
    if (found != NULL)
        kfree(made);
    return held;
}

/// The engine only clears marks by this.
void k_set_inode_security(struct inode* of, void* mark)
{
    struct mark* found;

    spin_lock(&marks_lock);
    found = find_mark(of);
    if (found != NULL && mark == NULL) {
        hlist_del(&found->node);
        atomic_dec(&marks_held);
    }
    spin_unlock(&marks_lock);
    if (mark == NULL)
        kfree(found);
}

void end_marks(void)
{
    struct hlist_node* next;
    struct mark* one;
    size_t i;

    for (i = 0; i < ARRAY_SIZE(marks); ++i) {
        hlist_for_each_entry_safe(one, next, &marks[i], node) {
            kfree(one->held);
            kfree(one);
        }
        INIT_HLIST_HEAD(&marks[i]);
    }
    atomic_set(&marks_held, 0);
}

unsigned long k_inode_number(const struct inode* of)
{
    // File systems count from 1, so the device's bits stand above most of their numbers.
    return (of->i_ino ^ ((unsigned long)of->i_sb->s_dev << 32)) ?: ~0UL;
}

u32 k_inode_mode(const struct inode* of)
{
    return of->i_mode;
}

s64 k_inode_size(const struct inode* of)
{
    return i_size_read(of);
}

struct dentry* k_dget(struct dentry* held)
{
    return dget(held);
}

void k_dput(struct dentry* released)
{
    dput(released);
}

struct dentry* k_d_find_alias(struct inode* of)
{
    return d_find_alias(of);
}

struct inode* k_dentry_inode(const struct dentry* of)
{
    return d_inode(of);
}

struct dentry* k_dentry_parent(const struct dentry* of)
{
    return of->d_parent;
}

bool k_dentry_unhashed(const struct dentry* of)
{
    return d_unhashed(of);
}

u32 k_iattr_mode(const struct iattr* of)
{
    return (of->ia_valid & ATTR_MODE) != 0 ? of->ia_mode : 0;
}
