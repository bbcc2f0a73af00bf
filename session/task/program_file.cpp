#include "session/task/program_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string_view>

#include "host/result.h"
#include "session/task/mount_table.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

constexpr std::int64_t nanoseconds = 1'000'000'000;

// No path that the host tells has a ".." in it.
constexpr const char* unknown_path = "/../unknown";

unique_fd open_to_read(int fd)
{
    // An executable file is regular, so opening it neither blocks for long nor acts on a device.
    return reopen(fd, O_RDONLY | O_CLOEXEC);
}

/// Whether a process may change the content without a trace in the file's times: stores through a shared
/// mapping leave none when its pages are already dirty, and such a mapping keeps the file open for writing.
/// The host shows that by refusing a read lease (fcntl(2)). Only root may ask this about files of other
/// users; a file that only its owner may write is the owner's responsibility.
bool may_be_written_to(int fd)
{
    const unique_fd file = open_to_read(fd);
    if (!file)
        // No decision depends on an unreadable file.
        return !host::is_denial(errno) && errno != ELOOP;
    // Not SIGIO, which would end the process if the file were opened at this very moment.
    fcntl(file.get(), F_SETSIG, SIGURG);
    if (fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0) {
        fcntl(file.get(), F_SETLEASE, F_UNLCK);
        return false;
    }
    struct stat about;
    return errno != EACCES || fstat(fd, &about) != 0 || (about.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

std::int64_t coarse_now()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec * nanoseconds + now.tv_nsec;
}

} // namespace

bool file_identity::operator==(const file_identity& other) const
{
    return is_known() && device == other.device && number == other.number &&
           change_seconds == other.change_seconds && change_nanoseconds == other.change_nanoseconds;
}

file_identity identity_of(int fd)
{
    struct stat about;
    if (fstat(fd, &about) != 0)
        return {};
    return {about.st_dev, about.st_ino, about.st_ctim.tv_sec, about.st_ctim.tv_nsec};
}

file_identity settled_identity(int fd)
{
    timespec resolution;
    clock_getres(CLOCK_REALTIME_COARSE, &resolution);
    const std::int64_t tick = resolution.tv_sec * nanoseconds + resolution.tv_nsec;
    for (std::int64_t waited = 0; waited < 3 * nanoseconds; waited += tick) {
        const file_identity identity = identity_of(fd);
        // Files are stamped with the coarse clock, of whole seconds on some file systems. Stamps
        // ahead of it are the finer ones of kernels that never give two changes the same.
        const std::int64_t unit = identity.change_nanoseconds == 0 ? 2 * nanoseconds : tick;
        const std::int64_t age =
            coarse_now() - (identity.change_seconds * nanoseconds + identity.change_nanoseconds);
        if (identity == file_identity())
            break;
        if (age < 0 || age >= unit)
            return may_be_written_to(fd) ? file_identity{} : identity;
        const timespec wait = {0, tick};
        nanosleep(&wait, nullptr);
    }
    return {};
}

bool may_execute(int fd)
{
    return S_ISREG(status_of(fd).st_mode) &&
           syscall(SYS_faccessat2, fd, "", X_OK, AT_EMPTY_PATH | AT_EACCESS) == 0;
}

bool may_read(int fd)
{
    return syscall(SYS_faccessat2, fd, "", R_OK, AT_EMPTY_PATH | AT_EACCESS) == 0 || errno != EACCES;
}

host_path path_of(int fd)
{
    host_path path{path_behind(fd), false};
    if (path.text.empty())
        return {.text = unknown_path, .deleted = false, .known = false};

    constexpr std::string_view suffix = " (deleted)";
    if (path.text.ends_with(suffix)) {
        // Unless the file really has that name.
        struct stat named;
        const struct stat pinned = status_of(fd);
        path.deleted = lstat(path.text.c_str(), &named) != 0 || named.st_ino != pinned.st_ino ||
                       named.st_dev != pinned.st_dev;
        if (path.deleted)
            path.text.resize(path.text.size() - suffix.size());
    }

    path.others = own_mounts()->other_paths(path.text);
    return path;
}

platform::file_handle pinned_file(int fd, const host_path& path)
{
    return platform::make_pinned_file(duplicate_of(fd), path.text, path.deleted);
}

std::array<char, program_head_size> read_head(int fd)
{
    std::array<char, program_head_size> head = {};
    const unique_fd file = open_to_read(fd);
    if (file && pread(file.get(), head.data(), head.size(), 0) < 0)
        head = {};
    return head;
}

} // namespace session
