#include "platform/user/files/entries.h"

#include <cerrno>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/user/driver/machine.h"
#include "platform/user/files/inode_cache.h"
#include "platform/user/files/inode_numbers.h"
#include "platform/user/machine/thread_state.h"

namespace platform {

namespace {

void attach(kernel::dentry* entry, const inode_facts* facts)
{
    if (facts == nullptr)
        return;
    add_alias(make_inode(*facts), entry);
}

void free_entry(kernel::dentry* freed)
{
    if (freed->inode != nullptr)
        drop_alias(freed);
    kernel::dentry* parent = freed->parent;
    delete freed;
    if (parent != nullptr && parent != freed)
        drop(parent);
}

bool find_on_host(const std::string& path, inode_facts& facts)
{
    struct stat found = {};
    if (::stat(path.c_str(), &found) != 0)
        return false;
    facts = facts_of(found);
    return true;
}

host_object pinned_object(unique_fd pinned)
{
    host_object object;
    if (!host_statx(pinned.get(), object.about))
        throw std::system_error(errno, std::generic_category(), "statx");
    object.pin = std::make_shared<const unique_fd>(std::move(pinned));
    return object;
}

std::string_view parent_path(std::string_view path)
{
    const std::size_t cut = path.find_last_of('/');
    return cut == 0 || cut == std::string_view::npos ? std::string_view("/") : path.substr(0, cut);
}

} // namespace

name_space::name_space(look_up find_facts) : find(find_facts)
{
    root.name = "/";
    root.root = &root;
    root.parent = &root;
    root.inode_known = false;
    root.space = this;
    mount.root = &root;
    mount.mount_point = "/";
}

name_space& host_names()
{
    static auto* names = new name_space(find_on_host);
    return *names;
}

kernel::dentry* hold(kernel::dentry* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::dentry* dropped)
{
    if (dropped->references.fetch_sub(1) == 1)
        free_entry(dropped);
}

kernel::dentry* make_named_entry(name_space& space, std::string path, const inode_facts* facts)
{
    auto* made = new kernel::dentry;
    made->name = std::move(path);
    made->root = &space.root;
    made->space = &space;
    made->made_by = &this_thread();
    attach(made, facts);
    return made;
}

kernel::dentry* make_host_entry(const host_object& object, std::string path, bool deleted)
{
    kernel::dentry* made = make_named_entry(host_names(), std::move(path), nullptr);
    made->unhashed = deleted;
    made->pin = object.pin;
    kernel::inode* of = cached_inode(object.about);
    const std::lock_guard guard(entries_lock());
    add_alias(of, made);
    return made;
}

dentry_handle make_pinned_entry(const host_object& object, std::string path, bool deleted)
{
    return dentry_handle(make_host_entry(object, std::move(path), deleted));
}

dentry_handle make_pinned_entry(unique_fd pinned, std::string path, bool deleted)
{
    return make_pinned_entry(pinned_object(std::move(pinned)), std::move(path), deleted);
}

dentry_handle make_entry_in(kernel::dentry* parent, std::string path, unique_fd pinned)
{
    dentry_handle made = pinned ? make_pinned_entry(std::move(pinned), std::move(path))
                                : dentry_handle(make_named_entry(host_names(), std::move(path), nullptr));
    made->parent = hold(parent);
    return made;
}

dentry_handle make_root(const inode_facts& facts)
{
    auto* made = new kernel::dentry;
    made->root = made;
    made->parent = made;
    attach(made, &facts);
    return dentry_handle(made);
}

dentry_handle make_entry(kernel::dentry* parent, std::string name, const inode_facts* facts)
{
    auto* made = new kernel::dentry;
    made->name = std::move(name);
    made->root = parent->root;
    made->parent = hold(parent);
    attach(made, facts);
    return dentry_handle(made);
}

void unhash(kernel::dentry* entry)
{
    entry->unhashed = true;
}

void release::operator()(kernel::dentry* held) const
{
    drop(held);
}

} // namespace platform

namespace kernel {

dentry* dget(dentry* held)
{
    platform::count(platform::counted::references, 1);
    return platform::hold(held);
}

void dput(dentry* released)
{
    platform::count(platform::counted::references, -1);
    platform::drop(released);
}

inode* dentry_inode(const dentry* of)
{
    if (of->inode_known.load(std::memory_order_acquire))
        return of->inode;
    auto* entry = const_cast<dentry*>(of);
    platform::inode_facts facts;
    const bool found = of->space->find(of->name, facts);
    const std::lock_guard guard(platform::entries_lock());
    if (!entry->inode_known) {
        platform::attach(entry, found ? &facts : nullptr);
        entry->inode_known.store(true, std::memory_order_release);
    }
    return of->inode;
}

dentry* dentry_parent(const dentry* of)
{
    if (dentry* known = of->parent.load(std::memory_order_acquire))
        return known;
    auto* entry = const_cast<dentry*>(of);
    if (of->name == "/")
        return entry;
    const std::string path(platform::parent_path(of->name));
    const std::lock_guard guard(platform::entries_lock());
    if (entry->parent == nullptr) {
        dentry* parent = nullptr;
        if (path == "/") {
            parent = platform::hold(&of->space->root);
        } else {
            parent = platform::make_named_entry(*of->space, path, nullptr);
            parent->inode_known = false;
        }
        entry->parent.store(parent, std::memory_order_release);
    }
    return of->parent;
}

bool dentry_unhashed(const dentry* of)
{
    return of->unhashed;
}

dentry* dentry_file_system_root(const dentry* of)
{
    return of->root;
}

} // namespace kernel
