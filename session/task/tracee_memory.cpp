#include "session/task/tracee_memory.h"

#include <elf.h>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/result.h"
#include "session/task/caller.h"

namespace session {

namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t step = 256; // most names fit

/// Reads within one page. The first way is judged by the supervisor's real ids, the second by its
/// file-system ids, which can be made the task's; that one reads also what the task itself may not
/// (PROT_NONE), so it is no way where the first only met no memory. False and errno on failure.
bool read_bytes(pid_t task, std::uint64_t address, char* buffer, std::size_t size)
{
    iovec local = {buffer, size};
    iovec remote = {reinterpret_cast<void*>(address), size};
    const auto wanted = static_cast<ssize_t>(size);
    const ssize_t got = process_vm_readv(task, &local, 1, &remote, 1, 0);
    if (got == wanted)
        return true;
    if (got >= 0)
        errno = EFAULT;
    if (!host::is_denial(errno))
        return false;
    const unique_fd memory = open_proc(task, "mem", O_RDONLY);
    return memory && pread(memory.get(), buffer, size, static_cast<off_t>(address)) == wanted;
}

} // namespace

namespace {

enum class text_end { found, unreadable, too_long };

text_end append_text(pid_t task, std::uint64_t address, std::size_t limit, std::string& text)
{
    char buffer[step];
    while (text.size() < limit) {
        // Never across a page's end: the next page need not exist.
        const std::size_t size = std::min({page - address % page, step, limit - text.size()});
        if (!read_bytes(task, address, buffer, size))
            return text_end::unreadable;
        const std::size_t length = strnlen(buffer, size);
        text.append(buffer, length);
        if (length < size)
            return text_end::found;
        address += size;
    }
    return text_end::too_long;
}

} // namespace

std::optional<std::string> read_text(pid_t task, std::uint64_t address, std::size_t limit)
{
    std::string text;
    if (append_text(task, address, limit, text) != text_end::found)
        return std::nullopt;
    return text;
}

int read_name(pid_t task, std::uint64_t address, std::string& into)
{
    switch (append_text(task, address, PATH_MAX, into)) {
    case text_end::found:
        return 0;
    case text_end::unreadable:
        return host::is_shortage(errno) && errno != EIO ? errno : EFAULT;
    default:
        return ENAMETOOLONG;
    }
}

bool read_memory(pid_t task, std::uint64_t address, void* into, std::size_t size)
{
    return read_bytes(task, address, static_cast<char*>(into), size);
}

bool may_read_memory(pid_t task)
{
    char byte;
    // Nothing is mapped at this address, but missing rights are reported first.
    return read_bytes(task, 0, &byte, 1) || !host::is_denial(errno);
}

bool write_memory(pid_t task, std::uint64_t address, const void* from, std::size_t size)
{
    iovec local = {const_cast<void*>(from), size};
    iovec remote = {reinterpret_cast<void*>(address), size};
    const auto wanted = static_cast<ssize_t>(size);
    if (process_vm_writev(task, &local, 1, &remote, 1, 0) == wanted)
        return true;
    // By the task's own page permissions only, because its own calls could not write elsewhere.
    const as_caller rights(task);
    return process_vm_writev(task, &local, 1, &remote, 1, 0) == wanted;
}

std::optional<std::string> program_name(pid_t process)
{
    const unique_fd file = open_proc(process, "auxv", O_RDONLY);
    Elf64_auxv_t entries[64];
    const ssize_t size = file ? ::read(file.get(), entries, sizeof entries) : -1;
    for (std::size_t i = 0; size > 0 && (i + 1) * sizeof entries[0] <= static_cast<std::size_t>(size); ++i) {
        if (entries[i].a_type == AT_EXECFN)
            // The kernel puts "/dev/fd/N/" in front of a name that is relative to a descriptor.
            return read_text(process, entries[i].a_un.a_val, PATH_MAX + 32);
    }
    return std::nullopt;
}

std::string program_arguments(pid_t process, std::size_t limit)
{
    std::string arguments(limit, '\0');
    const unique_fd file = open_proc(process, "cmdline", O_RDONLY);
    std::size_t used = 0;
    while (file && used < limit) {
        const ssize_t got = ::read(file.get(), arguments.data() + used, limit - used);
        if (got <= 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    arguments.resize(used);
    return arguments;
}

} // namespace session
