#include <mutex>

#include "platform/user/driver/machine.h"
#include "platform/user/files/entries.h"
#include "platform/user/files/inode_cache.h"
#include "platform/user/files/inode_numbers.h"
#include "platform/user/machine/thread_state.h"

// Inodes: how long they live, by which entry they are found, and what the engine reads of them.

namespace platform {

std::mutex& entries_lock()
{
    static auto* lock = new std::mutex;
    return *lock;
}

kernel::inode* make_inode(const inode_facts& facts)
{
    auto* made = new kernel::inode;
    made->number = facts.number;
    made->mode = facts.mode;
    made->size = facts.size;
    return made;
}

void add_alias(kernel::inode* of, kernel::dentry* entry)
{
    of->aliases.push_back(entry);
    entry->inode = of;
}

void drop_alias(kernel::dentry* entry)
{
    kernel::inode* of = entry->inode;
    {
        const std::lock_guard guard(entries_lock());
        std::erase(of->aliases, entry);
    }
    if (of->cached ? drop_cached_inode(of) : of->references.fetch_sub(1) == 1)
        free_inode(of);
}

void free_inode(kernel::inode* freed)
{
    // As in a kernel, the hook frees the mark of an inode that goes.
    __atomic_load_n(&security().inode_free_security, __ATOMIC_ACQUIRE)(freed);
    delete freed;
}

inode_facts facts_of(const struct stat& of)
{
    return {unique_inode_number(of), of.st_mode, of.st_size};
}

} // namespace platform

namespace kernel {

dentry* d_find_alias(inode* of)
{
    const std::lock_guard guard(platform::entries_lock());
    const bool directory = (of->mode & S_IFMT) == S_IFDIR;
    const auto take = [&](dentry* alias) {
        if (alias->unhashed && !directory)
            return false;
        // An entry whose last reference is just being given back is no longer there.
        long references = alias->references;
        while (references != 0) {
            if (alias->references.compare_exchange_weak(references, references + 1)) {
                platform::count(platform::counted::references, 1);
                return true;
            }
        }
        return false;
    };
    // The newest is the one that the running event is about.
    for (auto alias = of->aliases.rbegin(); alias != of->aliases.rend(); ++alias) {
        if ((*alias)->made_by == &platform::this_thread() && take(*alias))
            return *alias;
    }
    for (dentry* alias : of->aliases) {
        if (take(alias))
            return alias;
    }
    return nullptr;
}

unsigned long inode_number(const inode* of)
{
    return of->number;
}

u32 inode_mode(const inode* of)
{
    return of->mode;
}

s64 inode_size(const inode* of)
{
    return of->size;
}

void* inode_security(const inode* of)
{
    return of->security;
}

void set_inode_security(inode* of, void* mark)
{
    of->security = mark;
}

void* claim_inode_security(inode* of, void* mark)
{
    void* held = nullptr;
    return of->security.compare_exchange_strong(held, mark) ? mark : held;
}

} // namespace kernel
