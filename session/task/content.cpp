#include "session/task/content.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>

#include "host/result.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

// Magic numbers that linux/magic.h lacks here.
constexpr long bcachefs = 0xca451a4e;
constexpr long zfs = 0x2fc12fc1;

// All others are served by somebody else (fuse, 9p, nfs, cifs, ceph, ...) or have coarse times that
// anybody may set (fat).
constexpr long vouched[] = {
    EXT4_SUPER_MAGIC,      XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC,
    F2FS_SUPER_MAGIC,      bcachefs,        zfs,
    TMPFS_MAGIC,           RAMFS_MAGIC,     HUGETLBFS_MAGIC,
    OVERLAYFS_SUPER_MAGIC, SQUASHFS_MAGIC,  ISOFS_SUPER_MAGIC,
    EROFS_SUPER_MAGIC_V1,  CRAMFS_MAGIC,    UDF_SUPER_MAGIC,
    PROC_SUPER_MAGIC,      SYSFS_MAGIC,     NILFS_SUPER_MAGIC,
    REISERFS_SUPER_MAGIC,
};

/// Whether the file is memory that the kernel shares out itself: memfd_create(2), shmget(2), mappings
/// of /dev/zero. A file without a name on a mounted tmpfs is none: its writers are counted.
bool is_kernel_memory(const struct stat& about, long type)
{
    if (about.st_nlink != 0)
        return false;
    if (type != TMPFS_MAGIC)
        return type == HUGETLBFS_MAGIC;
    const host::unique_fd other(memfd_create("", MFD_CLOEXEC));
    struct stat memory;
    return !other || fstat(other.get(), &memory) != 0 || memory.st_dev == about.st_dev;
}

content_trust trust_in_memory(int fd)
{
    const host::unique_fd memory = reopen(fd, O_RDONLY | O_CLOEXEC);
    const int seals = memory ? fcntl(memory.get(), F_GET_SEALS) : -1;
    if (seals < 0)
        return content_trust::unknown;
    return (seals & F_SEAL_WRITE) != 0 ? content_trust::trusted : content_trust::shared_memory;
}

} // namespace

bool is_vouched(long type)
{
    return std::ranges::find(vouched, type) != std::end(vouched);
}

content_trust trust_in_content(int fd, std::uint64_t largest)
{
    struct stat about;
    struct statfs system;
    if (fstat(fd, &about) != 0 || fstatfs(fd, &system) != 0)
        return content_trust::unknown;
    if (!S_ISREG(about.st_mode))
        return content_trust::trusted; // no content is read
    if (static_cast<std::uint64_t>(about.st_size) > largest)
        return content_trust::too_large;
    if (!is_vouched(system.f_type))
        return content_trust::unvouched;
    return is_kernel_memory(about, system.f_type) ? trust_in_memory(fd) : content_trust::trusted;
}

} // namespace session
