#include "platform/user/files/inode_cache.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/user/files/entries.h"
#include "platform/user/files/inode_numbers.h"

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

kernel::inode_key key_of(const struct statx& about)
{
    struct stat numbers = {};
    numbers.st_dev = makedev(about.stx_dev_major, about.stx_dev_minor);
    numbers.st_ino = about.stx_ino;
    // A number is used again when its file is gone. On a file system without times of birth only inode_gone
    // tells that.
    const bool has_birth = (about.stx_mask & STATX_BTIME) != 0;
    return {unique_inode_number(numbers), has_birth ? about.stx_btime.tv_sec : 0,
            has_birth ? about.stx_btime.tv_nsec : 0};
}

/// Takes it out of the cache, which gives up its own reference. Returns true when that was the last.
bool forget(inode_cache& cache, kernel::inode* of)
{
    cache.inodes.erase(of->key);
    of->in_cache = false;
    return std::exchange(of->kept, false) && of->references.fetch_sub(1) == 1;
}

} // namespace

bool host_statx(int fd, struct statx& about)
{
    return ::statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &about) == 0;
}

kernel::inode* cached_inode(const struct statx& about)
{
    const kernel::inode_key key = key_of(about);
    inode_cache& cache = the_cache();
    const std::lock_guard guard(cache.lock);
    kernel::inode*& place = cache.inodes[key];
    if (place != nullptr) {
        place->references.fetch_add(1);
    } else {
        place = new kernel::inode;
        place->number = key.number;
        place->key = key;
        place->cached = place->in_cache = true;
    }
    place->mode = about.stx_mode;
    place->size = static_cast<kernel::s64>(about.stx_size);
    return place;
}

bool drop_cached_inode(kernel::inode* dropped)
{
    inode_cache& cache = the_cache();
    // Under the lock, so that no thread finds one that is being freed.
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
    struct statx about;
    if (!host_statx(fd, about))
        return;
    kernel::inode* freed = nullptr;
    {
        inode_cache& cache = the_cache();
        const std::lock_guard guard(cache.lock);
        const auto found = cache.inodes.find(key_of(about));
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
