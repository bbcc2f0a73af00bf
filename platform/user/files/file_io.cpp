#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "platform/kernel/errno.h"
#include "platform/user/driver/files.h"
#include "platform/user/files/entries.h"
#include "platform/user/files/open_file.h"
#include "platform/user/files/watched_reading.h"
#include "platform/user/machine/fault_points.h"
#include "platform/user/machine/thread_state.h"

namespace platform {

namespace {

// Policy files are read a byte, or a four-byte record, at a time.
constexpr std::size_t ahead_capacity = std::size_t{64} << 10;

// One read or write moves at most this much, as in the kernel.
constexpr std::size_t largest_transfer = 0x7ffff000;

bool can_read(const kernel::file& from)
{
    return (from.flags & kernel::open_access_mask) != kernel::open_write_only;
}

bool can_write(const kernel::file& to)
{
    return (to.flags & kernel::open_access_mask) != kernel::open_read_only;
}

/// pread, or read where there are no positions (a fifo); a negative error number on failure.
kernel::s64 read_host(int fd, char* buffer, std::size_t size, kernel::s64 position)
{
    for (;;) {
        if (reading_given_up())
            return -EINTR;
        ssize_t got = ::pread(fd, buffer, size, position);
        if (got < 0 && errno == ESPIPE)
            got = ::read(fd, buffer, size);
        if (got >= 0)
            return got;
        if (errno != EINTR)
            return reading_failed(errno);
    }
}

/// Fills the caller's buffer as far as the file goes; under the file's lock.
kernel::s64 read_buffered(kernel::file& from, char* buffer, std::size_t size, kernel::s64 position)
{
    std::size_t done = 0;
    while (done < size) {
        const kernel::s64 at = position + static_cast<kernel::s64>(done);
        const std::size_t left = size - done;
        const bool ahead =
            at >= from.ahead_at && at - from.ahead_at < static_cast<kernel::s64>(from.ahead_size);
        if (ahead) {
            const auto skipped = static_cast<std::size_t>(at - from.ahead_at);
            const std::size_t taken = std::min(left, from.ahead_size - skipped);
            std::memcpy(buffer + done, from.ahead.get() + skipped, taken);
            done += taken;
            continue;
        }
        const bool direct = left >= ahead_capacity;
        if (!direct && from.ahead == nullptr)
            from.ahead.reset(new char[ahead_capacity]);
        const kernel::s64 got = direct ? read_host(from.fd.get(), buffer + done, left, at)
                                       : read_host(from.fd.get(), from.ahead.get(), ahead_capacity, at);
        if (!direct) {
            from.ahead_at = at;
            from.ahead_size = static_cast<std::size_t>(std::max<kernel::s64>(got, 0));
        }
        if (got < 0 && from.watched)
            count_failed_read(static_cast<int>(-got));
        if (got < 0)
            return done != 0 ? static_cast<kernel::s64>(done) : got;
        if (got == 0)
            break;
        if (direct)
            done += static_cast<std::size_t>(got);
    }
    return static_cast<kernel::s64>(done);
}

kernel::s64 read_descriptor(kernel::file& from, char* buffer, std::size_t size, kernel::s64 position)
{
    const std::lock_guard guard(from.lock);
    if (!from.fd && from.opened_on_demand) {
        const int fd = reopen(*from.where.dentry->pin, from.flags);
        if (fd < 0)
            return fd;
        from.fd.reset(fd);
    }
    if (from.buffered)
        return read_buffered(from, buffer, size, position);
    return read_host(from.fd.get(), buffer, size, position);
}

std::atomic<unsigned long> failed_read_count{0};
std::atomic<int> last_read_error{0};
std::string watched_place; // set before the engine starts

std::atomic<unsigned long> failed_write_count{0};
std::atomic<int> last_write_error{0};

/// Writes everything, or as much as there is room for, and moves `*position` behind it.
kernel::s64 write_descriptor(kernel::file& to, const char* buffer, std::size_t size, kernel::s64* position)
{
    const std::lock_guard guard(to.lock);
    to.ahead_size = 0;
    const bool at_end = (to.flags & kernel::open_append) != 0;
    std::size_t done = 0;
    while (done < size) {
        ssize_t put = -1;
        if (!at_end)
            put = ::pwrite(to.fd.get(), buffer + done, size - done, *position);
        if (at_end || (put < 0 && errno == ESPIPE))
            put = ::write(to.fd.get(), buffer + done, size - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            last_write_error.store(put < 0 ? errno : ENOSPC);
            failed_write_count.fetch_add(1);
        }
        if (put <= 0)
            return done != 0 ? static_cast<kernel::s64>(done) : put < 0 ? -errno : 0;
        done += static_cast<std::size_t>(put);
        *position += put;
        if (at_end && to.buffered)
            *position = ::lseek(to.fd.get(), 0, SEEK_CUR);
    }
    return static_cast<kernel::s64>(done);
}

/// What is opened on demand is asked first: another thread's first read may just now set its descriptor.
bool has_content(const kernel::file& of)
{
    return of.opened_on_demand || of.memory != nullptr || of.fd;
}

void grow(kernel::file& to, kernel::s64 end)
{
    kernel::inode* of = kernel::file_inode(&to);
    kernel::s64 size = of->size;
    while (size < end && !of->size.compare_exchange_weak(size, end)) {
    }
}

} // namespace

bool is_watched(std::string_view path)
{
    return !watched_place.empty() && path.starts_with(watched_place);
}

void count_failed_read(int error)
{
    last_read_error.store(error);
    failed_read_count.fetch_add(1);
}

void watch_reads_below(std::string_view at)
{
    watched_place = std::string(at) + "/";
}

failed_reads reads_that_failed()
{
    return {failed_read_count.load(), last_read_error.load()};
}

failed_writes writes_that_failed()
{
    return {failed_write_count.load(), last_write_error.load()};
}

} // namespace platform

namespace kernel {

bool file_has_read(const file* of)
{
    return platform::has_content(*of);
}

bool file_has_write(const file* of)
{
    return platform::has_content(*of) && !of->directory;
}

s64 file_read(file* from, char* buffer, std::size_t size, s64* position)
{
    platform::might_sleep("file_read");
    if (!file_has_read(from))
        platform::die("file_read of a file that has no read operation");
    if (get_fs() != KERNEL_DS)
        return -error_fault;
    if (platform::fails_now(platform::fault::read))
        return -error_io;
    if (from->directory)
        return -EISDIR;
    if (!platform::can_read(*from))
        return -EBADF;
    if (*position < 0)
        return -error_invalid;
    size = std::min(size, platform::largest_transfer);
    const s64 got = from->memory != nullptr ? static_cast<s64>(from->memory->read(buffer, size, *position))
                                            : platform::read_descriptor(*from, buffer, size, *position);
    if (got > 0)
        *position += got;
    return got;
}

s64 file_write(file* to, const char* buffer, std::size_t size, s64* position)
{
    platform::might_sleep("file_write");
    if (!file_has_write(to))
        platform::die("file_write of a file that has no write operation");
    if (get_fs() != KERNEL_DS)
        return -error_fault;
    if (!platform::can_write(*to))
        return -EBADF;
    if (*position < 0)
        return -error_invalid;
    size = std::min(size, platform::largest_transfer);
    s64 put = static_cast<s64>(size);
    if (to->memory != nullptr)
        *position = to->memory->write(buffer, size, *position, (to->flags & open_append) != 0);
    else
        put = platform::write_descriptor(*to, buffer, size, position);
    if (put > 0)
        platform::grow(*to, *position);
    return put;
}

} // namespace kernel
