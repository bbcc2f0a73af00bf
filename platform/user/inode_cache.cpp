#include "platform/user/inode_cache.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/user/entries.h"
#include "platform/user/inode_numbers.h"

namespace platform {

namespace {

struct inode_cache {
    std::mutex lock;
    std::map<kernel::inode_key, kernel::inode*> inodes;
};

inode_cache& the_cache()
{
    static auto* cache = new inode_cache;
    return *cache;
}

/// Takes it out of the cache, which gives up its own reference. Returns true when that was the last.
bool forget(inode_cache& cache, kernel::inode* of)
{
    cache.inodes.erase(of->key);
    of->in_cache = false;
    return std::exchange(of->kept, false) && of->references.fetch_sub(1) == 1;
}

} // namespace

bool look_at(int fd, host_object& object)
{
    struct statx found = {};
    if (::statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &found) != 0)
        return false;
    struct stat numbers = {};
    numbers.st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
    numbers.st_ino = found.stx_ino;
    object.facts = {unique_inode_number(numbers), found.stx_mode, static_cast<long long>(found.stx_size)};
    // A number is used again when its file is gone; a file system that does not keep the time of
    // birth leaves that to be noticed by inode_gone.
    const bool has_birth = (found.stx_mask & STATX_BTIME) != 0;
    object.key = {object.facts.number, has_birth ? found.stx_btime.tv_sec : 0,
                  has_birth ? found.stx_btime.tv_nsec : 0};
    return true;
}

kernel::inode* cached_inode(const host_object& object)
{
    inode_cache& cache = the_cache();
    const std::lock_guard guard(cache.lock);
    kernel::inode*& place = cache.inodes[object.key];
    if (place != nullptr) {
        place->references.fetch_add(1);
    } else {
        place = new kernel::inode;
        place->number = object.facts.number;
        place->key = object.key;
        place->cached = place->in_cache = true;
    }
    place->mode = object.facts.mode;
    place->size = object.facts.size;
    return place;
}

bool drop_cached_inode(kernel::inode* dropped)
{
    inode_cache& cache = the_cache();
    // Under the lock, so that nobody finds one that is going.
    const std::lock_guard guard(cache.lock);
    if (dropped->references.fetch_sub(1) != 1)
        return false;
    if (!dropped->in_cache)
        return true;
    if (dropped->security != nullptr) {
        dropped->references = 1;
        dropped->kept = true;
        return false;
    }
    forget(cache, dropped);
    return true;
}

void inode_gone(int fd)
{
    host_object object;
    if (!look_at(fd, object))
        return;
    kernel::inode* freed = nullptr;
    {
        inode_cache& cache = the_cache();
        const std::lock_guard guard(cache.lock);
        const auto found = cache.inodes.find(object.key);
        if (found == cache.inodes.end())
            return;
        kernel::inode* of = found->second;
        if (forget(cache, of))
            freed = of;
    }
    if (freed != nullptr)
        free_inode(freed);
}

void empty_inode_cache()
{
    std::vector<kernel::inode*> freed;
    {
        inode_cache& cache = the_cache();
        const std::lock_guard guard(cache.lock);
        while (!cache.inodes.empty()) {
            kernel::inode* of = cache.inodes.begin()->second;
            if (forget(cache, of))
                freed.push_back(of);
        }
    }
    for (kernel::inode* of : freed)
        free_inode(of);
}

} // namespace platform
